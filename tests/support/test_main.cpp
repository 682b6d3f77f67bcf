// Test main shared by the suites: every test starts with fresh fakes and
// the library's options as they were when the process started.
#include <gtest/gtest.h>

#include "fake_device.h"
#include "http_util.h"

namespace {

class ResetListener : public testing::EmptyTestEventListener {
public:
    ResetListener()
        : opt_(g_http_opt),
          level_(g_http_util_zlog_level),
          category_(g_http_util_zlog_category) {}

    void OnTestStart(const testing::TestInfo &) override {
        fake::reset();
        g_http_opt = opt_;
        g_http_util_zlog_level = level_;
        g_http_util_zlog_category = category_;
    }

private:
    http_opt opt_;
    uint32_t level_;
    void *category_;
};

}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
#ifdef HTTP_UTIL_TESTS_EMULATED
    // Under user-mode emulation the child cannot exec the test binary again
    // (the host kernel does not run the target's code), so it only forks.
    testing::GTEST_FLAG(death_test_style) = "fast";
#else
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
#endif
    testing::UnitTest::GetInstance()->listeners().Append(new ResetListener);
    return RUN_ALL_TESTS();
}
