// The frame as host programs and device users see it: log records, progress, result messages, random numbers.
#include <gtest/gtest.h>
#include <set>
#include "fake_device.h"
#include "frame/log.h"
#include "interpose.h"

namespace {

void log_point(const std::string &text) { HTTP_LOG("%s!", text.c_str()); }

// Debug copies records to the system log; the platform log needs a level above 4 and a category. 1023 characters.
TEST(Log, RecordsReachTheOutputsAllowedAndReadAsTheyShould) {
    const std::vector<int> rows[] = {  // debug, level, category; system-log and platform records
        {0, 5, 1, 0, 1}, {1, 5, 1, 1, 1}, {1, 4, 1, 1, 0}, {0, 4, 1, 0, 0}, {0, -1, 1, 0, 1}, {1, 5, 0, 1, 0}};
    for (const auto &r : rows) {
        fake::reset();
        r[0] ? http_open_debug() : http_close_debug();
        g_http_util_zlog_level = static_cast<uint32_t>(r[1]);
        g_http_util_zlog_category = r[2] ? fake::device().zlog_init_result : nullptr;
        log_point("x");
        EXPECT_EQ(fake::device().syslogs.size() * 10 + fake::device().logs.size(), r[3] * 10u + r[4]) << r[1];
    }
    const auto &s = fake::device().syslogs.at(0);
    EXPECT_EQ(std::to_string(s.priority) + s.module + s.level + std::to_string(s.flag) + s.format + s.text,
              "7HTTP_UTILDEBUG1%s!x!");
    g_http_util_zlog_category = fake::device().zlog_init_result;
    log_point(std::string(3000, 'a')), log_point(std::string(1022, 'b'));
    const auto &l = fake::device().logs;
    EXPECT_EQ(l.at(0).module + " " + l[0].func + " " + std::to_string(l[0].level) + " " + std::to_string(l[0].line > 0),
              "http_util log_point 20 1");
    EXPECT_EQ(l.at(0).text + l.at(1).text, std::string(1023, 'a') + std::string(1022, 'b') + "!");
}

// Per call: show_progress, monotonic second, stage, count, typed key; result, new terminal output, done/total.
TEST(Progress, DisplayAndRecordFollowTheStages) {
    enum { Begin, Head, Size, Body, Send, End };
    const struct {
        int show, sec, stage, count, key, rc;
        std::string terminal, record;
    } steps[] = {{1, 500, Begin, 0, -1, 0, "Press Ctrl+C to quit\n", "0/0"},
        {1, 500, Head, 0, 'q', 0, ".", "0/0"}, {1, 500, Head, 200, -1, 0, "", "0/0"},  // at once, then once a second
        {1, 500, Size, 5000, 3, -1, "", "300/5000"}, {1, 501, Body, 1024, -1, 0, "!", "1324/5000"},  // Ctrl+C at any stage
        {1, 504, Send, 7, 3, -1, "!", "1324/5000"}, {1, 503, Body, 0, -1, 0, "", "1324/5000"},  // no catching up
        {0, 505, Body, 99, 3, -1, "", "1423/5000"}, {2, 506, Body, 1, -1, 0, "", "1424/5000"},  // display off
        {1, 507, End, 0, -1, 0, "\n", "1424/5000"}};
    http_progress rec{};
    rec.on_progress = [](http_progress *, uint32_t n) { return n == 99 ? 1 : 0; };
    http_progress_ref ref = {&rec, 300, nullptr, -1};
    http_url_param url{};
    std::string terminal;
    for (const auto &s : steps) {
        url.param.show_progress = s.show;
        interpose::fake_monotonic = timespec{s.sec, 0};
        fake::device().keys = {s.key};
        EXPECT_EQ(http_change_progess(uint32_t(s.stage), &ref, uint32_t(s.count), &url), s.rc) << s.sec;
        EXPECT_EQ(fake::device().terminal, terminal += s.terminal) << s.sec;
        EXPECT_EQ(std::to_string(rec.done) + "/" + std::to_string(rec.total), s.record) << s.sec;
    }
    fake::device().keys = {3}, interpose::fake_monotonic.reset();
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_BODY, nullptr, 5, nullptr), 0);
    EXPECT_EQ(fake::device().keys.size(), 1u) << "no URL record, no display";
}

TEST(Random, StaysBelowItsBoundAndVariesWithoutTheRandomDevice) {
    for (const char *broken : {"", "/dev/urandom"}) {
        interpose::fail_open_path = broken;
        std::set<uint32_t> seen;
        for (int i = 0; i < 500; ++i) seen.insert(random_number(62) + random_number(1));
        EXPECT_TRUE(*seen.rbegin() < 62 && seen.size() > (*broken ? 1u : 50u)) << broken << " " << seen.size();
    }
}

}  // namespace
