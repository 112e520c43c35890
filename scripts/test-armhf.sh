#!/usr/bin/env bash
# The camera build's test command: makes (or reuses) the armhf sysroot, cross-builds the plug-in,
# the tools and the tests for ARMv7 hard-float, checks that the plug-in is a hard-float ARM library,
# and runs the tests under qemu-arm against native Redis and D-Bus daemons.
#   ARMHF_BUILD_DIR  build folder (default: build-armhf)
#   CI=true          warnings are errors, and a skipped test fails the run
#   CTEST_ARGS       extra arguments for ctest, e.g. "-L test_logger"
#   ARMHF_CMAKE_ARGS extra arguments for the configure step
# Tests labelled "native-only" need what exists only on the build machine (tests/CMakeLists.txt) and
# run in the native suite only.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

step() { echo "test-armhf: $*"; }
clock=$SECONDS
lap() {
  local now=$SECONDS
  step "$1 took $((now - clock)) s"
  clock=$now
}

# Redis, the bus daemon and the other native programs the fixtures start.
scripts/install-deps.sh
lap "native packages"
sysroot=$(scripts/armhf-sysroot.sh)
lap "sysroot"

build=${ARMHF_BUILD_DIR:-build-armhf}
werror=OFF
if [ "${CI:-}" = "true" ]; then werror=ON; fi
jobs=$(nproc)

cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-armhf.cmake" \
  -DARMHF_SYSROOT="$sysroot" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=ON -DVORN_WERROR=$werror \
  ${ARMHF_CMAKE_ARGS:-}
cmake --build "$build" -j "$jobs"
lap "cross build"

# The host daemon on the camera loads exactly this kind of object.
plugin=$(find "$build/src" -maxdepth 1 -name 'libkestrelvorn.so.*.*' -type f | head -n1)
description=$(file -b "$plugin")
flags=$(readelf -h "$plugin" | sed -n 's/^ *Flags: *//p')
step "$(basename "$plugin"): $description; $flags"
case "$description" in
  "ELF 32-bit LSB shared object, ARM, EABI5"*) ;;
  *) echo "test-armhf: $plugin is not a 32-bit ARM EABI5 shared object" >&2; exit 1 ;;
esac
case "$flags" in
  *"hard-float ABI"*) ;;
  *) echo "test-armhf: $plugin is not built for the hard-float ABI" >&2; exit 1 ;;
esac

# The tests run in a PID namespace of their own: under qemu-arm, Qt's QProcess can take a child
# that was never started for pid -1, and its kill would then reach every process of the machine.
isolate=()
if unshare --pid --fork --mount-proc true 2>/dev/null; then
  isolate=(unshare --pid --fork --mount-proc)
else
  step "warning: no PID namespace for the tests (unshare failed); running them unisolated"
fi

log="$build/ctest.log"
set +e
(cd "$build" && "${isolate[@]}" ctest --output-on-failure -j "$jobs" --timeout 600 -LE native-only ${CTEST_ARGS:-}) 2>&1 |
  tee "$log"
status=${PIPESTATUS[0]}
set -e
lap "tests under qemu-arm"

scripts/ctest-verdict.sh "test-armhf.sh (under qemu-arm)" "$status" "$log"
echo "test-armhf.sh: all tests passed under qemu-arm ($(cd "$build" && pwd))"
