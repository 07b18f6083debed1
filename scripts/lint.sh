#!/bin/bash
# Checks the sources without running them: format, cppcheck, clang-tidy. Needs a configured build (compile_commands.json).
# With files as arguments, clang-tidy looks at these only.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mapfile -t all < <(git ls-files --cached --others --exclude-standard '*.cpp' '*.h')
mapfile -t shipped < <(printf '%s\n' "${all[@]}" | grep -E '^(tsp|board|service|host|packaging|bench)/.*\.cpp$')
if (($#)); then shipped=("$@"); fi

echo 'lint: format'
clang-format --dry-run -Werror "${all[@]}"

echo 'lint: cppcheck'
cppcheck --quiet --error-exitcode=1 --enable=warning,performance,portability --std=c++17 --platform=win64 \
    --suppressions-list=.cppcheck-suppressions -j "$(nproc)" -D_WIN32 -D_WIN32_WINNT=0x0601 \
    -Iinclude -Itsp -Iboard -Ihost -Iservice -Ipackaging -Ibuild/packaging -Ibench -Ibench/driver -I. \
    tsp board host service packaging bench

# The cross compiler's own headers, for clang.
gcc_headers=$(x86_64-w64-mingw32-g++-posix -print-file-name=include/c++)
echo 'lint: clang-tidy'
printf '%s\0' "${shipped[@]}" | xargs -0 -P "$(nproc)" -n 4 clang-tidy --quiet -p build \
    --extra-arg-before=--target=x86_64-w64-windows-gnu \
    --extra-arg=-isystem"$gcc_headers" --extra-arg=-isystem"$gcc_headers/x86_64-w64-mingw32" \
    --extra-arg=-Wno-unused-command-line-argument --extra-arg=-Wno-ignored-attributes 2> >(grep -v 'warnings generated' >&2)
