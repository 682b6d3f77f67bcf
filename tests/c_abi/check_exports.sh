#!/usr/bin/env bash
# The shared library exports exactly the names of its version script, none
# of them mangled, and depends on the C library alone.
# Usage: check_exports.sh LIB MAP [NM [READELF [EXTRA_NEEDED]]]
# NM and READELF default to the build machine's; a cross build passes its
# own. EXTRA_NEEDED, a regular expression, names further dependencies that
# this build may have (the sanitizer runtimes of a sanitizer build).
set -euo pipefail
lib=$1
map=$2
nm=${3:-nm}
readelf=${4:-readelf}
extra_needed=${5:-}

expected=$(sed -n '/global:/,/local:/p' "$map" | grep -oE '^[[:space:]]*[A-Za-z_][A-Za-z0-9_]*;' |
           tr -d ' ;' | sort)
actual=$("$nm" -D --defined-only "$lib" | awk '{print $3}' | sed 's/@.*//' | sort)

status=0
if [ "$expected" != "$actual" ]; then
    echo "exported names differ from $map:"
    diff <(echo "$expected") <(echo "$actual") || true
    status=1
fi
if grep -q '^_Z' <<<"$actual"; then
    echo "mangled C++ names are exported"
    status=1
fi
if ! "$(dirname "$0")/check_needed.sh" "$lib" "$readelf" "$extra_needed"; then
    status=1
fi
soname=$("$readelf" -d "$lib" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
if [ "$soname" != "libhttp_util.so.1" ]; then
    echo "SONAME is '$soname', not libhttp_util.so.1"
    status=1
fi
if [ $status -eq 0 ]; then
    echo "$(wc -l <<<"$actual") exported names, SONAME $soname"
fi
exit $status
