#!/bin/bash
# Builds everything and runs the tests under Wine. Arguments go to ctest: scripts/test.sh -R fax
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=run.sh
. "$here/run.sh"
cd "$here/.."

run scripts/bootstrap.sh
run cmake --preset release --log-level=WARNING
run cmake --build --preset release
# shellcheck source-path=SCRIPTDIR source=env.sh
. "$here/env.sh"
run ctest --preset release "$@"
