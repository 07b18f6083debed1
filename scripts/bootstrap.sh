#!/bin/bash
# Makes a bare Debian 12 ready to build and run the product: packages, the libraries cross-built from pinned sources,
# and a Wine prefix of the project's own. Everything built lands in a cache outside the tree, in folders named after the
# pins; a run that finds all of it does nothing and needs no network.
#
#     scripts/bootstrap.sh [--fuzzing]      --fuzzing: also what scripts/fuzz.sh needs
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=paths.sh
. "$here/paths.sh"

packages=(
    # the build
    g++-mingw-w64-x86-64-posix mingw-w64-tools cmake ninja-build make perl googletest
    # spandsp's configure script and the table generators that it compiles for this machine
    gcc libc6-dev file
    # fetching and unpacking sources
    dpkg-dev bzip2 gzip xz-utils patch
    # checking the sources and what the tests reach
    clang-format clang-tidy cppcheck git gcovr python3
    # running and looking at the result
    wine wine64 libtiff-tools netpbm
    # packing it
    zip unzip
)
# a compiler for this machine with a fuzzer and sanitizers, and what shows their findings by function and line
fuzzing_packages=(clang libclang-rt-dev llvm)

say() { printf 'bootstrap: %s\n' "$*"; }
fail() {
    printf 'bootstrap: error: %s\n' "$*" >&2
    exit 1
}

# The fields of a pin: pin NAME VERSION|TARBALL|SHA256
pin() {
    local name version tarball sha256
    while read -r name version tarball sha256; do
        [[ $name == "$1" ]] || continue
        case $2 in
            version) printf '%s\n' "$version" ;;
            tarball) printf '%s\n' "$tarball" ;;
            sha256) printf '%s\n' "$sha256" ;;
        esac
        return
    done <"$qorv_pins"
    fail "$qorv_pins has no pin for $1"
}

# A step's output goes to a log in the cache, whose end is shown only when the step fails. Call it as a plain command: in a
# condition, bash would not stop the step at its first failing command.
logged() {
    local log=$qorv_cache/logs/$1.log status
    shift
    mkdir -p "$qorv_cache/logs"
    set +e
    (
        set -e
        "$@"
    ) >"$log" 2>&1
    status=$?
    set -e
    ((status == 0)) && return
    tail -n 25 "$log" >&2
    fail "'$*' failed with status $status; its log is $log"
}

# ---- packages ----------------------------------------------------------------------------------------------------------

missing_packages() {
    local package
    for package in "${packages[@]}"; do
        [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || printf '%s\n' "$package"
    done
}

# The package lists, brought up to date once a run and with Debian's sources among them.
lists_are_fresh=
update_lists() {
    [[ -z $lists_are_fresh ]] || return 0
    sources_are_listed || add_source_lists
    say "updating the package lists"
    # A list that cannot be had (a third party's, say) is no reason to stop: what is really missing is named later.
    apt-get -q update >/dev/null || say "apt-get update complained; going on with what there is"
    sources_are_listed ||
        fail "no list of Debian $(debian_codename)'s sources could be had: see /etc/apt and the lines above"
    lists_are_fresh=yes
}

install_packages() {
    local missing
    mapfile -t missing < <(missing_packages)
    ((${#missing[@]})) || return 0
    ((EUID == 0)) || fail "these packages are missing and only root can install them: ${missing[*]}"
    update_lists
    say "installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    # The first completes what an interrupted installation has left; there is nothing to do as a rule.
    logged dpkg dpkg --configure -a
    logged apt-get apt-get -q -y -o DPkg::Lock::Timeout=300 install --no-install-recommends "${missing[@]}"
}

# ---- pinned sources ----------------------------------------------------------------------------------------------------

# Lists in deb822 form: the stanzas of Debian's own main archive, with the type turned into deb-src.
source_stanzas() {
    awk -v suite="$1" '
        BEGIN { RS = ""; ORS = "\n\n" }
        {
            types = suites = main = off = 0
            out = ""
            lines = split($0, line, "\n")
            for (i = 1; i <= lines; i++) {
                text = line[i]
                if (text ~ /^#/) continue
                key = tolower(text); sub(/:.*/, "", key)
                if (key == "types") {
                    if (text ~ /[: \t]deb([ \t]|$)/) types = 1
                    text = "Types: deb-src"
                }
                if (key == "suites" && index(text, suite)) suites = 1
                if (key == "components" && text ~ /[: \t]main([ \t]|$)/) main = 1
                if (key == "enabled" && tolower(text) ~ /no|false|off/) off = 1
                out = out (out == "" ? "" : "\n") text
            }
            if (types && suites && main && !off) print out
        }' "$2"
}

# Lists in one-line form: the same.
source_lines() {
    awk -v suite="$1" '
        /^[ \t]*deb[ \t]/ && index($0, suite) && / main([ \t]|$)/ { sub(/^[ \t]*deb/, "deb-src"); print }' "$2"
}

debian_codename() {
    # shellcheck source=/dev/null
    (. /etc/os-release && printf '%s\n' "${VERSION_CODENAME:-bookworm}")
}

# Whether apt has the index of Debian's sources, thanks to the machine's own lists or to ours of an earlier run.
sources_are_listed() {
    # shellcheck disable=SC2016 # apt expands it
    apt-get indextargets --format '$(RELEASE)' 'Created-By: Sources' 'Component: main' 2>/dev/null |
        grep -qx "$(debian_codename)"
}

# A deb-src copy beside the machine's lists, which stay as they are.
add_source_lists() {
    local codename folder=/etc/apt/sources.list.d file text
    codename=$(debian_codename)
    for file in /etc/apt/sources.list "$folder"/*.list "$folder"/*.sources; do
        [[ -f $file && $file != "$folder"/qorvtsp-* ]] || continue
        case $file in
            *.sources) text=$(source_stanzas "$codename" "$file") ;;
            *) text=$(source_lines "$codename" "$file") ;;
        esac
        [[ -n $text ]] || continue
        printf '%s\n' "$text" >"$folder/qorvtsp-deb-src-$(basename "$file")"
    done
}

check_sha256() {
    local file=$1 wanted=$2 found
    found=$(sha256sum <"$file")
    found=${found%% *}
    [[ $found == "$wanted" ]] || fail "checksum of $file: wanted $wanted, found $found"
}

# Leaves the verified tarball in the cache's downloads.
fetch() {
    local name=$1 tarball sha256 work
    tarball=$(pin "$name" tarball)
    sha256=$(pin "$name" sha256)
    if [[ ! -f $downloads/$tarball ]]; then
        ((EUID == 0)) || fail "the sources of $name are not in the cache yet and only root can set up deb-src to fetch them"
        update_lists
        say "fetching $tarball"
        # apt downloads as the user _apt, who must be able to write here and to reach the place: not in root's home.
        work=$(mktemp -d /var/tmp/qorvtsp-fetch.XXXXXX)
        fetch_folder=$work
        if id _apt >/dev/null 2>&1; then chown _apt "$work"; fi
        (cd "$work" && apt-get -q source --download-only --tar-only --only-source "$name" >"$work/log" 2>&1) || {
            tail -n 5 "$work/log" >&2
            fail "apt-get could not fetch the sources of $name $(pin "$name" version)"
        }
        [[ -f $work/$tarball ]] ||
            fail "the mirror does not offer $tarball; it has: $(cd "$work" && echo *.tar.*)"
        check_sha256 "$work/$tarball" "$sha256"
        cp "$work/$tarball" "$downloads/$tarball.part"
        mv "$downloads/$tarball.part" "$downloads/$tarball"
        rm -rf "$work"
        fetch_folder=
    fi
    check_sha256 "$downloads/$tarball" "$sha256"
}

# Unpacks a tarball's only folder as $build/NAME, whatever it is called inside.
unpack() {
    mkdir "$build/$1"
    tar -x -f "$downloads/$(pin "$1" tarball)" -C "$build/$1" --strip-components=1
}

# ---- recipes: each leaves its headers, archives and licence in $stage ----------------------------------------------------

triplet=x86_64-w64-mingw32
cores=$(nproc)

# The compiler's run time is linked into every program, so its licences go where the libraries' go.
copy_run_time_licences() {
    cp /usr/share/doc/gcc-mingw-w64-base/copyright "$stage/licences/gcc.txt"
    cp /usr/share/doc/mingw-w64-common/copyright "$stage/licences/mingw-w64.txt"
}

build_ace() {
    local ACE_ROOT=$build/ace
    cd "$build/ace/ace"
    patch -p1 -d "$build/ace" <"$qorv_root/scripts/ace-free-tss-key.patch"
    echo '#include "ace/config-win32.h"' >config.h
    cat >"$build/ace/include/makeinclude/platform_macros.GNU" <<-END
		static_libs_only = 1
		debug = 0
		inline = 1
		CROSS-COMPILE = 1
		include \$(ACE_ROOT)/include/makeinclude/platform_mingw32.GNU
	END
    export ACE_ROOT MPC_ROOT=$build/ace/MPC
    perl "$ACE_ROOT/bin/mpc.pl" -type gnuace ace.mpc
    # What is used of it here is small and not where time goes: -O1 will do. And nearly all of the compiler's time goes
    # into Windows' headers, so they are compiled once: with flags other than the makefile's it would only be slower.
    local cxx="$triplet-g++-posix $same_anywhere" early=$build/ace/early.h
    echo '#include "ace/OS.h"' >"$early"
    $cxx -O1 -mthreads -fno-strict-aliasing -DNDEBUG -DACE_NDEBUG -D__ACE_INLINE__ -DACE_AS_STATIC_LIBS \
        -DACE_HAS_CUSTOM_EXPORT_MACROS=0 -I.. -x c++-header "$early" -o "$early.gch"
    make -j "$cores" -f GNUmakefile.ACE CXX="$cxx -w -include $early" CC="$triplet-gcc-posix" AR="$triplet-ar" \
        RC="$triplet-windres" OCFLAGS=-O1 OCCFLAGS=-O1
    find "$build/ace" -name libACE.a -exec cp {} "$stage/lib/" \;
    cp "$build/ace/COPYING" "$stage/licences/ace.txt"
    # Headers, and what they include in turn: inline functions and template bodies.
    find . \( -name '*.h' -o -name '*.inl' -o -name '*.cpp' \) -exec cp --parents -t "$stage/include/ace" {} +
}

# The fax codecs are always built in; no other is wanted. Takes the folder to build in.
configure_tiff() {
    local folder=$1 codec off=()
    shift
    for codec in jbig jpeg old-jpeg jpeg12 lerc libdeflate lzma pixarlog webp zlib zstd cxx; do
        off+=("-D$codec=OFF")
    done
    cmake -S "$build/tiff" -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$stage" \
        -DCMAKE_INSTALL_LIBDIR=lib -DBUILD_SHARED_LIBS=OFF "${off[@]}" "$@"
}

# Takes the folder it was built in.
stage_tiff() {
    cp "$1/libtiff/libtiff.a" "$stage/lib/"
    cp "$build"/tiff/libtiff/tiff{,io,vers}.h "$1/libtiff/tiffconf.h" "$stage/include/"
}

build_tiff() {
    configure_tiff "$build/tiff-build" -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_C_COMPILER="$triplet-gcc-posix" \
        -DCMAKE_CXX_COMPILER="$triplet-g++-posix" -DCMAKE_RC_COMPILER="$triplet-windres" \
        -DCMAKE_C_FLAGS="$same_anywhere" -DCMAKE_FIND_ROOT_PATH="/usr/$triplet" \
        -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY
    cmake --build "$build/tiff-build" --target tiff
    stage_tiff "$build/tiff-build"
    cp "$build/tiff/LICENSE.md" "$stage/licences/tiff.txt"
}

# For this machine, so that a fault in how the board uses it shows. That it adds nothing to a null pointer is not the
# board's affair. Comparisons are not traced: those of its tables would take most of the time.
build_sanitized_tiff() {
    configure_tiff "$build/tiff-build" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        -DCMAKE_C_FLAGS="-g -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize=pointer-overflow \
            -fno-sanitize-recover=all -fno-sanitize-coverage=trace-cmp"
    cmake --build "$build/tiff-build" --target tiff
    stage_tiff "$build/tiff-build"
}

build_spandsp() {
    # The C runtime's headers define _M_X64, which spandsp's header takes for Microsoft's compiler; it then declares
    # everything dllimport. Its users need the same two lines.
    cat >"$stage/include/spandsp-mingw.h" <<-END
		#include <_mingw.h>
		#undef _M_X64
	END
    cd "$build/spandsp"
    ac_cv_func_malloc_0_nonnull=yes ac_cv_func_realloc_0_nonnull=yes \
        ./configure --host="$triplet" --disable-shared CC="$triplet-gcc-posix" CXX="$triplet-g++-posix" \
        CPPFLAGS="-I$stage/include -include $stage/include/spandsp-mingw.h" LDFLAGS="-L$stage/lib" \
        CFLAGS="-O2 -w $same_anywhere"
    make -j "$cores" -C src
    cp src/.libs/libspandsp.a "$stage/lib/"
    cp src/spandsp.h "$stage/include/"
    cp -r src/spandsp "$stage/include/"
    cp COPYING "$stage/licences/spandsp.txt"
}

# The benchmarks alone are linked with it, and they are not shipped: its licence does not go where the others' go.
build_benchmark() {
    cmake -S "$build/benchmark" -B "$build/benchmark-build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_TOOLCHAIN_FILE="$qorv_root/cmake/mingw-w64.cmake" -DCMAKE_CXX_FLAGS="$same_anywhere" \
        -DCMAKE_INSTALL_PREFIX="$stage" -DCMAKE_INSTALL_LIBDIR=lib -DBENCHMARK_ENABLE_TESTING=OFF \
        -DBENCHMARK_ENABLE_GTEST_TESTS=OFF -DBENCHMARK_ENABLE_WERROR=OFF
    cmake --build "$build/benchmark-build" --target benchmark
    cp "$build/benchmark-build/src/libbenchmark.a" "$stage/lib/"
    cp -r "$build/benchmark/include/benchmark" "$stage/include/"
}

build_dependencies() {
    local name
    mkdir -p "$downloads"
    build=$(mktemp -d "$qorv_cache/build.XXXXXX")
    stage=$build/stage
    # For every compiler: __FILE__ names no folder of this machine, so that a library is the same wherever it was built.
    same_anywhere=-ffile-prefix-map=$build/=
    mkdir -p "$stage/lib" "$stage/include/ace" "$stage/licences"
    for name in ace tiff spandsp benchmark; do fetch "$name"; done
    for name in tiff spandsp benchmark ace; do
        say "building $name $(pin "$name" version)"
        unpack "$name"
        logged "$name" "build_$name"
        [[ -s $stage/lib/lib${name/ace/ACE}.a ]] || fail "the build of $name left no library"
    done
    copy_run_time_licences
    mv -T "$stage" "$qorv_deps"
    rm -rf "$build"
    build=
}

build_fuzzing_dependencies() {
    mkdir -p "$downloads"
    build=$(mktemp -d "$qorv_cache/build.XXXXXX")
    stage=$build/stage
    mkdir -p "$stage/lib" "$stage/include"
    fetch tiff
    say "building tiff $(pin tiff version) with sanitizers"
    unpack tiff
    logged tiff-sanitized build_sanitized_tiff
    mv -T "$stage" "$qorv_fuzz_deps"
    rm -rf "$build"
    build=
}

# ---- Wine --------------------------------------------------------------------------------------------------------------

create_prefix() {
    say "creating the Wine prefix"
    build=$(mktemp -d "$qorv_cache/build.XXXXXX")
    # The lock's descriptor is closed for Wine: what it leaves running must not keep the next bootstrap waiting.
    (
        export WINEPREFIX=$build/wine WINESERVER=$qorv_wineserver WINEDEBUG=-all WINEARCH=win64
        export WINEDLLOVERRIDES=$qorv_wine_overrides
        unset DISPLAY WAYLAND_DISPLAY
        logged wineboot timeout 300 wineboot -i
        timeout 60 "$WINESERVER" -w || "$WINESERVER" -k
    ) 9>&-
    [[ -f $build/wine/system.reg ]] || fail "wineboot left no registry in the new prefix"
    # "My Documents" and the like would be links into the user's home: tests have no business there.
    find "$build/wine/drive_c/users" -type l -exec rm {} \; -exec mkdir {} \;
    mv -T "$build/wine" "$qorv_wine_template"
    rm -rf "$build"
    build=
}

# ---- the whole ---------------------------------------------------------------------------------------------------------

downloads=$qorv_cache/downloads
fuzzing=
build=
fetch_folder=
clean_up() {
    if [[ -d $build/wine ]]; then WINEPREFIX=$build/wine "$qorv_wineserver" -k >/dev/null 2>&1 || true; fi
    rm -rf ${build:+"$build"} ${fetch_folder:+"$fetch_folder"}
}

main() {
    # Without these a step that an interrupt ended would be reported like one that failed.
    trap 'exit 130' INT
    trap 'exit 143' TERM
    case ${1-} in
        '') ;;
        --fuzzing)
            fuzzing=yes
            packages+=("${fuzzing_packages[@]}")
            ;;
        *) fail "what is $1?" ;;
    esac
    install_packages
    if [[ ! -d $qorv_deps || ! -d $qorv_wine_template || ($fuzzing && ! -d $qorv_fuzz_deps) ]]; then
        mkdir -p "$qorv_cache"
        exec 9>"$qorv_cache/lock"
        flock -n 9 || { say "waiting for another bootstrap to finish" && flock 9; }
        trap clean_up EXIT
        # Nobody else builds while we hold the lock, so whatever lies here is a run's that was killed.
        for build in "$qorv_cache"/build.*; do clean_up; done
        build=
        [[ -d $qorv_deps ]] || build_dependencies
        [[ ! $fuzzing || -d $qorv_fuzz_deps ]] || build_fuzzing_dependencies
        [[ -d $qorv_wine_template ]] || create_prefix
    fi
    say "ready: $qorv_deps"
}

main "$@"
