#!/bin/bash
# Gives the software board's parsers, built for this machine with sanitizers, inputs that libFuzzer makes up.
#
#     scripts/fuzz.sh [--keep] [RUNS [TARGET...]]
#
# RUNS is how many inputs each target gets, ten million unless given; the targets are tiff, document, ini and report
# (fuzz/fuzz.h). Tells a line per target: executions, executions a second, inputs in its corpus, findings. The exit status
# is 1 when something was found; it lies in build/fuzz/findings, and build/fuzz/fuzz_TARGET FILE shows it again. New inputs
# stay in build/fuzz/corpus for the next run; with --keep the smallest that reach all the code go to fuzz/corpus, where
# the tests find them.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=run.sh
. "$here/run.sh"
# shellcheck source-path=SCRIPTDIR source=paths.sh
. "$here/paths.sh"
cd "$here/.."

all_targets=(tiff document ini report)
targets=()
runs=10000000
keep=
output=build/fuzz
workers=$(nproc)
# No input may take as much time or memory as these. Short inputs are tried more often; nothing in a parser needs long ones.
limits=(-max_len=1024 -timeout=20 -malloc_limit_mb=128 -rss_limit_mb=2048)
export ASAN_OPTIONS=malloc_context_size=4:quarantine_size_mb=16

fail() {
    printf 'fuzz: error: %s\n' "$*" >&2
    exit 2
}

read_arguments() {
    local argument
    for argument in "$@"; do
        case $argument in
            --keep) keep=yes ;;
            -h | --help)
                sed -n '2,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
                exit 0
                ;;
            -*) fail "what is $argument? Try --help" ;;
            *[!0-9]*)
                [[ " ${all_targets[*]} " == *" $argument "* ]] || fail "there is no target $argument; try --help"
                targets+=("$argument")
                ;;
            *) runs=$argument ;;
        esac
    done
    ((${#targets[@]})) || targets=("${all_targets[@]}")
}

build() {
    run scripts/bootstrap.sh --fuzzing
    run cmake -S fuzz -B "$output" -G Ninja --log-level=WARNING -DCMAKE_CXX_COMPILER=clang++ \
        -DQORV_FUZZ_DEPS="$qorv_fuzz_deps"
    run cmake --build "$output"
}

count_files() { find "$@" -type f | wc -l; }

fuzz() {
    local target=$1 logs=$PWD/$output/logs/$1 corpus=$PWD/$output/corpus/$1 findings=$PWD/$output/findings/$1
    local begin=$SECONDS executions status=0
    rm -rf "$logs" "$findings"
    mkdir -p "$logs" "$corpus" "$findings"
    # The workers' logs lie where they run.
    run env -C "$logs" "$PWD/$output/fuzz_$target" "${limits[@]}" -runs=$(((runs + workers - 1) / workers)) \
        -jobs="$workers" -workers="$workers" -print_final_stats=1 -artifact_prefix="$findings/" \
        "$corpus" "$PWD/fuzz/corpus/$target" >"$logs/parent.log" 2>&1 || status=1
    executions=$(awk '/^stat::number_of_executed_units:/ { sum += $2 } END { print sum + 0 }' "$logs"/fuzz-*.log)
    printf 'fuzz: %-8s %9d executions, %6d a second, %5d inputs, %d findings\n' "$target" "$executions" \
        $((executions / (SECONDS - begin + 1))) "$(count_files "$corpus" "fuzz/corpus/$target")" "$(count_files "$findings")"
    if ((status)); then grep -hE '^SUMMARY|^it does not hold' "$logs"/fuzz-*.log || tail -n 5 "$logs/parent.log"; fi
    return "$status"
}

# Code that is reached counts, not how often it is.
keep_smallest() {
    local target=$1 merged=$output/merged/$1
    rm -rf "$merged"
    mkdir -p "$merged"
    run "$output/fuzz_$target" "${limits[@]}" -merge=1 -use_counters=0 "$merged" "fuzz/corpus/$target" \
        "$output/corpus/$target" >"$output/logs/$target/merge.log" 2>&1 || fail "see $output/logs/$target/merge.log"
    rm -rf "fuzz/corpus/$target"
    mv "$merged" "fuzz/corpus/$target"
}

main() {
    local target status=0
    read_arguments "$@"
    build
    for target in "${targets[@]}"; do fuzz "$target" || status=1; done
    if [[ $keep ]]; then
        for target in "${targets[@]}"; do keep_smallest "$target"; done
    fi
    exit "$status"
}

main "$@"
