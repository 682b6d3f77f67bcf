list(APPEND HTTP_UTIL_UNIT_TESTS upload/upload_test.cpp)
