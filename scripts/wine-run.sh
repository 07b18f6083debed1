#!/bin/bash
# Runs a test program under Wine, for ctest. Two things of Wine's are kept from the tests:
# - The first program with a window starts Wine's desktop, which keeps that program's standard error open as long as any
#   program runs, and ctest waits for everybody who has it. So the program gets a file, shown when it has ended.
# - On a busy machine Wine itself fails to start now and then: it is gone within milliseconds, before the program has
#   begun, and is then started again, a few times if need be.
wine=/usr/lib/wine/wine64
errors=$(mktemp "${WINEPREFIX:?is not set: . scripts/env.sh}/stderr.XXXXXX") || exit
trap 'cat "$errors" >&2; rm -f "$errors"' EXIT

for pause in 0.1 0.5 2 ''; do
    begin=${EPOCHREALTIME/./}
    "$wine" "$@" 2>>"$errors"
    status=$?
    if ((status == 0 || ${EPOCHREALTIME/./} - begin > 30000)) || [[ -z $pause ]]; then break; fi
    echo "wine-run.sh: Wine did not start (status $status)" >>"$errors"
    sleep "$pause"
done
exit "$status"
