#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer, AddressSanitizer, UndefinedBehaviorSanitizer) and
# runs each on its committed seeds for a while.
#   scripts/fuzz.sh [TARGET|all] [SECONDS]     all targets, 60 s each, by default
#   FUZZ_BUILD_DIR   build folder (default build-fuzz)
#   FUZZ_RUNS        stop a target after this many executions as well (default: no limit)
#   FUZZ_NO_BUILD=1  use the fuzz programs already built (for several runs side by side)
# Inputs that reach new code are kept in FUZZ_BUILD_DIR/corpus/TARGET, so the committed seeds stay
# small. A crash, leak or hang is written to fuzz/regressions/TARGET/ and fails the run: once it is
# fixed, the normal test suite replays it for ever (docs/reliability.md).
set -euo pipefail
cd "$(dirname "$0")/.."
targets=(format_description result_model dbus_reply eeprom_record log_config frame_file vorn_requests)
which=${1:-all}
seconds=${2:-60}
build=${FUZZ_BUILD_DIR:-build-fuzz}
if [ "$which" != all ] && [[ ! " ${targets[*]} " =~ " $which " ]]; then
  echo "fuzz.sh: no target '$which'; targets: ${targets[*]}" >&2
  exit 2
fi
[ "$which" = all ] || targets=("$which")

if [ "${FUZZ_NO_BUILD:-0}" != 1 ]; then
  scripts/install-deps.sh clang libfuzzer-14-dev libclang-rt-14-dev
  CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_FUZZ=ON \
    -DBUILD_TESTING=OFF >/dev/null
  echo "fuzz.sh: building ${targets[*]}"
  cmake --build "$build" -j "$(nproc)" --target "${targets[@]/#/fuzz_}"
fi

failed=()
for target in "${targets[@]}"; do
  corpus=$build/corpus/$target
  mkdir -p "$corpus" "fuzz/regressions/$target"
  cp -n fuzz/corpus/"$target"/* "$corpus"/
  log=$build/fuzz-$target.log
  echo "fuzz.sh: $target for ${seconds} s (log: $log)"
  set +e
  "$build/fuzz/fuzz_$target" "$corpus" -max_total_time="$seconds" ${FUZZ_RUNS:+-runs=$FUZZ_RUNS} -timeout=10 \
    -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="fuzz/regressions/$target/" >"$log" 2>&1
  status=$?
  set -e
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  coverage=$(grep -oE 'cov: [0-9]+ ft: [0-9]+' "$log" | tail -1)
  echo "fuzz.sh: $target: ${runs:-?} executions, ${coverage:-no coverage figures}, corpus $(ls "$corpus" | wc -l) inputs"
  if [ "$status" -ne 0 ]; then
    failed+=("$target")
    grep -E '^(==[0-9]+==ERROR|SUMMARY|artifact_prefix|Test unit written)' "$log" | head -5 >&2 || true
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz.sh: found faults in: ${failed[*]} (inputs in fuzz/regressions/)" >&2
  exit 1
fi
echo "fuzz.sh: no faults found"
