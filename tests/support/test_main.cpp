// Test main shared by the suites: every test starts with fresh fakes, no
// injected faults, and the library's options as they were when the process
// started.
#include <gtest/gtest.h>

#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"

namespace {

class ResetListener : public testing::EmptyTestEventListener {
public:
    ResetListener()
        : opt_(g_http_opt),
          level_(g_http_util_zlog_level),
          category_(g_http_util_zlog_category) {}

    void OnTestStart(const testing::TestInfo &) override {
        fake::reset();
        interpose::reset();
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
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    testing::UnitTest::GetInstance()->listeners().Append(new ResetListener);
    return RUN_ALL_TESTS();
}
