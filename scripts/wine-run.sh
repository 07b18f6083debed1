#!/bin/bash
# Runs a test program under Wine, for ctest. Two things of Wine's are kept from the tests:
# - The first program with a window starts Wine's desktop, which keeps that program's standard error open as long as any
#   program runs, and ctest waits for everybody who has it. So the program gets a file, shown when it has ended.
# - On a busy machine Wine itself fails to start now and then: it is gone at once, before the program has begun, and is
#   then started again, a few times if need be. A test program that has begun has said so on its standard output.
wine=/usr/lib/wine/wine64
output=$(mktemp -d "${WINEPREFIX:?is not set: . scripts/env.sh}/output.XXXXXX") || exit
trap 'cat "$output/errors" >&2; rm -rf "$output"' EXIT

for pause in 0.1 0.5 2 ''; do
    "$wine" "$@" 2>>"$output/errors" | tee "$output/said"
    status=${PIPESTATUS[0]}
    if ((status == 0)) || [[ -s $output/said || -z $pause ]]; then break; fi
    echo "wine-run.sh: Wine did not start (status $status)" >>"$output/errors"
    sleep "$pause"
done
exit "$status"
