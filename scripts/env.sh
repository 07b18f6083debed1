# Sourced (bash): the environment in which programs of the build run under Wine, in scripts and by hand:
#
#     . scripts/env.sh && ctest --preset release
#
# Each shell gets a Wine prefix of its own, a cheap copy of the one that bootstrap.sh made, because services, the
# registry, named objects and C:\temp are one per prefix: two runs at once never meet. A wineserver is kept up for as long
# as the shell lives and ended with it.
# shellcheck shell=bash
# shellcheck source-path=SCRIPTDIR source=paths.sh
. "$(dirname "${BASH_SOURCE[0]}")/paths.sh" || return

export WINESERVER=$qorv_wineserver WINEDEBUG=-all WINEDLLOVERRIDES=$qorv_wine_overrides WINEARCH=win64
export LC_ALL=C.UTF-8
unset DISPLAY WAYLAND_DISPLAY QORV_SOFTBOARD

# Ends the server of a prefix, everything that runs in it, and the prefix.
qorv_drop_prefix() {
    WINEPREFIX=$1 "$WINESERVER" -k >/dev/null 2>&1 || true
    WINEPREFIX=$1 timeout 20 "$WINESERVER" -w >/dev/null 2>&1 || true
    rm -rf "$1"
}

# Prefixes of shells of this machine that were killed before they could tidy up.
qorv_drop_stale_prefixes() {
    local prefix pid
    for prefix in "$qorv_cache/runs/$HOSTNAME".*; do
        pid=${prefix#"$qorv_cache/runs/$HOSTNAME."}
        pid=${pid%%.*}
        if [[ -d $prefix && ! -d /proc/$pid ]]; then qorv_drop_prefix "$prefix"; fi
    done
}

qorv_make_prefix() {
    local file
    mkdir -p "$qorv_cache/runs"
    WINEPREFIX=$(mktemp -d "$qorv_cache/runs/$HOSTNAME.$$.XXXXXX")
    export WINEPREFIX
    trap qorv_end_wine EXIT
    # Wine's own files are shared as hard links; what a run changes, the registry above all, is copied.
    cp -al "$qorv_wine_template/." "$WINEPREFIX"
    for file in "$WINEPREFIX"/*.reg "$WINEPREFIX"/.update-timestamp "$WINEPREFIX"/drive_c/windows/*.ini; do
        cp --remove-destination "$qorv_wine_template${file#"$WINEPREFIX"}" "$file"
    done
    # Windows are drawn into memory only, unless QORV_SCREEN names an X display, such as :0.
    if [[ ${QORV_SCREEN-} ]]; then
        export DISPLAY=$QORV_SCREEN
    else
        printf '\n[Software\\\\Wine\\\\Drivers]\n"Graphics"="null"\n' >>"$WINEPREFIX/user.reg"
    fi
}

qorv_end_wine() { qorv_drop_prefix "$WINEPREFIX"; }

qorv_begin_wine() {
    if [[ ! -d $qorv_wine_template ]]; then
        echo "env.sh: error: there is no Wine prefix yet: run scripts/bootstrap.sh first" >&2
        return 1
    fi
    qorv_drop_stale_prefixes
    qorv_make_prefix
    "$WINESERVER" -p </dev/null >/dev/null 2>&1
    # Boots Wine here and now: its services must not start with, and hold on to, some test's output.
    wine cmd /c exit </dev/null >/dev/null 2>&1
}

qorv_begin_wine
