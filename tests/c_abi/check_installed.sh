#!/usr/bin/env bash
# Installs the build into a scratch prefix and builds host programs against
# it as a user would: a C99 program through pkg-config, and a CMake project
# through find_package(http_util).
# A cross or sanitizer build sets, in the environment:
#   CHECK_CC         the C compiler (default gcc)
#   CHECK_CFLAGS     extra compile and link flags (sanitizers)
#   CHECK_TOOLCHAIN  the CMake toolchain file of the build
#   CHECK_RUN        the command that runs target programs (the emulator)
set -euo pipefail
build=$1
program=$2
cc=${CHECK_CC:-gcc}
cflags=${CHECK_CFLAGS:-}
toolchain=${CHECK_TOOLCHAIN:-}
read -r -a run <<<"${CHECK_RUN:-}"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(ls -d "$work"/prefix/lib*/ | head -n 1)
export PKG_CONFIG_PATH="$libdir/pkgconfig"
export LD_LIBRARY_PATH="$libdir"

# shellcheck disable=SC2046,SC2086  # word splitting wanted
"$cc" -std=c99 -Wall -Wextra -Werror $cflags -o "$work/c_prog" "$program" \
    $(pkg-config --cflags --libs http_util) -lhttp_util_host
"${run[@]}" "$work/c_prog"

mkdir -p "$work/consumer"
cp "$program" "$work/consumer/main.c"
cat > "$work/consumer/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(http_util 1 REQUIRED)
add_executable(consumer main.c)
target_link_libraries(consumer PRIVATE http_util::http_util http_util::http_util_host)
CMAKE
target=(-DCMAKE_C_COMPILER="$cc")
if [ -n "$toolchain" ]; then
    # A cross build finds packages under the target's roots only.
    target=(-DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_FIND_ROOT_PATH="$work/prefix")
fi
cmake -S "$work/consumer" -B "$work/consumer/build" -DCMAKE_PREFIX_PATH="$work/prefix" \
    "${target[@]}" -DCMAKE_C_FLAGS="-std=c99 -Wall -Werror $cflags" \
    -DCMAKE_EXE_LINKER_FLAGS="$cflags" >/dev/null
cmake --build "$work/consumer/build" >/dev/null
"${run[@]}" "$work/consumer/build/consumer"
echo "installed library: C99 via pkg-config and CMake via find_package both work${run:+ (run by ${run[*]})}"
