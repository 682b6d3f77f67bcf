# Uploads against the Python multipart sink.
add_executable(upload_e2e_tests upload/upload_sink_test.cpp)
target_link_libraries(upload_e2e_tests PRIVATE test_support)
gtest_discover_tests(upload_e2e_tests DISCOVERY_TIMEOUT 30 PROPERTIES LABELS e2e TIMEOUT 120)
