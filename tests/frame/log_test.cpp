// The one log step: its two outputs and what steers each of them.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "fake_device.h"
#include "frame/log.h"

namespace {

int tag;

// A log point as every module of the library writes one.
void log_point(int value) { HTTP_LOG("value %d [%s]", value, "x"); }

#undef HTTP_LOG_MODULE
#define HTTP_LOG_MODULE "http_upload"
void upload_log_point() { HTTP_LOG("begin send"); }
#undef HTTP_LOG_MODULE
#define HTTP_LOG_MODULE "http_util"

struct Routing {
    uint8_t debug;
    uint32_t level;
    bool category;
    size_t syslogs;
    size_t formats;  // at_snprintf calls
    size_t records;
};

// Names the case by its inputs. Without it the test's name is the record's
// raw bytes, padding included: unreadable, unstable across builds and
// architectures, and an uninitialised read under valgrind.
void PrintTo(const Routing &r, std::ostream *os) {
    *os << "debug" << int(r.debug) << "_level" << r.level << (r.category ? "_category" : "_nocategory");
}

class LogRouting : public testing::TestWithParam<Routing> {};

TEST_P(LogRouting, ReachesExactlyTheOutputsAllowed) {
    const Routing &c = GetParam();
    g_http_opt.debug = c.debug;
    g_http_util_zlog_level = c.level;
    g_http_util_zlog_category = c.category ? &tag : nullptr;
    log_point(42);
    auto &d = fake::device();
    EXPECT_EQ(d.syslogs.size(), c.syslogs);
    EXPECT_EQ(static_cast<size_t>(d.snprintf_calls), c.formats);
    EXPECT_EQ(d.logs.size(), c.records);
}

INSTANTIATE_TEST_SUITE_P(
    DebugLevelCategory, LogRouting,
    testing::Values(Routing{0, 5, true, 0, 1, 1},   // the normal case: platform only
                    Routing{1, 5, true, 1, 1, 1},   // both outputs
                    Routing{1, 4, true, 1, 0, 0},   // threshold shuts the platform log
                    Routing{1, 4, false, 1, 0, 0},
                    Routing{0, 4, true, 0, 0, 0},   // nothing at all
                    Routing{0, 5, false, 0, 1, 0},  // formatted, but no category to hand it to
                    Routing{1, 5, false, 1, 1, 0},
                    Routing{0, 0xffffffffu, true, 0, 1, 1}));  // threshold compared unsigned

TEST(LogStep, SyslogCopyCarriesTheFixedArgumentsAndTheCallersFormat) {
    g_http_opt.debug = 1;
    g_http_util_zlog_level = 0;
    log_point(7);
    ASSERT_EQ(fake::device().syslogs.size(), 1u);
    const auto &s = fake::device().syslogs[0];
    EXPECT_EQ(s.priority, 7);
    EXPECT_EQ(s.module, "HTTP_UTIL");
    EXPECT_EQ(s.level, "DEBUG");
    EXPECT_EQ(s.flag, 1);
    EXPECT_EQ(s.format, "value %d [%s]");
    EXPECT_EQ(s.text, "value 7 [x]");
}

TEST(LogStep, PlatformRecordNamesModuleFunctionLineAndLevel) {
    g_http_util_zlog_category = &tag;
    log_point(3);
    upload_log_point();
    const auto &logs = fake::device().logs;
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_EQ(logs[0].category, &tag);
    EXPECT_EQ(logs[0].module, "http_util");
    EXPECT_EQ(logs[0].func, "log_point");
    EXPECT_GT(logs[0].line, 0);
    EXPECT_EQ(logs[0].level, 20);
    EXPECT_EQ(logs[0].format, "%s");
    EXPECT_EQ(logs[0].text, "value 3 [x]");
    EXPECT_EQ(logs[1].module, "http_upload");
    EXPECT_EQ(logs[1].func, "upload_log_point");
    EXPECT_EQ(logs[1].text, "begin send");
}

TEST(LogStep, LongTextIsCutTo1023Characters) {
    g_http_util_zlog_category = &tag;
    const std::string long_text(3000, 'a');
    HTTP_LOG("%s!", long_text.c_str());
    ASSERT_EQ(fake::device().logs.size(), 1u);
    EXPECT_EQ(fake::device().logs[0].text, std::string(1023, 'a'));
}

TEST(LogStep, ExactlyFittingTextIsKeptWhole) {
    g_http_util_zlog_category = &tag;
    const std::string text(1023, 'b');
    HTTP_LOG("%s", text.c_str());
    ASSERT_EQ(fake::device().logs.size(), 1u);
    EXPECT_EQ(fake::device().logs[0].text, text);
}

}  // namespace
