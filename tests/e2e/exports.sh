#!/bin/sh
# The host finds the plug-in by its two entry points; anything else the library exports could clash
# with the host's own symbols. Fails when libkestrelvorn.so exports more, or lacks one of them.
set -eu
lib="$1"
symbols=$(nm -D --defined-only "$lib" | awk 'NF >= 3 { print $3 }' | sort)
expected=$(printf '%s\n' VORN_handle_call VORN_init)
if [ "$symbols" != "$expected" ]; then
    echo "exported symbols of $lib:" >&2
    echo "$symbols" >&2
    echo "expected exactly: VORN_init VORN_handle_call" >&2
    exit 1
fi
echo "exports: VORN_init VORN_handle_call only"
