# Transfers through a proxy that cuts connections at random: a binary and a
# label of their own (ctest -L soak runs just them; ./scripts/test runs them
# with the rest).
add_executable(soak_tests soak/soak_test.cpp)
target_link_libraries(soak_tests PRIVATE test_support)
gtest_discover_tests(soak_tests DISCOVERY_TIMEOUT 30 PROPERTIES LABELS soak TIMEOUT 150)
