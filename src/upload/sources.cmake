list(APPEND HTTP_UTIL_SOURCES
    src/upload/post.cpp
    src/upload/tmpname.cpp
    src/upload/upload.cpp)
