list(APPEND HTTP_UTIL_UNIT_TESTS
    download/driver_test.cpp
    download/get_test.cpp
    download/touch_test.cpp)
