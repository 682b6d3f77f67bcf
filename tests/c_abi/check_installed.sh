#!/usr/bin/env bash
# Installs the build into a scratch prefix and builds host programs against
# it as a user would: a C99 program through pkg-config, and a CMake project
# through find_package(http_util).
set -euo pipefail
build=$1
program=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(ls -d "$work"/prefix/lib*/ | head -n 1)
export PKG_CONFIG_PATH="$libdir/pkgconfig"
export LD_LIBRARY_PATH="$libdir"

gcc -std=c99 -Wall -Wextra -Werror -o "$work/c_prog" "$program" \
    $(pkg-config --cflags --libs http_util) -lhttp_util_host
"$work/c_prog"

mkdir -p "$work/consumer"
cp "$program" "$work/consumer/main.c"
cat > "$work/consumer/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(http_util 1 REQUIRED)
add_executable(consumer main.c)
target_link_libraries(consumer PRIVATE http_util::http_util http_util::http_util_host)
CMAKE
cmake -S "$work/consumer" -B "$work/consumer/build" -DCMAKE_PREFIX_PATH="$work/prefix" \
    -DCMAKE_C_FLAGS="-std=c99 -Wall -Werror" >/dev/null
cmake --build "$work/consumer/build" >/dev/null
"$work/consumer/build/consumer"
echo "installed library: C99 via pkg-config and CMake via find_package both work"
