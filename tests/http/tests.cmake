list(APPEND HTTP_UTIL_UNIT_TESTS http/http_test.cpp)
