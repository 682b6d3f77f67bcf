# Debian's clang 14 for the host: the compiler of the fuzz targets, whose
# libFuzzer runtime comes with libclang-rt-14-dev.
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)
