list(APPEND HTTP_UTIL_UNIT_TESTS
    net/fast_path_trace_test.cpp
    net/io_test.cpp
    net/request_writer_test.cpp
    net/socket_test.cpp
    net/tlv_test.cpp
    net/url_test.cpp)
