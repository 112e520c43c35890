#!/bin/bash
# Installs the build into a temporary root, as a package would, and checks that the installed
# plug-in loads and finds its installed schema; then builds the Debian package and checks that it
# carries the library, the schema, the tools with their manual pages and completions, and the bus
# policy.
#   install.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
root=$(mktemp -d /tmp/kv-install-XXXXXX)
redis_pids=()
cleanup() {
  for pid in "${redis_pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$root"
}
trap cleanup EXIT
fail() { echo "install test: $*" >&2; exit 1; }

DESTDIR="$root/dest" cmake --install "$build" --prefix /usr >"$root/install.log"
dest="$root/dest"
lib=$(find "$dest/usr/lib" -name 'libkestrelvorn.so.*' -type f | head -1)
[ -n "$lib" ] || fail "no libkestrelvorn.so installed under /usr/lib"
schema="$dest/opt/orv/usr/share/vorn/schema"
[ -f "$schema/vorn-format.json" ] || fail "schema not installed in the camera's schema folder"
tools=(vorn-host kslog camsim roipaint)
for tool in "${tools[@]}"; do
  [ -x "$dest/usr/bin/$tool" ] || fail "$tool not installed"
  zcat "$dest/usr/share/man/man1/$tool.1.gz" | grep -q "^\.TH ${tool^^} " || fail "no manual page of $tool"
done
# The installed completion offers a tool's subcommands and its options, as bash asks for them.
complete_words() { # complete_words TOOL WORD...: what the tool's completion offers for the last word
  bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); "_kv_${1//-/_}"; echo "${COMPREPLY[*]}"' \
    complete "$dest/usr/share/bash-completion/completions/$1" "$@"
}
[ "$(complete_words vorn-host que)" = query ] || fail "vorn-host's completion does not offer query"
[ "$(complete_words vorn-host query 1 z4_amplitude_png --r)" = --raw ] || fail "no --raw for query"
[ "$(complete_words camsim --ro)" = --rois ] || fail "camsim's completion does not offer --rois"
[ -f "$dest/usr/share/dbus-1/system.d/com.orv.lrae.conf" ] || fail "bus policy not installed"

# The installed plug-in, loaded by the installed host stub, validates descriptions against the
# installed schema (nothing here may come from the build or source tree but the descriptions).
for sock in cache perm; do
  redis-server --port 0 --unixsocket "$root/$sock.sock" --save "" --appendonly no --logfile "" \
    --loglevel warning >/dev/null &
  redis_pids+=($!)
done
for sock in cache perm; do
  for _ in $(seq 200); do redis-cli -s "$root/$sock.sock" ping >/dev/null 2>&1 && break; sleep 0.05; done
done
export ORV_REDIS_CACHE_SOCKET="$root/cache.sock" ORV_REDIS_SOCKET="$root/perm.sock"
export ORV_VORN_SCHEMA_DIR="$schema" DBUS_SYSTEM_BUS_ADDRESS="unix:path=$root/no-bus"
export VORN_PLUGIN="$lib"
"$dest/usr/bin/vorn-host" validate "$source/docs/examples/format-demo.json" >"$root/out" 2>&1 \
  && grep -q '^valid: *true' "$root/out" || fail "the installed plug-in rejects a valid description"
if "$dest/usr/bin/vorn-host" validate "$source/tests/data/formats/invalid/base-17.json" >"$root/out" 2>&1; then
  fail "the installed plug-in accepts a description with base 17"
fi
grep -q '^valid: *false' "$root/out" || fail "no verdict for an invalid description: $(cat "$root/out")"
echo "installed plug-in loads and validates against the installed schema"

# The Debian package.
(cd "$root" && cpack -G DEB --config "$build/CPackConfig.cmake" -B "$root/pkg" >"$root/cpack.log") \
  || { cat "$root/cpack.log" >&2; fail "cpack failed"; }
deb=$(find "$root/pkg" -maxdepth 1 -name '*.deb' | head -1)
[ -n "$deb" ] || fail "cpack made no .deb"
contents=$(dpkg-deb -c "$deb")
paths=('usr/lib/(.*/)?libkestrelvorn\.so' 'opt/orv/usr/share/vorn/schema/vorn-format\.json'
  'usr/share/dbus-1/system.d/com\.orv\.lrae\.conf')
for tool in "${tools[@]}"; do
  paths+=("usr/bin/$tool" "usr/share/man/man1/$tool\.1\.gz" "usr/share/bash-completion/completions/$tool")
done
for path in "${paths[@]}"; do
  # A here-string, not a pipe: grep -q stops reading at the first match, and under pipefail the
  # writer's broken pipe would fail the check on a long listing.
  grep -qE "\./$path" <<<"$contents" || fail "the package lacks $path"
done
echo "package $(basename "$deb") carries the library, schema, tools, manual pages, completions and bus policy"
