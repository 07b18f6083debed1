#!/bin/bash
# The package, made twice as on two machines: from copies in two folders, of two ages, in two time zones and under two
# umasks. The bytes must be the same; and in it must be what belongs there, complete, and able to start.
#
#     package_test.sh BUILD LICENCES VERSION DATE        as make-zip.sh takes them
set -euo pipefail
export LC_ALL=C
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=$1 licences=$2 version=$3 date=$4
name=qorvtsp-$version

programs=(calddlld.dll calder.exe faxhost.exe qorvconf.cpl qorvsetup.exe qorvtsp.tsp)

# What every Windows since 7 has, and the driver library, which may be another one than ours.
known_modules=' advapi32.dll calddlld.dll comctl32.dll gdi32.dll iphlpapi.dll kernel32.dll msvcrt.dll mswsock.dll
 netapi32.dll ole32.dll setupapi.dll shell32.dll user32.dll version.dll ws2_32.dll '

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf 'package: %s\n' "$*" >&2
    exit 1
}

# What the packing takes from the sources and the build, in a folder of its own, all of it changed at one time.
copy_tree() {
    local tree=$1 time=$2 program
    mkdir -p "$tree"/{board,tests/fixtures,build/bin}
    cp -r "$root/packaging" "$root/docs" "$root/README.md" "$tree"
    cp "$root/board/softboard.ini.example" "$tree/board"
    cp "$root/tests/fixtures/three-pages.tif" "$tree/tests/fixtures"
    cp -r "$licences" "$tree/licences"
    cp "$build/NOTICES.md" "$tree/build"
    for program in "${programs[@]}"; do cp "$build/bin/$program" "$tree/build/bin"; done
    find "$tree" -exec touch -d "$time" {} +
}

pack() {
    local tree=$1 zone=$2 mask=$3
    (umask "$mask" && TZ=$zone "$tree/packaging/make-zip.sh" "$tree/build" "$tree/licences" "$version" "$date")
}

wanted_names() {
    {
        printf '%s\n' "${programs[@]}" softboard.ini.example three-pages.tif README.md NOTICES.md
        printf 'licences/%s.txt\n' ace gcc mingw-w64 spandsp tiff
        (cd "$root" && find docs -type f)
    } | sort | sed "s,^,$name/,"
}

# Of every file in the ZIP: its permissions and its time.
stamps() { zipinfo -T "$1" | awk '$NF ~ /^'"$name"'/ { print $1, $7 }' | sort -u; }

check_modules() {
    local module
    for module in $(x86_64-w64-mingw32-objdump -p "$1" | sed -n 's/.*DLL Name: //p' | tr '[:upper:]' '[:lower:]'); do
        [[ $known_modules == *[[:space:]]"$module"[[:space:]]* ]] || fail "$1 needs $module"
    done
}

# Folders of the machine that built it, by their names; and symbols, which are of use to debuggers only.
check_traces() {
    local folder
    for folder in "$root" "$build" "$(dirname "$licences")"; do
        ! grep -qF "$folder" "$1" || fail "$1 names $folder"
    done
    ! grep -qE 'build\.[A-Za-z0-9]{6}/' "$1" || fail "$1 names the folder that a library was built in"
    x86_64-w64-mingw32-objdump -t "$1" | grep -q '^no symbols' || fail "$1 has symbols"
}

check_version() {
    local program=$1 said
    said=$("$root/scripts/wine-run.sh" "$program" --version | tr -d '\r')
    [[ $said == "$(basename "$program" .exe) $version" ]] || fail "$program --version says \"$said\""
}

copy_tree "$work/one" '2001-02-03 04:05:06'
copy_tree "$work/the other" '2022-11-10 09:08:07'
pack "$work/one" Pacific/Auckland 077
pack "$work/the other" America/New_York 002
cmp "$work/one/build/$name.zip" "$work/the other/build/$name.zip" || fail 'two packages of the same files differ'

diff <(wanted_names) <(zipinfo -1 "$work/one/build/$name.zip") || fail 'other files are in it, or in another order'
[[ $(stamps "$work/one/build/$name.zip") == "-rw-r--r-- ${date//-/}.000000" ]] ||
    fail "permissions or times: $(stamps "$work/one/build/$name.zip")"

unzip -q "$work/one/build/$name.zip" -d "$work"
for program in "${programs[@]}"; do
    check_modules "$work/$name/$program"
    check_traces "$work/$name/$program"
done
for program in "$work/$name"/*.exe; do check_version "$program"; done
! grep -n '@' "$work/$name/NOTICES.md" || fail 'a version is missing in NOTICES.md'
