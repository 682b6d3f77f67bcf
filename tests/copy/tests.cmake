list(APPEND HTTP_UTIL_UNIT_TESTS
    copy/alloc_sweep_test.cpp
    copy/copy_test.cpp
    copy/copy_wire_test.cpp)
target_sources(transfer_e2e_tests PRIVATE copy/copy_e2e_test.cpp)
