list(APPEND HTTP_UTIL_UNIT_TESTS
    http/body_test.cpp
    http/chunked_test.cpp
    http/field_values_test.cpp
    http/head_parser_test.cpp
    http/head_reader_test.cpp
    http/wire.cpp)
