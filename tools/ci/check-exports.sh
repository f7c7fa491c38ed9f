#!/usr/bin/env bash
# libzoltools.so must export the ZOL API and nothing of its internals or of the host platform
# layer. Usage: check-exports.sh path/to/libzoltools.so
set -euo pipefail
lib="$1"
symbols=$(nm -D --defined-only "$lib" | awk '{print $3}' | c++filt)
forbidden=$(printf '%s\n' "$symbols" | grep -E \
    '^(zol::|android::|BufferAllocator|property_get|native_handle|zoltest)|DevicePath|sp_report' || true)
if [ -n "$forbidden" ]; then
    echo "check-exports: internal symbols exported from $lib:" >&2
    printf '%s\n' "$forbidden" >&2
    exit 1
fi
count=$(printf '%s\n' "$symbols" | grep -c . || true)
echo "check-exports: $count exported symbols, none internal"
