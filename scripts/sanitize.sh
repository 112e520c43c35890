#!/usr/bin/env bash
# Builds the library, tools and tests with sanitizers and runs the suite (without the slow label).
# Any report fails the run: a sanitizer ends the program that made it, and the tests also fail on a
# report from a child they started (the plug-in's child, the simulated camera, the tools).
#   scripts/sanitize.sh [address,undefined|thread]   (default: address,undefined)
#   BUILD_DIR   the plain build's folder; this one is BUILD_DIR-san-SANITIZERS (default build-san-...)
#   CI=true     warnings are errors, and a skipped test fails the run
# Deliberate process-lifetime allocations are listed in tests/lsan-suppressions.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
sanitizers=${1:-address,undefined}
build=${BUILD_DIR:-build}-san-${sanitizers//,/-}
werror=OFF
if [ "${CI:-}" = "true" ]; then werror=ON; fi

scripts/install-deps.sh
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DBUILD_TESTING=ON -DVORN_SANITIZE="$sanitizers" \
  -DVORN_WERROR=$werror
cmake --build "$build" -j "$(nproc)"

export LSAN_OPTIONS="suppressions=$root/tests/lsan-suppressions.txt:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
# Tests start programs and the plug-in's child from a process whose loggers already run their
# configuration thread: allowed here, ThreadSanitizer refuses forking with threads by default.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:die_after_fork=0:suppressions=$root/tests/tsan-suppressions.txt"
# The browser test is left to the native run: under a sanitizer the server is too slow for a camera
# publishing in real time, and its server's code runs here in the workbench's own tests (test_e2e).
log="$build/ctest.log"
set +e
(cd "$build" && ctest --output-on-failure -j "$(nproc)" --timeout 600 -LE 'slow|test_web' ${CTEST_ARGS:-}) 2>&1 |
  tee "$log"
status=${PIPESTATUS[0]}
set -e
scripts/ctest-verdict.sh "sanitize.sh ($sanitizers)" "$status" "$log"
echo "sanitize.sh: no report under $sanitizers ($root/$build)"
