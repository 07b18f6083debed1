#!/bin/bash
# Measures the product against floors of the same run, and shows one table: figure, floor, ratio, goal, met or not.
#
#     scripts/bench.sh [--record] [GROUP...]
#
# Without a GROUP all are measured: query, trace, startup, events, fax, many, capacity, in some 25 minutes. --record also
# renews docs/performance.md, with the results and the drawing beside it; it wants all groups. What was measured lies in
# build/bench: results.json and performance.svg. The exit status is 1 when a goal is missed. Let nothing else run on the
# machine meanwhile.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=run.sh
. "$here/run.sh"
cd "$here/.."

all_groups=(query trace startup events fax many capacity)
groups=()
record=
output=build/bench
rows=$output/rows.jsonl
# chart.py uses table.py, whose compiled form has no place among the sources.
export PYTHONDONTWRITEBYTECODE=1

fail() {
    printf 'bench: error: %s\n' "$*" >&2
    exit 2
}

read_arguments() {
    local argument
    for argument in "$@"; do
        case $argument in
            --record) record=yes ;;
            -h | --help)
                sed -n '2,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
                exit 0
                ;;
            -*) fail "what is $argument? Try --help" ;;
            *)
                [[ " ${all_groups[*]} " == *" $argument "* ]] || fail "there is no group $argument; try --help"
                groups+=("$argument")
                ;;
        esac
    done
    if [[ ! $record ]]; then return; fi
    ((${#groups[@]} == 0)) || fail "--record wants all groups"
}

build() {
    run scripts/bootstrap.sh
    run cmake --preset release --log-level=WARNING
    run cmake --build --preset release --target calder "${groups[@]/%/_bench}"
}

# Wine shows the whole file system as drive Z.
windows_path() { printf 'Z:%s\n' "${1//\//\\}"; }

three_pages=$(windows_path "$PWD/tests/fixtures/three-pages.tif")

in_wine() { run wine "$@" >>"$output/wine.log" 2>&1; }

# The provider wants the host service, the fax service, and the registry value that an installation leaves.
start_service() {
    in_wine build/bin/calder.exe install --fax-stand-in || fail "calder.exe could not be installed; see $output/wine.log"
    in_wine net start calder || fail "the service calder does not start; see $output/wine.log"
}

# The software board writes its log, but not to the debugger, whose absence Wine makes expensive.
configure_software_board() {
    printf '%s\r\n' '[log]' 'file = C:\softboard.log' 'debugger = no' >"$WINEPREFIX/drive_c/softboard.ini"
    export QORV_SOFTBOARD='C:\softboard.ini'
}

bench() {
    echo "bench: $*"
    in_wine "build/bench/bin/$1_bench.exe" "${@:2}" --out "$(windows_path "$PWD/$rows")" ||
        fail "$1_bench.exe has failed; see $output/wine.log"
}

measure() {
    case $1 in
        trace)
            bench trace --board none
            bench trace --board software
            ;;
        fax | capacity) bench "$1" --file "$three_pages" ;;
        many) for lines in 50 200 1000; do bench many --file "$three_pages" --lines "$lines"; done ;;
        *) bench "$1" ;;
    esac
}

main() {
    local group status=0
    read_arguments "$@"
    ((${#groups[@]})) || groups=("${all_groups[@]}")
    build
    rm -f "$rows" "$output/wine.log"
    # shellcheck source-path=SCRIPTDIR source=env.sh
    . "$here/env.sh"
    start_service
    configure_software_board
    for group in "${groups[@]}"; do measure "$group"; done
    bench/table.py make "$rows" "$output/results.json" || status=$?
    bench/chart.py "$output/results.json" "$output/performance.svg"
    if [[ $record ]]; then
        cp "$output/results.json" docs/performance.json
        cp "$output/performance.svg" docs/performance.svg
        bench/table.py record docs/performance.json docs/performance.md
    fi
    exit "$status"
}

main "$@"
