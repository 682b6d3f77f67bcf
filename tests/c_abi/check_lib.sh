#!/usr/bin/env bash
# Usage: check_lib.sh LIB READELF EXTRA_NEEDED [MAP NM]
# The library needs the C library alone (EXTRA_NEEDED, a regular expression, allows the
# sanitizer runtimes of such a build); given its version script, it exports exactly the
# names listed there (so none mangled), under SONAME libhttp_util.so.1.
set -euo pipefail
lib=$1 readelf=$2 extra=$3 map=${4:-} nm=${5:-nm} status=0
fail() { echo "$(basename "$lib"): $*"; status=1; }
needed=$("$readelf" -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
if [ -n "$extra" ]; then
    echo "RELAXED for this build: NEEDED may also list" $(grep -E "$extra" <<<"$needed" || true)
    needed=$(grep -vE "$extra" <<<"$needed" || true)
fi
[ "$needed" = libc.so.6 ] || fail "NEEDED should be libc.so.6 alone, is:" $needed
if [ -n "$map" ]; then
    want=$(sed -n '/global:/,/local:/p' "$map" | grep -oE '^\s*[A-Za-z_]\w*;' | tr -d ' ;' | sort)
    got=$("$nm" -D --defined-only "$lib" | awk '{print $3}' | sed 's/@.*//' | sort)
    [ "$want" = "$got" ] || fail "exported names differ from $map:" $(diff <(echo "$want") <(echo "$got") | grep '^[<>]')
    soname=$("$readelf" -d "$lib" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
    [ "$soname" = libhttp_util.so.1 ] || fail "SONAME is '$soname'"
    [ $status -ne 0 ] || echo "$(wc -l <<<"$got") exported names, SONAME $soname"
fi
exit $status
