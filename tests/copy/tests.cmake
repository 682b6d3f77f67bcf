list(APPEND HTTP_UTIL_UNIT_TESTS copy/copy_test.cpp)
