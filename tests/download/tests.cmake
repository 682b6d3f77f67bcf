list(APPEND HTTP_UTIL_UNIT_TESTS
    download/driver_slow_test.cpp
    download/driver_test.cpp
    download/driver_wire_test.cpp
    download/entry_points_wire_test.cpp
    download/get_test.cpp
    download/get_wire_test.cpp
    download/post_wire_test.cpp
    download/reply_table_test.cpp
    download/touch_test.cpp)

# Transfers against real peers (nginx, the multipart sink): processes that
# take seconds, so a binary of their own with the label e2e. The fakes stand
# in for the device, with every optional service present.
add_executable(transfer_e2e_tests download/download_e2e_test.cpp support/fake_optional.cpp)
target_link_libraries(transfer_e2e_tests PRIVATE test_support)
target_compile_definitions(transfer_e2e_tests PRIVATE FAKE_OPTIONAL_SERVICES=1)
gtest_discover_tests(transfer_e2e_tests DISCOVERY_TIMEOUT 30 PROPERTIES LABELS e2e TIMEOUT 120)
