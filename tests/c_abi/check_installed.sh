#!/usr/bin/env bash
# Usage: check_installed.sh BUILD ABI_TEST README
# The build installed into a scratch prefix and used as a user would: the installed tool runs with no
# environment; ABI_TEST and every C block of the README build against it through pkg-config (with the README's
# run path) and find_package(http_util), and those that need no server run. A cross or sanitizer build
# sets CHECK_CC, CHECK_CFLAGS, CHECK_TOOLCHAIN and CHECK_RUN (the emulator).
set -euo pipefail
cc=${CHECK_CC:-gcc} cflags=${CHECK_CFLAGS:-} work=$(mktemp -d)
read -r -a run <<< "${CHECK_RUN:-}"
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work/prefix" > /dev/null
libdir=$(ls -d "$work"/prefix/lib*/ | head -n 1)
out=$(env -i "${run[@]}" "$work/prefix/bin/http-util" strerror 18)
[ "$out" = "Server response: Not Found" ] || { echo "installed tool: $out" >&2; exit 1; }
mkdir -p "$work/src/bin" && cp "$2" "$work/src/"
awk -v dir="$work/src" '/^```c$/ { f = sprintf("%s/readme_%d.c", dir, ++n); next } /^```/ { f = "" } f { print > f }' "$3"
ls "$work"/src/readme_*.c > /dev/null
for c in "$work"/src/*.c; do
    # shellcheck disable=SC2046,SC2086  # word splitting wanted
    "$cc" -std=c99 -Wall -Wextra -Werror $cflags -o "$work/src/bin/$(basename "$c" .c)" "$c" \
        $(PKG_CONFIG_PATH=${libdir}pkgconfig pkg-config --cflags --libs http_util) -lhttp_util_host -Wl,-rpath,"$libdir"
done
printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(consumer C)' 'find_package(http_util 1 REQUIRED)' \
    'file(GLOB programs ${CMAKE_SOURCE_DIR}/*.c)' 'foreach(c ${programs})' '    get_filename_component(name ${c} NAME_WE)' \
    '    add_executable(${name} ${c})' \
    '    target_link_libraries(${name} PRIVATE http_util::http_util http_util::http_util_host)' 'endforeach()' \
    > "$work/src/CMakeLists.txt"
target=(-DCMAKE_C_COMPILER="$cc")  # a cross build finds packages under the target's roots only
[ -z "${CHECK_TOOLCHAIN:-}" ] || target=(-DCMAKE_TOOLCHAIN_FILE="$CHECK_TOOLCHAIN" -DCMAKE_FIND_ROOT_PATH="$work/prefix")
cmake -S "$work/src" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" "${target[@]}" \
    -DCMAKE_C_FLAGS="-std=c99 -Wall -Wextra -Werror $cflags" -DCMAKE_EXE_LINKER_FLAGS="$cflags" > /dev/null
cmake --build "$work/build" > /dev/null
for c in "$work"/src/abi_test.c $(grep -L 'http://' "$work"/src/readme_*.c); do
    "${run[@]}" "$work/src/bin/$(basename "$c" .c)" > /dev/null
    "${run[@]}" "$work/build/$(basename "$c" .c)" > /dev/null
done
echo "installed copy: the tool ran; abi_test.c and the README's C blocks built by pkg-config and find_package, and ran"
