# The tool: its progress bar; driven as a script would, at a terminal (tmux), and its Debian packages. The
# scripts need the file server, a host tool (not cross built); an instrumented build's packages do not ship.
add_executable(tool_tests tool/progress_bar_test.cpp ${PROJECT_SOURCE_DIR}/tools/http-util/progress_bar.cpp)
target_include_directories(tool_tests PRIVATE ${PROJECT_SOURCE_DIR}/tools/http-util)
target_link_libraries(tool_tests PRIVATE GTest::gtest_main)
gtest_discover_tests(tool_tests DISCOVERY_TIMEOUT 30 PROPERTIES LABELS tool)
foreach(script cli_test terminal_test debian_packages)
    if(TARGET http-file-server AND NOT CMAKE_CROSSCOMPILING AND NOT (HTTP_UTIL_SANITIZE AND script MATCHES debian))
        add_test(NAME tool.${script} COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/tool/${script}.sh $<TARGET_FILE:http-util>
            $<TARGET_FILE:http-file-server> ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/README.md)
        set_tests_properties(tool.${script} PROPERTIES LABELS tool TIMEOUT 240)
    endif()
endforeach()
