list(APPEND HTTP_UTIL_UNIT_TESTS
    upload/post_test.cpp
    upload/upload_test.cpp)
