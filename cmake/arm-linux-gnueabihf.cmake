# The device's architecture: 32-bit ARM Linux, hard-float ABI, built with
# Debian's arm-linux-gnueabihf cross toolchain. Programs built here run on
# this machine under qemu-arm user emulation (ctest does so by itself).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(HTTP_UTIL_CROSS_TRIPLE arm-linux-gnueabihf)
set(HTTP_UTIL_CROSS_SYSROOT /usr/${HTTP_UTIL_CROSS_TRIPLE})

set(CMAKE_C_COMPILER ${HTTP_UTIL_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${HTTP_UTIL_CROSS_TRIPLE}-g++)

# Large-file interfaces: without them a 32-bit readdir() or stat() fails
# with EOVERFLOW on a 64-bit host's file systems (64-bit directory cookies
# and inode numbers, sizes past 2 GiB), which is where the tests run under
# qemu. No public record holds an off_t or ino_t, so the ABI is unchanged;
# time_t stays 32-bit, as on the device.
# -Wno-psabi: only notes that GCC 7.1 changed how some C++ arguments pass,
# nothing that this code base could ever mix.
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -Wno-psabi")

# Headers and libraries come from the target's trees only (a project may add
# its staging trees to the list); programs (cmake, sh, qemu) from the build
# machine.
list(APPEND CMAKE_FIND_ROOT_PATH ${HTTP_UTIL_CROSS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# CMake packages also from the build machine's prefixes: Debian keeps the
# architecture-specific ones under lib/<triple>/, which a search for this
# target never visits, so only the architecture-independent ones (header-only
# libraries in share/cmake/, such as CLI11) are found there.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
# pkg-config reads only the target's .pc files: a library installed for the
# build machine alone is then absent, not linked by mistake.
set(ENV{PKG_CONFIG_LIBDIR}
    "/usr/lib/${HTTP_UTIL_CROSS_TRIPLE}/pkgconfig:${HTTP_UTIL_CROSS_SYSROOT}/lib/pkgconfig")

# ctest, gtest_discover_tests and the contract tests run target programs
# through this; -L points the emulated loader at the target's C library.
find_program(HTTP_UTIL_QEMU_ARM qemu-arm)
if(HTTP_UTIL_QEMU_ARM)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${HTTP_UTIL_QEMU_ARM} -L ${HTTP_UTIL_CROSS_SYSROOT})
else()
    message(WARNING "qemu-arm not found (Debian package qemu-user): "
        "the test programs cannot be listed or run on this machine")
endif()
