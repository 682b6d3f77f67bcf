list(APPEND HTTP_UTIL_SOURCES
    src/frame/handle.cpp
    src/frame/options.cpp
    src/frame/progress.cpp
    src/frame/random.cpp
    src/frame/result.cpp)
