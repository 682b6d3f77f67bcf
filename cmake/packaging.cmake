# Debian packages of a build tree: `cpack -G DEB` in it (after the build)
# writes one package per install component:
#   libhttp-util1     the library (named after its SONAME, libhttp_util.so.1)
#   libhttp-util-dev  header, CMake package and pkg-config file
#   http-util         the command-line tool, its man page and the host
#                     emulation library (with its header and link files)
# The ARM preset makes the same three for armhf.
set(CPACK_PACKAGE_NAME http-util)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "HTTP file transfer for the programs of an embedded device")
set(CPACK_PACKAGE_CONTACT "libhttp_util maintainers <libhttp-util@localhost>")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tool)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libhttp-util1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "HTTP file transfer library (C ABI)\n"
    "Downloads with retries, resume, redirects and the server's time stamp, "
    "multipart uploads, and copies that never leave a half-written file.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libhttp-util-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "HTTP file transfer library: development files\n"
    "The C header, the CMake package (find_package(http_util)) and the pkg-config file.")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libhttp-util1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME http-util)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION net)
set(CPACK_COMPONENT_TOOL_DESCRIPTION
    "HTTP file transfer from the command line\n"
    "http-util gets, puts and copies files with libhttp_util, on the library's "
    "device services emulated for an ordinary Linux host (libhttp_util_host).")
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libhttp-util1 (= ${PROJECT_VERSION})")

if(CMAKE_CROSSCOMPILING)
    # dpkg-shlibdeps reads the build machine's packages only: the
    # dependencies on the target's runtimes come from the binaries' symbol
    # versions instead (cmake/deb-depends.cmake, run before each package).
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    set(CPACK_HTTP_UTIL_OBJDUMP ${CMAKE_OBJDUMP})
    string(REGEX MATCH "^[0-9]+" CPACK_HTTP_UTIL_CXX_MAJOR ${CMAKE_CXX_COMPILER_VERSION})
    set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/deb-depends.cmake)
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    # The tool's libraries come from the packages above, not from the system.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}
        ${PROJECT_BINARY_DIR}/platform/host)
endif()
include(CPack)
