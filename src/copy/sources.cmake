list(APPEND HTTP_UTIL_SOURCES
    src/copy/copy.cpp)
