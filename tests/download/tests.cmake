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
