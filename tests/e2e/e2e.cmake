# The library end to end, linked as a host program links it: one source,
# three programs with a label each (the ThreadSanitizer preset builds threads).
add_library(e2e_objects OBJECT e2e/e2e_test.cpp)
target_link_libraries(e2e_objects PRIVATE http_util http_util_host test_peers GTest::gtest)
function(add_e2e_tests target label filter)
    add_executable(${target} $<TARGET_OBJECTS:e2e_objects>)
    target_link_libraries(${target} PRIVATE http_util http_util_host test_peers GTest::gtest_main)
    gtest_discover_tests(${target} DISCOVERY_TIMEOUT 30 TEST_FILTER ${filter}
        PROPERTIES LABELS ${label} TIMEOUT 120)
endfunction()
add_e2e_tests(transfer_e2e_tests e2e "-Soak.*:Threads.*")
add_e2e_tests(soak_tests soak "Soak.*")
add_e2e_tests(thread_tests threads "Threads.*")
