# CPack pre-build script of a cross build. dpkg-shlibdeps knows only the
# build machine's packages, so each package's dependency on the C library
# comes from the highest GLIBC_ symbol version its binaries use, the tool's
# on libgcc from its GCC_ versions, and on the C++ runtime from the compiler
# that built it.
function(highest_version component prefix out)
    file(GLOB_RECURSE files LIST_DIRECTORIES false "${CPACK_TEMPORARY_DIRECTORY}/${component}/*")
    set(best 0)
    foreach(f IN LISTS files)
        if(IS_SYMLINK "${f}")
            continue()
        endif()
        execute_process(COMMAND ${CPACK_HTTP_UTIL_OBJDUMP} -T "${f}"
            OUTPUT_VARIABLE symbols ERROR_QUIET RESULT_VARIABLE rc)
        if(NOT rc EQUAL 0)
            continue()  # not an ELF file
        endif()
        string(REGEX MATCHALL "${prefix}_[0-9.]+" versions "${symbols}")
        foreach(v IN LISTS versions)
            string(REPLACE "${prefix}_" "" v "${v}")
            if(v VERSION_GREATER best)
                set(best ${v})
            endif()
        endforeach()
    endforeach()
    set(${out} ${best} PARENT_SCOPE)
endfunction()

highest_version(runtime GLIBC libc)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= ${libc})")
highest_version(tool GLIBC libc)
highest_version(tool GCC gcc)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libhttp-util1 (= ${CPACK_PACKAGE_VERSION}), \
libc6 (>= ${libc}), libgcc-s1 (>= ${gcc}), libstdc++6 (>= ${CPACK_HTTP_UTIL_CXX_MAJOR})")
