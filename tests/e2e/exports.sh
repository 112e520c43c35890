#!/bin/sh
# The host finds the plug-in by its two entry points; anything else the library exports could clash
# with the host's own symbols. Fails when libkestrelvorn.so exports more, or lacks one of them.
set -eu
symbols=$(nm -D --defined-only "$1" | awk 'NF >= 3 { print $3 }' | sort | tr '\n' ' ')
[ "$symbols" = "VORN_handle_call VORN_init " ] ||
    { echo "$1 exports: $symbols; expected exactly VORN_init VORN_handle_call" >&2; exit 1; }
echo "exports: VORN_init VORN_handle_call only"
