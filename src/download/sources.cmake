list(APPEND HTTP_UTIL_SOURCES
    src/download/driver.cpp
    src/download/entry_points.cpp
    src/download/get.cpp
    src/download/touch.cpp)
