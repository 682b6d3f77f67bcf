# The device's architecture: 32-bit ARM Linux, hard-float ABI, built with
# Debian's arm-linux-gnueabihf cross toolchain. Programs built here run on
# this machine under qemu-arm user emulation (ctest does so by itself).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(HTTP_UTIL_CROSS_TRIPLE arm-linux-gnueabihf)
set(HTTP_UTIL_CROSS_SYSROOT /usr/${HTTP_UTIL_CROSS_TRIPLE})

set(CMAKE_C_COMPILER ${HTTP_UTIL_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${HTTP_UTIL_CROSS_TRIPLE}-g++)

# Headers, libraries and CMake packages come from the target's trees only
# (a project may add its staging trees to the list); programs (cmake, sh,
# qemu) from the build machine.
list(APPEND CMAKE_FIND_ROOT_PATH ${HTTP_UTIL_CROSS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# ctest, gtest_discover_tests and the contract tests run target programs
# through this; -L points the emulated loader at the target's C library.
find_program(HTTP_UTIL_QEMU_ARM qemu-arm)
if(HTTP_UTIL_QEMU_ARM)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${HTTP_UTIL_QEMU_ARM} -L ${HTTP_UTIL_CROSS_SYSROOT})
else()
    message(WARNING "qemu-arm not found (Debian package qemu-user): "
        "the test programs cannot be listed or run on this machine")
endif()
