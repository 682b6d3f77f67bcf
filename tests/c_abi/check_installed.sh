#!/usr/bin/env bash
# Installs the build into a scratch prefix and uses it as a user would. The
# installed tool runs with no environment set. Host programs build against
# it: a C99 program and every C block of the README, each through pkg-config
# with the run path the README gives, and through find_package(http_util);
# those that name no server run.
# Arguments: the build tree, the C99 program, the README.
# A cross or sanitizer build sets, in the environment:
#   CHECK_CC         the C compiler (default gcc)
#   CHECK_CFLAGS     extra compile and link flags (sanitizers)
#   CHECK_TOOLCHAIN  the CMake toolchain file of the build
#   CHECK_RUN        the command that runs target programs (the emulator)
set -euo pipefail
build=$1
program=$2
readme=$3
cc=${CHECK_CC:-gcc}
cflags=${CHECK_CFLAGS:-}
toolchain=${CHECK_TOOLCHAIN:-}
read -r -a run <<<"${CHECK_RUN:-}"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(ls -d "$work"/prefix/lib*/ | head -n 1)
libdir=${libdir%/}
export PKG_CONFIG_PATH="$libdir/pkgconfig"

out=$(env -i "${run[@]}" "$work/prefix/bin/http-util" strerror 18)
[ "$out" = "Server response: Not Found" ] || { echo "installed tool: $out" >&2; exit 1; }

src=$work/consumer
mkdir -p "$src" "$work/bin"
cp "$program" "$src/abi_test.c"
awk -v dir="$src" '/^```c$/ { f = sprintf("%s/readme_%d.c", dir, ++n); next }
                   /^```/   { f = "" }
                   f        { print > f }' "$readme"
blocks=$(find "$src" -name 'readme_*.c' | wc -l)
[ "$blocks" -gt 0 ] || { echo "no C block in $readme" >&2; exit 1; }

ran=0
for c in "$src"/*.c; do
    name=$(basename "$c" .c)
    # shellcheck disable=SC2046,SC2086  # word splitting wanted
    "$cc" -std=c99 -Wall -Wextra -Werror $cflags -o "$work/bin/$name" "$c" \
        $(pkg-config --cflags --libs http_util) -lhttp_util_host -Wl,-rpath,"$libdir"
    if ! grep -q 'http://' "$c"; then
        "${run[@]}" "$work/bin/$name" > /dev/null
        ran=$((ran + 1))
    fi
done

cat > "$src/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(http_util 1 REQUIRED)
file(GLOB programs ${CMAKE_SOURCE_DIR}/*.c)
foreach(c ${programs})
    get_filename_component(name ${c} NAME_WE)
    add_executable(${name} ${c})
    target_link_libraries(${name} PRIVATE http_util::http_util http_util::http_util_host)
endforeach()
CMAKE
target=(-DCMAKE_C_COMPILER="$cc")
if [ -n "$toolchain" ]; then
    # A cross build finds packages under the target's roots only.
    target=(-DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_FIND_ROOT_PATH="$work/prefix")
fi
cmake -S "$src" -B "$src/build" -DCMAKE_PREFIX_PATH="$work/prefix" \
    "${target[@]}" -DCMAKE_C_FLAGS="-std=c99 -Wall -Wextra -Werror $cflags" \
    -DCMAKE_EXE_LINKER_FLAGS="$cflags" >/dev/null
cmake --build "$src/build" >/dev/null
for c in "$src"/*.c; do
    grep -q 'http://' "$c" || "${run[@]}" "$src/build/$(basename "$c" .c)" > /dev/null
done
echo "installed copy: the tool runs with no environment; abi_test.c and $blocks README C" \
     "blocks built by pkg-config and by find_package; $ran of these $((blocks + 1)) programs" \
     "need no server and ran both ways ${run:+(run by ${run[*]})}"
