#!/usr/bin/env bash
# Builds the benchmarks (Release) and runs every one; each starts its own Redis and loads the built
# plug-in like the host. Every figure is a ratio against a baseline measured in the same program:
# repetitions run in random order and the medians are compared. The table at the end says which
# targets hold. docs/performance.md records the figures and how to read them.
#   scripts/bench.sh                      all benchmarks, 9 repetitions each
#   scripts/bench.sh --soak               also the million-request soak (about 20 minutes)
#   BENCH_REPETITIONS=3 scripts/bench.sh --benchmark_filter=Format
# Other arguments go to every benchmark program.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build-bench}
soak=false
args=()
for arg in "$@"; do
  if [[ $arg == --soak ]]; then soak=true; else args+=("$arg"); fi
done

scripts/install-deps.sh
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=ON -DVORN_BENCH=ON >/dev/null
cmake --build "$build" -j "$(nproc)" --target kestrelvorn $(cd bench && ls *.cpp | sed 's/^/bench_/; s/\.cpp$//')

results=$build/bench-results
rm -rf "$results" && mkdir -p "$results"
for source in bench/*.cpp; do
  name=bench_$(basename "$source" .cpp)
  program=$build/bench/$name
  [[ $name == bench_soak ]] && continue
  echo "== $name"
  "$program" --benchmark_repetitions="${BENCH_REPETITIONS:-9}" --benchmark_enable_random_interleaving=true \
    --benchmark_report_aggregates_only=true --benchmark_out="$results/$name.json" \
    --benchmark_out_format=json ${args[@]+"${args[@]}"}
done
echo
# A filter that matches nothing in a program leaves its result file empty.
python3 scripts/bench-report.py $(find "$results" -name '*.json' -size +0)
if $soak; then
  echo "== bench_soak"
  "$build/bench/bench_soak"
fi
