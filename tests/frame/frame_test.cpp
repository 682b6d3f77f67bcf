// The frame as host programs and device users see it: the handle, the log records and where they go, the
// progress display and record, result messages and the random source.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <set>
#include <string>
#include <vector>

#include "fake_device.h"
#include "frame/log.h"
#include "http_util.h"
#include "interpose.h"

namespace {

TEST(Handle, FreeClosesTheSocketTheServerSees) {
    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    http_util *u = http_create_util();
    u->socket = sv[0];
    http_free_util(u);
    http_free_util(nullptr);
    char c;
    EXPECT_EQ(read(sv[1], &c, 1), 0);
    close(sv[1]);
}

void log_point(const char *text) { HTTP_LOG("%s!", text); }
#undef HTTP_LOG_MODULE
#define HTTP_LOG_MODULE "http_upload"
void upload_point() { HTTP_LOG("sent %d", 7); }

// Debug copies each record to the system log; the platform log takes it while the level is above 4 and the
// log set-up gave a category.
TEST(Log, RecordsReachTheOutputsAllowedAsDeviceUsersReadThem) {
    const std::vector<int> rows[] = {  // debug, level, category, then system-log and platform records
        {0, 5, 1, 0, 1}, {1, 5, 1, 1, 1}, {1, 4, 1, 1, 0}, {0, 4, 1, 0, 0}, {0, -1, 1, 0, 1}, {1, 5, 0, 1, 0}};
    for (const auto &r : rows) {
        fake::reset();
        r[0] ? http_open_debug() : http_close_debug();
        g_http_util_zlog_level = static_cast<uint32_t>(r[1]);
        g_http_util_zlog_category = r[2] ? fake::device().zlog_init_result : nullptr;
        log_point("x");
        EXPECT_EQ(std::vector<size_t>({fake::device().syslogs.size(), fake::device().logs.size()}),
                  std::vector<size_t>({size_t(r[3]), size_t(r[4])})) << r[0] << " " << r[1] << " " << r[2];
    }
    const auto &s = fake::device().syslogs.at(0);
    EXPECT_EQ(std::to_string(s.priority) + s.module + s.level + std::to_string(s.flag) + s.format + s.text, "7HTTP_UTILDEBUG1%s!x!");
    http_close_debug();
    g_http_util_zlog_category = fake::device().zlog_init_result;
    upload_point();
    log_point(std::string(3000, 'a').c_str());
    log_point(std::string(1022, 'b').c_str());
    std::vector<std::string> got;
    for (const auto &r : fake::device().logs)
        got.push_back(r.module + " " + r.func + " " + std::to_string(r.level) + " " + std::to_string(r.line > 0) + " " + r.text);
    EXPECT_EQ(got, (std::vector<std::string>{"http_upload upload_point 20 1 sent 7",
                                             "http_util log_point 20 1 " + std::string(1023, 'a'),
                                             "http_util log_point 20 1 " + std::string(1022, 'b') + "!"}));
}

// The set-up asks the platform once per process, a failed one included.
TEST(LogDeathTest, SetUpIsAskedForOnce) {
    EXPECT_EXIT(
        {
            fake::device().zlog_init_result = nullptr;
            http_util_init();
            fake::device().zlog_init_result = &fake::device();
            http_util_init();
            exit(fake::device().zlog_init_calls == 1 && fake::device().zlog_init_name == "http_util" &&
                         g_http_util_zlog_category == nullptr ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// One step per line: display on, monotonic second, stage, count, typed key, result; what the terminal shows
// then, and the record's done and total.
TEST(Progress, DisplayAndRecordFollowTheStages) {
    std::vector<uint32_t> counts;
    http_progress rec{};
    rec.priv[0] = reinterpret_cast<uintptr_t>(&counts);
    rec.on_progress = [](http_progress *p, uint32_t n) {
        auto *c = reinterpret_cast<std::vector<uint32_t> *>(p->priv[0]);
        return c->push_back(n), n == 99 ? 1 : 0;
    };
    http_progress_ref ref = {&rec, 300, nullptr, -1};
    http_url_param url{};
    const struct {
        int show, sec, stage, count, key, rc;
        const char *terminal;
        uint32_t done, total;
    } steps[] = {
        {1, 500, HTTP_UTIL_PROGRESS_BEGIN, 0, -1, 0, "Press Ctrl+C to quit\n", 0, 0},
        {1, 500, HTTP_UTIL_PROGRESS_HEAD, 0, 'q', 0, ".", 0, 0},  // at once, a wait; another key does nothing
        {1, 500, HTTP_UTIL_PROGRESS_HEAD, 200, -1, 0, "", 0, 0},  // one tick a second
        {1, 500, HTTP_UTIL_PROGRESS_SIZE, 5000, 3, -1, "", 300, 5000},  // counts from the partial file
        {1, 501, HTTP_UTIL_PROGRESS_BODY, 1024, -1, 0, "!", 1324, 5000},
        {1, 504, HTTP_UTIL_PROGRESS_SEND, 7, 3, -1, "!", 1324, 5000},  // a gap is not made up
        {1, 503, HTTP_UTIL_PROGRESS_BODY, 0, -1, 0, "", 1324, 5000},   // a timed-out wait reports too
        {0, 505, HTTP_UTIL_PROGRESS_BODY, 99, 3, -1, "", 1423, 5000},  // the record cancels; keys are not read
        {2, 506, HTTP_UTIL_PROGRESS_BODY, 1, -1, 0, "", 1424, 5000}, {1, 507, HTTP_UTIL_PROGRESS_END, 0, -1, 0, "\n", 1424, 5000},
    };
    std::string terminal;
    for (const auto &s : steps) {
        url.param.show_progress = s.show;
        interpose::fake_monotonic = timespec{s.sec, 0};
        fake::device().keys = {s.key};
        EXPECT_EQ(http_change_progess(static_cast<uint32_t>(s.stage), &ref, static_cast<uint32_t>(s.count), &url), s.rc) << s.sec;
        EXPECT_EQ(fake::device().terminal, terminal += s.terminal) << s.sec;
        EXPECT_EQ(std::vector<uint32_t>({rec.done, rec.total}), std::vector<uint32_t>({s.done, s.total})) << s.sec;
    }
    EXPECT_EQ(counts, (std::vector<uint32_t>{1024, 0, 99, 1}));
    fake::device().keys = {3};
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_BODY, nullptr, 5, nullptr), 0) << "no display without a record";
    EXPECT_EQ(fake::device().keys.size(), 1u);
}

TEST(ResultCodes, EveryCodeHasAMessage) {
    std::set<std::string> texts;
    for (int code = 0; code <= HTTP_UTIL_ERR_UNKNOWN; ++code) texts.insert(http_util_strerr(code));
    EXPECT_EQ(texts.size(), 30u) << "one text is shared";
    EXPECT_STREQ(http_util_strerr(HTTP_UTIL_ERR_PROTOCOL), http_util_strerr(HTTP_UTIL_ERR_RSP_FORMAT));
    EXPECT_STREQ(http_util_strerr(HTTP_UTIL_OK), "Success");
    EXPECT_NE(std::string(http_util_strerr(HTTP_UTIL_ERR_NOT_FOUND)).find("Not Found"), std::string::npos);
    for (int code : {-1, 30, 31, 1000}) EXPECT_STREQ(http_util_strerr(code), "Unknown error") << code;
}

TEST(Random, StaysBelowItsBoundAndVariesWithoutTheRandomDevice) {
    for (const char *broken : {"", "/dev/urandom"}) {
        interpose::fail_open_path = broken;
        std::set<uint32_t> seen;
        for (int i = 0; i < 500; ++i) seen.insert(random_number(62));
        EXPECT_LT(*seen.rbegin(), 62u);
        EXPECT_GT(seen.size(), *broken ? 1u : 50u) << broken;
        EXPECT_EQ(random_number(1), 0u);
    }
}

}  // namespace
