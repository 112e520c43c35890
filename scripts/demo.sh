#!/usr/bin/env bash
# A camera session on the simulated camera, told step by step: installs what is missing, builds,
# starts Redis, a private system bus and the simulated camera, then walks a client through the
# plug-in's commands with vorn-host (as the host daemon would call them) and shows the log that all
# of this wrote. Everything it saves goes under one output directory, named at the start; nothing
# is left running or behind when it ends.
#
#   scripts/demo.sh serve [PORT]   instead starts the camera publishing five results a second and the
#                                  workbench page on 127.0.0.1:PORT (default 8080), until Ctrl-C
#   DEMO_OUT   output directory (default: demo-out in the repository)
#   BUILD_DIR  build directory (default: build-demo)
set -euo pipefail
mode=${1:-session}
case "$mode" in
  session | serve) ;;
  *) echo "usage: scripts/demo.sh [serve [PORT]]" >&2; exit 2 ;;
esac
port=${2:-8080}
cd "$(dirname "$0")/.."
root=$(pwd)

scripts/install-deps.sh >/dev/null

build=${BUILD_DIR:-build-demo}
out=${DEMO_OUT:-$root/demo-out}
case "$out" in /*) ;; *) out="$root/$out" ;; esac
rm -rf "$out"
mkdir -p "$out"
run=$(mktemp -d /tmp/kv-demo-XXXXXX)

bold=""; plain=""
if [ -t 1 ]; then bold=$'\033[1m'; plain=$'\033[0m'; fi
n=0
step() { n=$((n + 1)); printf '\n%s%2d. %s%s\n' "$bold" "$n" "$*" "$plain"; }

pids=()
cleanup() {
  local pid
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$run"
}
trap cleanup EXIT

wait_for() { # wait_for DESCRIPTION COMMAND...: poll for up to 10 s
  local what=$1; shift
  for _ in $(seq 200); do "$@" >/dev/null 2>&1 && return 0; sleep 0.05; done
  echo "demo: $what did not come up" >&2
  exit 1
}

echo "libkestrelvorn demo; outputs go to $out"

step "Build the plug-in, vorn-host, the simulated camera, kslog and roipaint (into $build)"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >"$out/configure.log"
cmake --build "$build" -j "$(nproc)" --target kestrelvorn vorn-host camsim kslog roipaint >"$out/build.log" \
  || { tail -30 "$out/build.log"; exit 1; }
vorn_host="$build/tools/vorn-host/vorn-host"
kslog="$build/tools/kslog/kslog"
camsim="$build/tools/camsim/camsim"
roipaint="$build/tools/roipaint/roipaint"
echo "built $(ls "$build"/src/libkestrelvorn.so*| head -1)"

step "Start Redis: the cache socket (results, log) and the permanent-configuration socket"
export ORV_REDIS_CACHE_SOCKET="$run/redis-cache.sock" ORV_REDIS_SOCKET="$run/redis.sock"
export ORV_FRAME_DIR="$run/frames" ORV_IMAGER_RUN_DIR="$run/imager" ORV_VORN_SCHEMA_DIR="$root/schema"
for sock in "$ORV_REDIS_CACHE_SOCKET" "$ORV_REDIS_SOCKET"; do
  redis-server --port 0 --unixsocket "$sock" --save "" --appendonly no --loglevel warning \
    --logfile "$out/redis-$(basename "$sock" .sock).log" &
  pids+=($!)
done
wait_for "Redis" redis-cli -s "$ORV_REDIS_CACHE_SOCKET" ping
wait_for "Redis" redis-cli -s "$ORV_REDIS_SOCKET" ping
echo "cache $ORV_REDIS_CACHE_SOCKET, permanent $ORV_REDIS_SOCKET"

step "Start a private system bus"
cat >"$run/bus.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$run/bus.sock</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow send_requested_reply="false"/>
    <allow receive_requested_reply="false"/>
  </policy>
</busconfig>
CONF
dbus-daemon --config-file="$run/bus.conf" --nofork --nopidfile --nosyslog 2>"$out/dbus-daemon.log" &
pids+=($!)
export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$run/bus.sock"
wait_for "the bus" test -S "$run/bus.sock"
echo "$DBUS_SYSTEM_BUS_ADDRESS"

step "Enable every log category for all sources (stored in LOG:PERM:CFG, read when the plug-in loads)"
"$kslog" config --source all --enable DEBUG,DIAG,TRACE,INFO,WARN,ERROR,FATAL,EMERG --save >/dev/null
redis-cli -s "$ORV_REDIS_SOCKET" HGET LOG:PERM:CFG all

rate=()
if [ "$mode" = serve ]; then rate=(--rate 5); fi
step "Start the simulated camera: imager, parameter and I/O services on the bus, results on trigger${rate:+ and 5 a second}"
"$camsim" --apps 4 "${rate[@]}" >"$run/camsim.out" 2>"$out/camsim.log" &
pids+=($!)
wait_for "the simulated camera" grep -q ready "$run/camsim.out"
echo "camsim is serving com.orv.imager, com.orv.quillon and com.orv.iom"

# The camera's identification EEPROM, served to the plug-in through umockdev: a connector board
# with three I/O ports (board code A31). Its last byte is the CRC-8 (polynomial 0x97, start value
# 0xFF) of the rest.
python3 - "$run/eeprom.umockdev" <<'PY'
import sys
record = bytearray(b" " * 128)
record[0:9] = b"#!03-AA31"
crc = 0xFF
for byte in record[:127]:
    crc ^= byte
    for _ in range(8):
        crc = ((crc << 1) ^ 0x97) & 0xFF if crc & 0x80 else (crc << 1) & 0xFF
record[127] = crc
with open(sys.argv[1], "w") as f:
    f.write("P: /devices/platform/i2c-2/2-0050\nE: SUBSYSTEM=i2c\nE: DRIVER=at24\n"
            "L: driver=../../../bus/i2c/drivers/at24\nH: eeprom=%s\nA: name=24c02\n" % record.hex())
PY
host() { umockdev-run -d "$run/eeprom.umockdev" -- "$vorn_host" "$@"; }

if [ "$mode" = serve ]; then
  step "The workbench: the camera live, its answer byte by byte, the log and the device (Ctrl-C ends)"
  echo "open the URL below in a browser on this machine; docs/workbench.md says what the page shows"
  host serve --listen "127.0.0.1:$port" || true
  exit 0
fi

step "Device identity: vendor, article, name, MAC address (request 20)"
for key in vendor article_number name location mac_address ipv4_address port_number; do
  printf '  %-16s %s\n' "$key" "$(host device-info "$key" | sed -n 's/^value: *//p')"
done

step "Applications: the list and the active one (request 14)"
host apps

step "Switch to application 2 (request 17) and list again"
host set-app 2
host apps | grep -E '^(active|status)'

step "Trigger an image (request 9); the camera publishes a result"
host trigger

step "Acquire that result (4), fetch three images and the JSON model by key (2), free it (5)"
cat >"$run/session.txt" <<SESSION
acquire
query {id} distance_image --out $out/distance_image.chunk
query {id} amplitude_image --out $out/amplitude_image.chunk
query {id} normalized_amplitude_image --out $out/normalized_amplitude_image.chunk
query {id} json_model --out $out/json_model.json
query {id} z4_amplitude_png --out $out/amplitude_with_rois.png
free {id}
SESSION
# A file named .png or .json gets the picture or text alone, without the 48-byte chunk header.
host session <"$run/session.txt" | tee "$out/session.txt" | cut -c1-150
echo "saved $out/amplitude_with_rois.png ($(file -b "$out/amplitude_with_rois.png" | cut -d, -f1-2))"
echo "saved $out/json_model.json ($(wc -c <"$out/json_model.json") bytes)"

step "Each ROI of the model in the colour of its state, labelled with its id (roipaint)"
"$roipaint" --background "$out/amplitude_with_rois.png" --scale 3 "$out/json_model.json" "$out/rois_by_state.png"
"$roipaint" --help | sed -n '/^colours:/,/^$/p'
echo "saved $out/rois_by_state.png"

step "Check two output-format descriptions in docs/examples (request 27)"
for description in format-demo.json format-demo-binary.json; do
  printf '  %-26s %s\n' "$description" "$(host validate "docs/examples/$description" | sed -n 's/^valid: *//p')"
done

step "Format a new result (request 26): in ASCII, then in binary for a little- and a big-endian bus"
host trigger >/dev/null
cat >"$run/format.txt" <<SESSION
acquire
format {id} docs/examples/format-demo.json --out $out/formatted-ascii.bin
format {id} docs/examples/format-demo-binary.json --out $out/formatted-binary-little.bin
format {id} docs/examples/format-demo-binary.json --big-endian --out $out/formatted-binary-big.bin
free {id}
SESSION
# The formatter notes its choices on the debug output (standard error); keep them in a file.
host session <"$run/format.txt" >"$out/format-session.txt" 2>"$out/format-debug.txt"
echo "ASCII: $(head -c 60 "$out/formatted-ascii.bin" | tr -c '[:print:]' '.')... ($(wc -c <"$out/formatted-ascii.bin") bytes with the image)"
for order in little big; do
  echo "binary, $order-endian bus ($out/formatted-binary-$order.bin):"
  od -A x -t x1 -v "$out/formatted-binary-$order.bin" | sed 's/^/  /'
done

step "Which element wrote which bytes of the binary output (format --explain), and its PLC type"
id=$(sed -n 's/.*\bid=\([0-9]*\).*/\1/p' "$out/format-session.txt" | head -1)
host format "$id" docs/examples/format-demo-binary.json --explain | tee "$out/formatted-binary-map.txt"
host plc-types docs/examples/format-demo-binary.json --records models=4 | tee "$out/format-demo-binary.st"

step "I/O: read I/O 1 (request 12), set I/O 2 to 1 (request 11), read it back"
host get-io 1 || true
host set-io 2 1 || true
host get-io 2 || true

step "Statistics: results so far, as an integer and as a double (request 22)"
host stats number_of_results 1
host stats number_of_results 4

step "The log that all of this wrote (kslog)"
"$kslog" count
"$kslog" list --from -25 | tee "$out/log.txt"

step "Shut down"
for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
pids=()
left=$(find "$run" -name '*.sock' -o -name 'frame*' 2>/dev/null | wc -l)
echo "camsim, the bus and Redis stopped; $left sockets or frames left in $run"
echo
echo "Outputs in $out:"
ls -1 "$out"
