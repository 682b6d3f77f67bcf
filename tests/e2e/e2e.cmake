# The library end to end against real peers, linked as a host program links
# it (the shared library and the host emulation, no fakes). A label each:
# e2e; soak (cuts at random through a proxy); threads (also under TSan).
function(add_e2e_tests target label source)
    add_executable(${target} e2e/${source})
    target_link_libraries(${target} PRIVATE http_util http_util_host test_peers
        GTest::gtest_main)
    gtest_discover_tests(${target} DISCOVERY_TIMEOUT 30 PROPERTIES LABELS ${label} TIMEOUT 120)
endfunction()
add_e2e_tests(transfer_e2e_tests e2e transfer_test.cpp)
add_e2e_tests(soak_tests soak soak_test.cpp)
add_e2e_tests(thread_tests threads threads_test.cpp)
