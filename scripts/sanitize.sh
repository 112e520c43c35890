#!/usr/bin/env bash
# Builds the library, tools and tests with sanitizers and runs the suite (without the slow label).
#   scripts/sanitize.sh [address,undefined|thread]   (default: address,undefined)
# Deliberate process-lifetime allocations are listed in tests/lsan-suppressions.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
sanitizers=${1:-address,undefined}
build=${BUILD_DIR:-build-san-${sanitizers//,/-}}

scripts/install-deps.sh
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DBUILD_TESTING=ON -DVORN_SANITIZE="$sanitizers"
cmake --build "$build" -j "$(nproc)"

export LSAN_OPTIONS="suppressions=$root/tests/lsan-suppressions.txt:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
# The end-to-end tests fork a child that loads the plug-in (and starts its threads) from a test
# process that already runs threads: allowed here, ThreadSanitizer refuses it by default.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:die_after_fork=0"
(cd "$build" && ctest --output-on-failure -j "$(nproc)" --timeout 600 -LE slow ${CTEST_ARGS:-})
