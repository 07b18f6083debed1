#!/bin/bash
# Sends a fax from one line of the provider to another and shows what happens on the way.
#
#     scripts/demo.sh [--realtime] [FILE.tif]
#
# Without FILE.tif it sends tests/fixtures/three-pages.tif. --realtime paces the lines by the clock, as a telephone
# network would; otherwise they run as fast as the processor goes. Everything it leaves is in demo-output.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=run.sh
. "$here/run.sh"

root=$(dirname "$here")
output=$root/demo-output
received=$output/received.tif
file=$root/tests/fixtures/three-pages.tif
pace=fast

say() { printf 'demo: %s\n' "$*"; }
fail() {
    printf 'demo: error: %s\n' "$*" >&2
    exit 1
}

read_arguments() {
    local files=0
    for argument in "$@"; do
        case $argument in
            --realtime) pace=realtime ;;
            -h | --help)
                sed -n '2,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
                exit 0
                ;;
            -*) fail "what is $argument? Try --help" ;;
            *)
                file=$argument
                files=$((files + 1))
                ;;
        esac
    done
    ((files <= 1)) || fail "one file at a time, please"
    [[ -e $file ]] || fail "there is no file $file"
    [[ -f $file && -r $file ]] || fail "$file is not a file that can be read"
    [[ ! $file -ef $received ]] || fail "$file is where the received fax goes; give it another name first"
    file=$(realpath "$file")
}

build() {
    say "building"
    run cmake --preset release --log-level=WARNING >/dev/null || fail "the build could not be configured"
    run cmake --build --preset release --target calder faxhost qorvtsp calddlld || fail "the build failed"
}

# Nothing of an earlier run may pass for this one's.
prepare_output() {
    mkdir -p "$output"
    rm -f "$received" "$output"/received-*.png "$output"/softboard.ini "$output"/{calddlld,faxhost,calder}.log
    printf '%s\r\n' '[board]' "pace = $pace" '[log]' "file = $(windows_path "$output/calddlld.log")" \
        >"$output/softboard.ini"
}

# Wine shows the whole file system as drive Z.
windows_path() { printf 'Z:%s\n' "${1//\//\\}"; }

in_wine() { run wine "$@"; }

start_service() {
    say "starting the service calder"
    in_wine build/bin/calder.exe install --fax-stand-in >"$output/calder.log" 2>&1 ||
        fail "calder.exe could not be installed: $(tail -n 1 "$output/calder.log")"
    in_wine net start calder >>"$output/calder.log" 2>&1 ||
        fail "the service calder does not start: $(tail -n 1 "$output/calder.log")"
}

stop_service() {
    in_wine build/bin/calder.exe remove >>"$output/calder.log" 2>&1 || fail "the service calder could not be removed"
}

# Everything that faxhost tells goes to the terminal as it comes, and to a log.
loopback() {
    wine build/bin/faxhost.exe loopback "$(windows_path "$file")" "$(windows_path "$received")" --events \
        --header "Demonstration of the fax provider" 2>&1 | tee -i "$output/faxhost.log"
}

send_fax() {
    say "sending $file from line 0 to line 1, pace $pace"
    # Where the software board finds its configuration.
    QORV_SOFTBOARD=$(windows_path "$output/softboard.ini")
    export QORV_SOFTBOARD
    run loopback
}

# Pages of the received file, which libtiff's tool must read without a word of complaint.
count_pages() {
    local complaints
    complaints=$(tiffinfo "$received" 2>&1 >/dev/null) || fail "tiffinfo cannot read $received: $complaints"
    [[ -z $complaints ]] || fail "tiffinfo complains about $received: $complaints"
    tiffinfo "$received" | grep -c '^=== TIFF directory'
}

# How much taller than wide a dot of the page is: 204 by 196 dots an inch is not square, 204 by 98 far from it.
dot_height() { tiffinfo "$1" | awk '/Resolution:/ { sub(",", "", $2); printf "%.4f", $2 / $3; exit }'; }

# A page of the received file as PNG with square dots. The prefix serves as a place that is gone afterwards.
make_png() {
    local number=$1 page=$WINEPREFIX/page.tif
    tiffcp "$received,$((number - 1))" "$page" &&
        tifftopnm -quiet "$page" | pamscale -quiet -xscale 1 -yscale "$(dot_height "$page")" |
        pnmtopng -quiet >"$output/received-$number.png"
}

show_result() {
    local pages number
    pages=$(count_pages)
    for ((number = 1; number <= pages; ++number)); do
        run make_png "$number" || fail "page $number could not be made into a PNG file"
    done
    printf 'received: %s\n' "$received"
    for ((number = 1; number <= pages; ++number)); do
        printf 'page %d:   %s\n' "$number" "$output/received-$number.png"
    done
}

main() {
    read_arguments "$@"
    cd "$root"
    run scripts/bootstrap.sh
    build
    prepare_output
    # shellcheck source-path=SCRIPTDIR source=env.sh
    . "$here/env.sh"
    start_service
    send_fax || fail "the fax did not go through as it should; $output/faxhost.log and calddlld.log beside it tell more"
    stop_service
    show_result
}

main "$@"
