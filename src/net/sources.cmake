list(APPEND HTTP_UTIL_SOURCES
    src/net/io.cpp
    src/net/request_writer.cpp
    src/net/socket.cpp
    src/net/tlv.cpp
    src/net/url.cpp
    src/net/url_resolve.cpp)
