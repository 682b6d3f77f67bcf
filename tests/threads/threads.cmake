# Transfers on many threads at once, linked as a host program links the
# library (the shared library and the host emulation, no fakes): a binary
# and a label of their own, run by the ThreadSanitizer preset too.
add_executable(thread_tests threads/threads_test.cpp)
target_link_libraries(thread_tests PRIVATE http_util http_util_host test_peers GTest::gtest_main)
gtest_discover_tests(thread_tests DISCOVERY_TIMEOUT 30 PROPERTIES LABELS threads TIMEOUT 120)
