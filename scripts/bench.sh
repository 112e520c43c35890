#!/usr/bin/env bash
# Builds the benchmarks (Release) and runs every one; each starts its own Redis and loads the
# built plug-in like the host. Extra arguments go to each benchmark program, for example
#   scripts/bench.sh --benchmark_filter=FrameData
# docs/performance.md records what was measured.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build-bench}

scripts/install-deps.sh
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=ON -DVORN_BENCH=ON >/dev/null
cmake --build "$build" -j "$(nproc)" --target kestrelvorn $(cd bench && ls *.cpp | sed 's/^/bench_/; s/\.cpp$//')
for program in "$build"/bench/bench_*; do
  echo "== $(basename "$program")"
  "$program" "$@"
done
