# The end-to-end peers: nginx and Python's multipart parser (loopback_peer.h).
set(TEST_PEER_SOURCES support/loopback_peer.cpp)
set_source_files_properties(support/loopback_peer.cpp PROPERTIES COMPILE_DEFINITIONS
    HTTP_UTIL_SINK="${CMAKE_CURRENT_SOURCE_DIR}/support/multipart_sink.py")
