#!/usr/bin/env bash
# Usage: check_lib.sh LIB READELF EXTRA_NEEDED [MAP NM HEADER]
# The library needs the C library alone (EXTRA_NEEDED, a regular expression, allows the sanitizer
# runtimes of such a build) and, given its version script, exports exactly its names (so none
# mangled), each declared in the public header, under SONAME libhttp_util.so.1.
set -euo pipefail
lib=$1 status=0
fail() { echo "$(basename "$lib"): $*"; status=1; }
needed=$("$2" -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
[ -z "$3" ] || echo "RELAXED for this build: NEEDED may also list" $(grep -E "$3" <<< "$needed" || true)
[ "$(grep -vE "${3:-^$}" <<< "$needed" || true)" = libc.so.6 ] || fail "NEEDED should be libc.so.6 alone, is:" $needed
if [ -n "${4:-}" ]; then
    want=$(sed -n '/global:/,/local:/p' "$4" | grep -oE '^\s*[A-Za-z_]\w*;' | tr -d ' ;' | sort)
    got=$("$5" -D --defined-only "$lib" | awk '{print $3}' | sed 's/@.*//' | sort)
    [ "$want" = "$got" ] || fail "exported names differ from $4:" $(diff <(echo "$want") <(echo "$got") | grep '^[<>]')
    missing=$(for name in $want; do grep -qw "$name" "$6" || echo "$name"; done)
    [ -z "$missing" ] || fail "exported but not declared in $6:" $missing
    soname=$("$2" -d "$lib" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
    [ "$soname" = libhttp_util.so.1 ] || fail "SONAME is '$soname'"
    [ $status -ne 0 ] || echo "$(wc -l <<< "$got") exported names, SONAME $soname"
fi
exit $status
