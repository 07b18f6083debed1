#!/bin/bash
# Random operations on the provider, as long as one likes: scripts/chaos.sh [OPERATIONS [SEED]], a million of a new seed if
# nothing is said. A run that fails prints its seed, the end of its journal, who waits for what and who holds which lock;
# the same number of operations with the same seed fails in the same way, and QORV_CHAOS_TRACE=1 shows every trace line.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=run.sh
. "$here/run.sh"
cd "$here/.."

export QORV_CHAOS_OPERATIONS=${1:-1000000} QORV_CHAOS_SEED=${2:-$(date +%s)}
run scripts/bootstrap.sh
run cmake --preset release --log-level=WARNING
run cmake --build --preset release --target qorvtsp chaos_tests
# shellcheck source-path=SCRIPTDIR source=env.sh
. "$here/env.sh"
echo "chaos: $QORV_CHAOS_OPERATIONS operations of seed $QORV_CHAOS_SEED"
cd build/tests/bin
# shellcheck disable=SC2031 # env.sh has set up Wine for this shell
run wine ./chaos_tests.exe --gtest_brief=1
