# Real peers for end-to-end tests: nginx, the Python upload sink and the
# project's own file server, each a child process on a loopback port.
set(TEST_PEER_SOURCES
    support/child_process.cpp
    support/cutting_proxy.cpp
    support/file_util.cpp
    support/loopback_peer.cpp
    support/nginx_peer.cpp
    support/multipart_sink.cpp
    support/file_server_peer.cpp)

set_source_files_properties(support/multipart_sink.cpp PROPERTIES
    COMPILE_DEFINITIONS HTTP_UTIL_PEERS_DIR="${CMAKE_CURRENT_SOURCE_DIR}/peers")
if(TARGET http-file-server)
    set_source_files_properties(support/file_server_peer.cpp PROPERTIES
        COMPILE_DEFINITIONS HTTP_FILE_SERVER_PATH="$<TARGET_FILE:http-file-server>")
endif()
