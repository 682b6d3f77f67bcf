list(APPEND HTTP_UTIL_UNIT_TESTS frame/frame_test.cpp)
