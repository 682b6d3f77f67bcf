# The command-line tool: its progress bar, the tool itself driven as a
# script would (cli_test) and as a person at a terminal would (terminal_test,
# under tmux), and its Debian packages (package_test).
if(TARGET http-util)
    add_executable(tool_tests tool/progress_bar_test.cpp
        ${PROJECT_SOURCE_DIR}/tools/http-util/progress_bar.cpp)
    target_include_directories(tool_tests PRIVATE ${PROJECT_SOURCE_DIR}/tools/http-util)
    target_link_libraries(tool_tests PRIVATE GTest::gtest_main)
    gtest_discover_tests(tool_tests DISCOVERY_TIMEOUT 30 PROPERTIES LABELS tool)
    # The scripts run the tool directly and need the file server, a host
    # tool: not in a cross build, whose programs only run under the emulator.
    if(TARGET http-file-server AND NOT CMAKE_CROSSCOMPILING)
        foreach(script cli_test terminal_test)
            add_test(NAME tool.${script}
                COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/tool/${script}.sh $<TARGET_FILE:http-util>
                        $<TARGET_FILE:http-file-server>)
            set_tests_properties(tool.${script} PROPERTIES LABELS tool TIMEOUT 120)
        endforeach()
        # Packages of an instrumented build are not what ships.
        if(NOT HTTP_UTIL_SANITIZE)
            add_test(NAME tool.debian_packages
                COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/tool/package_test.sh
                        $<TARGET_FILE:http-util> $<TARGET_FILE:http-file-server>
                        ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/README.md)
            set_tests_properties(tool.debian_packages PROPERTIES LABELS tool TIMEOUT 240)
        endif()
    endif()
endif()
