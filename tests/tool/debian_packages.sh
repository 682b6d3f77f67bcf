#!/usr/bin/env bash
# The build's Debian packages as a user meets them: their dependencies and, unpacked, the tool run
# with no environment set on the unpacked library, its man page listing every result code, and a
# README example built on the development files. Arguments: tool, file server, build tree, README.
. "$(dirname "$0")/lib.sh"
cpack --config "$3/CPackConfig.cmake" -B pkg > cpack.out || { cat cpack.out; exit 1; }
for deb in pkg/*.deb; do dpkg-deb -x "$deb" root; done
depends() { dpkg-deb -f pkg/"$1"_*.deb Depends; }
v=$(dpkg-deb -f pkg/libhttp-util1_*.deb Version) tool=$PWD/root/usr/bin/http-util lib=$PWD/root/usr/lib
check "the library needs the C library alone" grep -qxE 'libc6 \(>= [0-9.]+\)' <(depends libhttp-util1)
check "dev needs the library of its version" [ "$(depends libhttp-util-dev)" = "libhttp-util1 (= $v)" ]
check "the tool needs the library and the C++ runtime" grep -qE "^libhttp-util1 \(= $v\), .*libstdc\+\+6" <(depends http-util)
check "the tool loads the unpacked library" grep -qF "($lib/libhttp_util.so.1.0.0)" <(env -i "$tool" --version)
check "its man page renders" [ -z "$(man --warnings -l root/usr/share/man/man1/http-util.1.gz 2>&1 > /dev/null)" ]
MANWIDTH=120 man -l root/usr/share/man/man1/http-util.1.gz > man.txt 2> /dev/null
for code in $(seq 0 29); do check "man page: $code" grep -qxE " +$code +$(env -i "$tool" strerror $code)" man.txt; done
awk '/^```c$/ { f = sprintf("readme_%d.c", ++n); next } /^```/ { f = "" } f { print > f }' "$4"
# shellcheck disable=SC2046  # word splitting wanted
cc -std=c99 -o example "$(grep -L 'http://' readme_*.c | head -n 1)" \
    $(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config --cflags --libs http_util) -lhttp_util_host -Wl,-rpath,"$lib"
check "the README example built on the unpacked files runs" ./example
finish
