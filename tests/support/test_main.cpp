// Every test starts with fresh fakes, no injected fault, the library's options
// as at process start, and the fake log category in place (as if
// http_util_init had run), whichever test first ran an entry point.
#include <gtest/gtest.h>
#include <exception>

#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"

namespace {
// Read during static initialisation, before any test code runs.
const http_opt startup_opt = g_http_opt;
const uint32_t startup_level = g_http_util_zlog_level;

struct Reset : testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override {
        fake::reset();
        interpose::reset();
        g_http_opt = startup_opt;
        g_http_util_zlog_level = startup_level;
        g_http_util_zlog_category = fake::device().zlog_init_result;
    }
};
}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new Reset);
    try {
        return RUN_ALL_TESTS();
    } catch (const std::exception &) {  // --gtest_throw_on_failure: the first failure ends the run, scratch folders gone
        return 1;
    }
}
