list(APPEND HTTP_UTIL_SOURCES
    src/http/body.cpp
    src/http/chunked.cpp
    src/http/connection.cpp
    src/http/field_values.cpp
    src/http/head_parser.cpp
    src/http/head_reader.cpp
    src/http/http_date.cpp)
