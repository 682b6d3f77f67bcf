list(APPEND HTTP_UTIL_UNIT_TESTS
    copy/alloc_sweep_test.cpp
    copy/copy_test.cpp
    copy/copy_wire_test.cpp)
