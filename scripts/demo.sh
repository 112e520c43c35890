#!/usr/bin/env bash
# A camera session on the simulated camera: installs what is missing, builds, starts Redis, a private
# system bus and the simulated camera, then walks a client through the plug-in's commands with
# vorn-host and shows the log that all of this wrote. Everything it makes goes under one output
# directory, printed at the start; nothing is left running.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

scripts/install-deps.sh >/dev/null

build=${BUILD_DIR:-build-demo}
out=${DEMO_OUT:-$root/demo-out}
rm -rf "$out"
mkdir -p "$out"
run=$(mktemp -d /tmp/kv-demo-XXXXXX)

step() { printf '\n\033[1m== %s\033[0m\n' "$*"; }

pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$run"
}
trap cleanup EXIT

step "Building (into $build)"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >"$out/configure.log"
cmake --build "$build" -j "$(nproc)" >"$out/build.log" || { tail -30 "$out/build.log"; exit 1; }
host="$build/tools/vorn-host/vorn-host"

step "Starting Redis: the cache socket (results, log) and the permanent-configuration socket"
export ORV_REDIS_CACHE_SOCKET="$run/redis-cache.sock" ORV_REDIS_SOCKET="$run/redis.sock"
for sock in "$ORV_REDIS_CACHE_SOCKET" "$ORV_REDIS_SOCKET"; do
  redis-server --port 0 --unixsocket "$sock" --save "" --appendonly no --logfile "" --loglevel warning &
  pids+=($!)
done
for sock in "$ORV_REDIS_CACHE_SOCKET" "$ORV_REDIS_SOCKET"; do
  for _ in $(seq 100); do redis-cli -s "$sock" ping >/dev/null 2>&1 && break; sleep 0.05; done
done
echo "cache: $ORV_REDIS_CACHE_SOCKET"
echo "permanent: $ORV_REDIS_SOCKET"

step "Enabling every log category for all sources (stored in LOG:PERM:CFG, read when the plug-in loads)"
redis-cli -s "$ORV_REDIS_SOCKET" HSET LOG:PERM:CFG all $'{\n"source" : "all"\n,"mask" : 255\n}\n' >/dev/null
redis-cli -s "$ORV_REDIS_SOCKET" HGET LOG:PERM:CFG all

step "Loading the plug-in and sending request id 3, which no command serves"
"$host" raw 3 || true

step "The log entries this wrote (redis-cli LRANGE LOG:ENTRIES 0 -1)"
redis-cli -s "$ORV_REDIS_CACHE_SOCKET" LRANGE LOG:ENTRIES 0 -1 | tee "$out/log.txt"

step "Done; outputs are in $out"
