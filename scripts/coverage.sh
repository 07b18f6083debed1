#!/bin/bash
# Runs the provider's tests over a build of it that counts, and reports which of its lines and branches they reach:
# build/coverage/index.html, and a summary here. Fails below 97 % of lines or 90 % of branches.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=run.sh
. "$here/run.sh"
cd "$here/.."

build_everything
run cmake --build --preset release --target qorvtsp_counting
# shellcheck source-path=SCRIPTDIR source=env.sh
. "$here/env.sh"

objects=build/tsp/CMakeFiles/qorvtsp_counting_code.dir
find "$objects" -name '*.gcda' -delete
# Whole programs one after another: the provider adds its counts to the files whenever it is unloaded.
for program in build/tests/bin/*_tests.exe; do
    name=$(basename "$program" .exe)
    echo "coverage: $name"
    # shellcheck disable=SC2031 # env.sh has set up Wine for this shell
    (cd build/tests/bin && QORV_PROVIDER="Z:$here/../build/counting/qorvtsp.tsp" run wine "./$name.exe" --gtest_brief=1) ||
        echo "coverage: $name did not pass; its counts may be incomplete" >&2
done

rm -rf build/coverage
mkdir -p build/coverage
# Branches that only an exception in a call takes, and those the compiler makes for itself, are not the sources'.
gcovr --root . --filter tsp/ --gcov-executable x86_64-w64-mingw32-gcov-posix "$objects" \
    --exclude-throw-branches --exclude-unreachable-branches --print-summary --txt build/coverage/summary.txt \
    --html-details build/coverage/index.html --fail-under-line 97 --fail-under-branch 90
echo "coverage: build/coverage/index.html"
