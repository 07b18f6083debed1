#!/bin/bash
# Runs a test program under Wine, for ctest. Two things of Wine's are kept from the tests:
# - The first program with a window starts Wine's desktop, which keeps that program's standard error open as long as any
#   program runs, and ctest waits for everybody who has it. So the program gets a file, shown when it has ended.
# - On a busy machine Wine itself fails now and then: it is gone before the program has begun, or one of its own libraries
#   comes apart while it is loaded, and the program's start fails. It is then started again, a few times if need be. A test
#   program that has begun has said so on its standard output; libraries that come apart are the dynamic linker's to say.
wine=/usr/lib/wine/wine64
output=$(mktemp -d "${WINEPREFIX:?is not set: . scripts/env.sh}/output.XXXXXX") || exit
trap 'cat "$output/errors" >&2; rm -rf "$output"' EXIT

wine_has_failed() { [[ ! -s $output/said ]] || grep -q '^Inconsistency detected by ld\.so' "$output/errors"; }

for pause in 0.1 0.5 2 ''; do
    "$wine" "$@" 2>"$output/errors" | tee "$output/said"
    status=${PIPESTATUS[0]}
    if ((status == 0)) || [[ -z $pause ]] || ! wine_has_failed; then break; fi
    cat "$output/errors" >&2
    echo "wine-run.sh: Wine has failed to start the program (status $status)" >&2
    sleep "$pause"
done
exit "$status"
