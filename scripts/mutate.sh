#!/bin/bash
# Tries whether the provider's tests bite: makes small changes to its sources, one at a time (scripts/mutants.py says
# which), builds each and runs the tests over it. Prints a line per change, and at the end those that no test noticed.
#
#     scripts/mutate.sh [COUNT [SEED]]      150 changes of seed 1
#
# Results are kept in build/mutants, so that an interrupted run goes on where it was, with the same sources and arguments;
# delete the folder to begin anew.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=run.sh
. "$here/run.sh"
cd "$here/.."
count=${1:-150}
seed=${2:-1}
work=$PWD/build/mutants
programs=(module diag provider line call query fax reset ui races inner)

build_everything
mkdir -p "$work"
python3 scripts/mutants.py list "$count" "$seed" >"$work/list.new"
# Other changes, or changes of other sources: the results so far are not theirs.
if ! cmp -s "$work/list.new" "$work/list"; then rm -rf "$work/results"; fi
mv "$work/list.new" "$work/list"
mkdir -p "$work/results"

# The programs in the order in which they are likely to notice a change of that file.
in_order() {
    local first
    case $1 in
        tsp/fax/result_names*) first=(inner) ;;
        tsp/fax/*) first=(fax) ;;
        tsp/ui/*) first=(ui) ;;
        tsp/reset/*) first=(reset provider) ;;
        tsp/diag/*) first=(diag) ;;
        tsp/line.cpp* | tsp/ring*) first=(line call) ;;
        tsp/call.cpp* | tsp/outgoing*) first=(call line) ;;
        tsp/provider.* | tsp/tables* | tsp/tsp_lock*) first=(provider line) ;;
        *) first=(query line) ;;
    esac
    printf '%s\n' "${first[@]}" "${programs[@]}" | awk '!seen[$0]++'
}

# What becomes of the change that has been made in the tree: "killed by PROGRAM", "does not compile" or "survived".
verdict_on() {
    local place=$1 tree=$2 program
    if ! cmake --build "$tree/build" --target qorvtsp qorvtsp_inner >"$tree/build.log" 2>&1; then
        echo 'does not compile'
        return
    fi
    for program in $(in_order "$place"); do
        if ! (cd build/tests/bin && timeout 120 wine "./${program}_tests.exe" --gtest_brief=1 --gtest_fail_fast \
            </dev/null >"$tree/test.log" 2>&1); then
            echo "killed by $program"
            return
        fi
    done
    echo survived
}

try() {
    local number=$1 place=$2 tree=$3
    local file=${place%:*}
    python3 scripts/mutants.py apply "$count" "$seed" "$number" "$tree"
    verdict_on "$place" "$tree"
    # Newer than what has been built from it, so that the next build has the original again.
    cp "$file" "$tree/$file"
}

worker() {
    local index=$1 workers=$2 tree=$work/tree$1 number place rule old new verdict
    rm -rf "$tree"
    mkdir -p "$tree"
    cp -r CMakeLists.txt cmake include scripts tsp board service host tests fuzz "$tree/"
    cmake -S "$tree" -B "$tree/build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$tree/cmake/mingw-w64.cmake" \
        -DCMAKE_BUILD_TYPE=Release >"$tree/build.log"
    # shellcheck source-path=SCRIPTDIR source=env.sh
    . "$here/env.sh"
    export QORV_PROVIDER="Z:$tree/build/bin/qorvtsp.tsp"
    while IFS=$'\t' read -r number place rule old new; do
        ((number % workers == index)) || continue
        if [[ ! -f $work/results/$number ]]; then
            verdict=$(try "$number" "$place" "$tree")
            printf '%s|%s|%s|%s -> %s\n' "$verdict" "$place" "$rule" "$old" "$new" >"$work/results/$number"
        fi
        printf '%4s  %s\n' "$number" "$(<"$work/results/$number")"
    done <"$work/list"
}

workers=$(nproc)
for ((i = 0; i < workers; i++)); do (worker "$i" "$workers") & done
wait

echo
cat "$work"/results/* | cut -d'|' -f1 | sed 's/ by .*//' | sort | uniq -c
echo 'survivors:'
grep -h '^survived' "$work"/results/* || echo '  none'
