#!/usr/bin/env bash
# The test command: installs what is missing, configures, builds and runs every test through CTest.
#   BUILD_DIR   build folder (default: build)
#   CI=true     warnings are errors, and a skipped test fails the run
#   CTEST_ARGS  extra arguments for ctest, e.g. "-L test_logger" (also for the camera build's run)
#   VORN_SANITIZE=0  skips the sanitizer runs (scripts/sanitize.sh) for quick local runs; CI runs them
#   VORN_ARMHF=0  skips the camera build (scripts/test-armhf.sh) for quick local runs; CI runs it
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

scripts/install-deps.sh

build=${BUILD_DIR:-build}
werror=OFF
if [ "${CI:-}" = "true" ]; then werror=ON; fi

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=ON -DVORN_WERROR=$werror \
  ${CMAKE_ARGS:-}
cmake --build "$build" -j "$(nproc)"

log="$build/ctest.log"
set +e
(cd "$build" && ctest --output-on-failure -j "$(nproc)" --timeout 600 ${CTEST_ARGS:-}) 2>&1 | tee "$log"
status=${PIPESTATUS[0]}
set -e

scripts/ctest-verdict.sh test.sh "$status" "$log"
echo "test.sh: all tests passed ($root/$build)"

# The same suite under AddressSanitizer with UndefinedBehaviorSanitizer (leaks included), then under
# ThreadSanitizer: undefined behaviour that a normal run survives fails the run here.
if [ "${VORN_SANITIZE:-1}" != "0" ]; then
  scripts/sanitize.sh address,undefined
  scripts/sanitize.sh thread
fi

# The same suite built for the camera (ARMv7 hard-float) and run under qemu-arm.
if [ "${VORN_ARMHF:-1}" != "0" ]; then
  scripts/test-armhf.sh
fi
