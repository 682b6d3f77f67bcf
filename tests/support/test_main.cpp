// Test main shared by the suites: every test starts with fresh fakes, no
// injected faults, the library's options as they were when the process
// started, and the fake log category in place (as if http_util_init had
// run), so that log records are seen whichever test of the process first ran
// an entry point.
#include <gtest/gtest.h>

#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"

namespace {

class ResetListener : public testing::EmptyTestEventListener {
public:
    ResetListener() : opt_(fake::startup().opt), level_(fake::startup().level) {}

    void OnTestStart(const testing::TestInfo &) override {
        fake::reset();
        interpose::reset();
        g_http_opt = opt_;
        g_http_util_zlog_level = level_;
        g_http_util_zlog_category = fake::device().zlog_init_result;
    }

private:
    http_opt opt_;
    uint32_t level_;
};

}  // namespace

namespace fake {
// Read during static initialisation, before any test code runs.
const Startup startup_state = {g_http_opt, g_http_util_zlog_level, g_http_util_zlog_category};
const Startup &startup() { return startup_state; }
}  // namespace fake

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
