list(APPEND HTTP_UTIL_UNIT_TESTS
    frame/handle_test.cpp
    frame/log_test.cpp
    frame/options_test.cpp
    frame/platform_test.cpp
    frame/progress_test.cpp
    frame/result_test.cpp)
