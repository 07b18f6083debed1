#!/bin/bash
# Builds everything, checks the sources and runs the tests under Wine, those of the provider also over a build of it that
# stops at undefined behaviour. With arguments only the tests, which ctest selects by them: scripts/test.sh -R fax
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=run.sh
. "$here/run.sh"
cd "$here/.."

build_everything
# shellcheck source-path=SCRIPTDIR source=env.sh
. "$here/env.sh"
run ctest --preset release "$@"
if (($#)); then exit; fi
run scripts/lint.sh
run cmake --build --preset release --target qorvtsp_trapping
QORV_PROVIDER="Z:$PWD/build/trapping/qorvtsp.tsp" run ctest --preset release --label-regex provider
