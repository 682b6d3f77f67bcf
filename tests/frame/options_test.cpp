// Options, the debug switch and the once-only log set-up.
#include <gtest/gtest.h>

#include "fake_device.h"
#include "http_util.h"

namespace {

TEST(Options, InitialValuesBeforeAnyEntryPoint) {
    const auto &at_load = fake::startup();
    EXPECT_EQ(at_load.opt.ntry, 5);
    EXPECT_EQ(at_load.opt.spare1, 5);
    EXPECT_EQ(at_load.opt.spare2, 5);
    EXPECT_EQ(at_load.opt.spare3, 5);
    EXPECT_EQ(at_load.opt.wait, 30);
    EXPECT_EQ(at_load.opt.random_wait, 0);
    EXPECT_EQ(at_load.opt.timestamp_check, 1);
    EXPECT_EQ(at_load.opt.debug, 0);
    EXPECT_EQ(at_load.level, 5u);
    EXPECT_EQ(at_load.category, nullptr);
}

TEST(Options, DebugSwitchOnAndOff) {
    http_open_debug();
    EXPECT_EQ(g_http_opt.debug, 1);
    http_close_debug();
    EXPECT_EQ(g_http_opt.debug, 0);
}

TEST(Options, SetOptionsCopiesEveryFieldAndOverridesDebug) {
    http_open_debug();
    const http_opt opt = {1, 2, 3, 4, 0, 7, 0, 0};
    http_set_options(&opt);
    EXPECT_EQ(g_http_opt.ntry, 1);
    EXPECT_EQ(g_http_opt.spare1, 2);
    EXPECT_EQ(g_http_opt.spare2, 3);
    EXPECT_EQ(g_http_opt.spare3, 4);
    EXPECT_EQ(g_http_opt.wait, 0);
    EXPECT_EQ(g_http_opt.random_wait, 7);
    EXPECT_EQ(g_http_opt.timestamp_check, 0);
    EXPECT_EQ(g_http_opt.debug, 0) << "the record's debug switch wins over http_open_debug";
}

// The once-only flag is process state, so each case runs in a child.
TEST(InitDeathTest, SecondInitDoesNotAskThePlatformAgain) {
    EXPECT_EXIT(
        {
            http_util_init();
            http_util_init();
            auto &d = fake::device();
            bool ok = d.zlog_init_calls == 1 && d.zlog_init_name == "http_util" &&
                      g_http_util_zlog_category == d.zlog_init_result;
            exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(InitDeathTest, FailedInitIsNotRetried) {
    EXPECT_EXIT(
        {
            fake::device().zlog_init_result = nullptr;
            http_util_init();
            fake::device().zlog_init_result = &fake::device();
            http_util_init();
            bool ok = fake::device().zlog_init_calls == 1 && g_http_util_zlog_category == nullptr;
            exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
