#!/usr/bin/env bash
# The Debian packages of the build as a user meets them: made by cpack,
# checked for their dependencies, unpacked with dpkg-deb into a scratch
# root; the tool runs from there with no environment set, its man page
# renders and lists every result code, and a README example builds against
# the unpacked development files. Arguments: tool, file server, build tree,
# README.
. "$(dirname "$0")/lib.sh"
build=$3
readme=$4
cpack --config "$build/CPackConfig.cmake" -B "$work/pkg" > "$work/cpack.out" ||
    { cat "$work/cpack.out"; exit 1; }
root=$work/root
for deb in "$work"/pkg/*.deb; do dpkg-deb -x "$deb" "$root"; done
depends() { dpkg-deb -f "$work"/pkg/"$1"_*.deb Depends; }
v=$(dpkg-deb -f "$work"/pkg/libhttp-util1_*.deb Version)
check "the library needs the C library only (got: $(depends libhttp-util1))" \
    grep -qxE 'libc6 \(>= [0-9.]+\)' <(depends libhttp-util1)
check "dev needs the library of its version" [ "$(depends libhttp-util-dev)" = "libhttp-util1 (= $v)" ]
check "the tool needs the library and the C++ runtime" \
    grep -qE "^libhttp-util1 \(= $v\), .*libstdc\+\+6" <(depends http-util)

tool=$root/usr/bin/http-util
check "strerror from the unpacked tool" [ "$(env -i "$tool" strerror 18)" = "Server response: Not Found" ]
check "it loads the unpacked library" \
    grep -qF "($root/usr/lib/libhttp_util.so.1.0.0)" <(env -i "$tool" --version)
page=$root/usr/share/man/man1/http-util.1.gz
check "its man page renders" [ -z "$(man --warnings -l "$page" 2>&1 >/dev/null)" ]
MANWIDTH=120 man -l "$page" > "$work/man.txt" 2>/dev/null
for code in $(seq 0 29); do
    check "man page: status $code" grep -qxE " +$code +$(env -i "$tool" strerror "$code")" "$work/man.txt"
done
start_server
head -c 100000 /dev/urandom > "$work/www/a.bin"
env -i "$tool" get "$url/a.bin" "$work/a.bin"
check "download by the unpacked tool" cmp -s "$work/www/a.bin" "$work/a.bin"

# The README's first example that needs no server, built as the README says.
awk -v dir="$work" '/^```c$/ { f = sprintf("%s/readme_%d.c", dir, ++n); next }
                    /^```/   { f = "" }
                    f        { print > f }' "$readme"
example=$(grep -L 'http://' "$work"/readme_*.c | head -n 1)
lib=$root/usr/lib
# shellcheck disable=SC2046  # word splitting wanted
PKG_CONFIG_PATH=$lib/pkgconfig cc -std=c99 -o "$work/example" "$example" \
    $(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config --cflags --libs http_util) -lhttp_util_host \
    -Wl,-rpath,"$lib"
check "README example built on the unpacked files runs" "$work/example"
ls -l "$work"/pkg/*.deb | awk '{print $5, $9}' | sed "s#$work/pkg/##"
finish
