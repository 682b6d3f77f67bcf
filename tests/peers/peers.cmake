# The peers proven with curl as the client. A binary of its own: these tests
# start processes and take seconds, and they drive no library code, so the
# recording fakes linked through test_support stay untouched.
add_executable(peer_tests
    peers/curl_client.cpp
    peers/file_server_test.cpp
    peers/multipart_sink_test.cpp
    peers/nginx_peer_test.cpp
    peers/peer_lifecycle_test.cpp)
target_include_directories(peer_tests PRIVATE peers)
target_link_libraries(peer_tests PRIVATE test_support)
if(TARGET http-file-server)
    add_dependencies(peer_tests http-file-server)
endif()
gtest_discover_tests(peer_tests DISCOVERY_TIMEOUT 30 PROPERTIES LABELS e2e TIMEOUT 60)
