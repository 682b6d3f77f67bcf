list(APPEND HTTP_UTIL_UNIT_TESTS
    support/scripted_server_test.cpp)
