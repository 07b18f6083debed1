# Sourced: where bootstrap.sh puts what it builds. cmake/dependencies.cmake computes the folder of the libraries alike.
# shellcheck shell=bash disable=SC2034
qorv_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
qorv_pins=$qorv_root/scripts/third-party.pins
qorv_cache=${QORV_CACHE:-${XDG_CACHE_HOME:-${HOME:?neither QORV_CACHE nor HOME is set}/.cache}/qorvtsp}
if [[ $qorv_cache != /* ]]; then
    echo "error: QORV_CACHE (or XDG_CACHE_HOME) must be an absolute path, not $qorv_cache" >&2
    return 2
fi
qorv_key=$(sha256sum <"$qorv_pins")
qorv_key=${qorv_key:0:16}
qorv_deps=$qorv_cache/deps-$qorv_key
qorv_fuzz_deps=$qorv_cache/fuzz-$qorv_key
qorv_wine_template=$qorv_cache/wine-$qorv_key
# Debian's wrapper of the same name starts the server with -p0, which ends it with the last program: Wine would boot anew
# for every test.
qorv_wineserver=/usr/lib/wine/wineserver64
qorv_wine_overrides='winedbg.exe=d;mscoree=d;mshtml=d'
