#!/bin/bash
# Runs a test program under Wine, for ctest. Two things of Wine's are kept from the tests:
# - The first program with a window starts Wine's desktop, which keeps that program's standard error open as long as any
#   program runs, and ctest waits for everybody who has it. So the program gets a file, shown when it has ended.
# - On a busy machine Wine itself fails to start now and then: it is gone within milliseconds, before the program has
#   begun, and is then started once more.
wine=/usr/lib/wine/wine64
errors=$(mktemp "${WINEPREFIX:?is not set: . scripts/env.sh}/stderr.XXXXXX") || exit
trap 'cat "$errors" >&2; rm -f "$errors"' EXIT

begin=${EPOCHREALTIME/./}
"$wine" "$@" 2>"$errors"
status=$?
if ((status != 0 && ${EPOCHREALTIME/./} - begin < 30000)); then
    "$wine" "$@" 2>>"$errors"
    status=$?
fi
exit "$status"
