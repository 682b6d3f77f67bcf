# Real peers for end-to-end tests, each a child process on a loopback port.
list(APPEND TEST_SUPPORT_SOURCES
    support/child_process.cpp
    support/temp_dir.cpp
    support/loopback_peer.cpp
    support/nginx_peer.cpp)
