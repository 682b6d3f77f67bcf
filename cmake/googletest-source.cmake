# GoogleTest and GoogleMock compiled for the target from Debian's source
# package, for cross builds (the host build uses the installed libraries).
# Gives the same target names as find_package(GTest).
set(HTTP_UTIL_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH
    "GoogleTest sources compiled for cross builds")
if(NOT EXISTS ${HTTP_UTIL_GOOGLETEST_SOURCE}/CMakeLists.txt)
    message(FATAL_ERROR "no GoogleTest sources in ${HTTP_UTIL_GOOGLETEST_SOURCE}: "
        "install Debian's googletest package (scripts/test-arm does)")
endif()
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(${HTTP_UTIL_GOOGLETEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
foreach(lib gtest gtest_main gmock gmock_main)
    if(NOT TARGET GTest::${lib})  # recent releases define them already
        add_library(GTest::${lib} ALIAS ${lib})
    endif()
endforeach()
