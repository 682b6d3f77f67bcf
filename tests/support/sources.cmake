# Real peers for end-to-end tests, each a child process on a loopback port.
list(APPEND TEST_SUPPORT_SOURCES
    support/child_process.cpp
    support/temp_dir.cpp
    support/loopback_peer.cpp
    support/nginx_peer.cpp
    support/multipart_sink.cpp)

set_source_files_properties(support/multipart_sink.cpp PROPERTIES
    COMPILE_DEFINITIONS HTTP_UTIL_PEERS_DIR="${CMAKE_CURRENT_SOURCE_DIR}/peers")
