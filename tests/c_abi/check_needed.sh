#!/usr/bin/env bash
# A shared object depends on the C library alone: no C++ runtime, no
# libgcc_s, nothing a small host program would have to load besides libc.
# Usage: check_needed.sh LIB [READELF [EXTRA_NEEDED]]
# EXTRA_NEEDED, a regular expression, names further dependencies that this
# build may have (the sanitizer runtimes of a sanitizer build).
set -euo pipefail
lib=$1
readelf=${2:-readelf}
extra_needed=${3:-}

needed=$("$readelf" -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
allowed=""
if [ -n "$extra_needed" ]; then
    allowed=$(grep -E "$extra_needed" <<<"$needed" || true)
    needed=$(grep -vE "$extra_needed" <<<"$needed" || true)
fi
if [ "$needed" != "libc.so.6" ]; then
    echo "$(basename "$lib"): NEEDED should be libc.so.6 alone, is:"
    echo "$needed"
    exit 1
fi
echo "$(basename "$lib"): NEEDED libc.so.6"
if [ -n "$allowed" ]; then
    echo "RELAXED for this build: NEEDED also lists" $allowed
fi
