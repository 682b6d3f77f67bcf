list(APPEND HTTP_UTIL_UNIT_TESTS net/net_test.cpp)
