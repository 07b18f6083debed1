#!/bin/bash
# Packs what a build has made, with its documentation: BUILD/qorvtsp-VERSION.zip.
#
#     packaging/make-zip.sh BUILD LICENCES VERSION DATE
#
# BUILD is the build folder (bin/ and NOTICES.md), LICENCES the folder with the third parties' licence texts, DATE the day
# of the version (2026-01-31), which all files in the package bear. The same files give the same bytes, whatever the
# clock, the time zone, the umask and the order of folders are here.
set -euo pipefail
umask 022
export LC_ALL=C TZ=UTC
# Options that zip would take from the environment.
unset ZIP ZIPOPT

(($# == 4)) || {
    echo 'usage: make-zip.sh BUILD LICENCES VERSION DATE' >&2
    exit 2
}
build=$(realpath "$1")
licences=$(realpath "$2")
name=qorvtsp-$3
date=$4
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

programs=(qorvsetup.exe qorvtsp.tsp calddlld.dll qorvconf.cpl calder.exe faxhost.exe)

stage=$(mktemp -d "$build/package.XXXXXX")
trap 'rm -rf "$stage"' EXIT
package=$stage/$name
mkdir -p "$package/licences"

# Without --preserve-dates, strip would write the time of day into a program's header, where the linker has left none.
for program in "${programs[@]}"; do
    x86_64-w64-mingw32-strip --preserve-dates -o "$package/$program" "$build/bin/$program"
done
cp "$root/board/softboard.ini.example" "$root/tests/fixtures/three-pages.tif" "$root/README.md" "$build/NOTICES.md" \
    "$package"
cp -r "$root/docs" "$package"
cp "$licences"/*.txt "$package/licences"

# No extra fields, no entries for folders, one time stamp and one set of permissions, in the order of the names.
cd "$stage"
find "$name" -type f -exec chmod 644 {} + -exec touch -d "$date 00:00:00" {} +
find "$name" -type f | sort | zip -q -9 -X -D "$stage/$name.zip" -@
mv "$stage/$name.zip" "$build/$name.zip"
