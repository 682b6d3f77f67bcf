list(APPEND HTTP_UTIL_UNIT_TESTS download/wire_test.cpp download/entry_test.cpp)
