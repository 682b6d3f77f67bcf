// The progress function: the CLI user's display and Ctrl+C, and the
// application's progress record.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"

namespace {

std::vector<uint32_t> reported;  // on_progress counts
int cancel_from = 0;             // on_progress cancels from this call on (1-based)

int on_progress(http_progress *, uint32_t count) {
    reported.push_back(count);
    return cancel_from != 0 && static_cast<int>(reported.size()) >= cancel_from;
}

class Progress : public testing::Test {
protected:
    void SetUp() override {
        url_.param.show_progress = 1;
        at(500);
        record_.on_progress = on_progress;
        ref_ = {&record_, 300, nullptr, -1};
        reported.clear();
        cancel_from = 0;
    }

    void at(time_t sec, long nsec = 0) { interpose::fake_monotonic = timespec{sec, nsec}; }
    int report(uint32_t stage, uint32_t count = 0, http_progress_ref *ref = nullptr) {
        return http_change_progess(stage, ref, count, &url_);
    }

    http_url_param url_{};
    http_progress record_{};
    http_progress_ref ref_{};
};

TEST_F(Progress, AWholeTransferShowsBannerTicksAndLineEnd) {
    report(HTTP_UTIL_PROGRESS_BEGIN);
    report(HTTP_UTIL_PROGRESS_HEAD, 0);
    at(501);
    report(HTTP_UTIL_PROGRESS_HEAD, 200);
    report(HTTP_UTIL_PROGRESS_SIZE, 5000);
    at(502);
    report(HTTP_UTIL_PROGRESS_BODY, 1024);
    report(HTTP_UTIL_PROGRESS_END);
    auto &d = fake::device();
    EXPECT_EQ(d.terminal, "Press Ctrl+C to quit\n.!!\n");
    EXPECT_EQ(d.flushes, 5);
    EXPECT_EQ(d.polls, 6);
    EXPECT_EQ(interpose::fake_monotonic_reads, 3) << "only the ticks read the clock";
    EXPECT_EQ(fake::log_texts("http_change_progess"),
              (std::vector<std::string>{"translation begin.", "translation: 0.", "translation: 200.",
                                        "translation: 1024."}));
    EXPECT_EQ(d.logs.front().module, "http_util");
}

// One record's ticks in order: a character only when the whole second of
// the monotonic clock has moved on since the last one printed.
TEST_F(Progress, TicksAtMostOncePerWholeSecond) {
    const struct {
        time_t sec;
        long nsec;
        uint32_t stage, count;
        const char *printed;
    } ticks[] = {
        {500, 900000000, HTTP_UTIL_PROGRESS_BODY, 1024, "!"},  // first tick: at once
        {500, 999999999, HTTP_UTIL_PROGRESS_BODY, 1024, ""},   // same second
        {501, 0, HTTP_UTIL_PROGRESS_HEAD, 0, "."},             // next second, a wait
        {501, 500, HTTP_UTIL_PROGRESS_SEND, 7, ""},
        {504, 0, HTTP_UTIL_PROGRESS_SEND, 7, "!"},             // a gap is not made up
        {503, 0, HTTP_UTIL_PROGRESS_BODY, 5, ""},              // clock behind the last tick
        {505, 1, HTTP_UTIL_PROGRESS_BODY, 0, "."},
    };
    std::string expected;
    for (const auto &t : ticks) {
        at(t.sec, t.nsec);
        EXPECT_EQ(report(t.stage, t.count), 0);
        expected += t.printed;
        EXPECT_EQ(fake::device().terminal, expected) << "at " << t.sec << "." << t.nsec;
        if (*t.printed) {
            EXPECT_EQ(url_.last_tick[0], t.sec);
            EXPECT_EQ(url_.last_tick[1], t.nsec);
        }
    }
    EXPECT_EQ(fake::device().polls, 7) << "every call polls the terminal";
}

TEST_F(Progress, CtrlCIsSeenAtTheNextCallOfAnyStage) {
    for (uint32_t stage = 0; stage <= 7; ++stage) {
        fake::device().keys = {'q', 3};
        EXPECT_EQ(report(stage, 1), 0) << "another key is consumed without effect, stage " << stage;
        EXPECT_EQ(report(stage, 1), -1) << "stage " << stage;
        EXPECT_EQ(report(stage, 1), 0) << "stage " << stage;
    }
    const std::string banner = "Press Ctrl+C to quit\n";
    EXPECT_EQ(fake::device().terminal, banner + banner + banner + "!" + "\n\n\n")
        << "one tick within the second; stages 2 and above 5 print nothing";
}

TEST_F(Progress, OnlyShowProgressOneTurnsTheDisplayOn) {
    for (int32_t show : {0, 2, -1}) {
        fake::reset();
        url_.param.show_progress = show;
        fake::device().keys = {3};
        for (uint32_t stage = 0; stage <= 6; ++stage) EXPECT_EQ(report(stage, 1, &ref_), 0);
        EXPECT_EQ(fake::device().terminal, "") << "show_progress " << show;
        EXPECT_EQ(fake::device().polls, 0) << "Ctrl+C is not read";
        EXPECT_TRUE(fake::device().logs.empty());
    }
    EXPECT_EQ(reported.size(), 3u) << "the record part still runs";
    fake::device().keys = {3};
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_BEGIN, nullptr, 0, nullptr), 0);
    EXPECT_EQ(fake::device().polls, 0) << "no URL record, no display";
}

TEST_F(Progress, RecordFollowsTheStages) {
    url_.param.show_progress = 0;
    record_.done = 77;
    record_.priv[0] = 11;
    record_.priv2 = 13;
    const struct {
        uint32_t stage, count, done, total;
        size_t calls;
    } steps[] = {
        {HTTP_UTIL_PROGRESS_BEGIN, 0, 0, 0, 0},
        {HTTP_UTIL_PROGRESS_HEAD, 150, 0, 0, 0},
        {HTTP_UTIL_PROGRESS_SIZE, 5000, 300, 5000, 0},  // counts from the partial file
        {HTTP_UTIL_PROGRESS_BODY, 1024, 1324, 5000, 1},
        {HTTP_UTIL_PROGRESS_BODY, 0, 1324, 5000, 2},    // a timed-out wait still reports
        {HTTP_UTIL_PROGRESS_SEND, 99, 1324, 5000, 2},
        {HTTP_UTIL_PROGRESS_END, 0, 1324, 5000, 2},
        {9, 5, 1324, 5000, 2},
    };
    for (const auto &s : steps) {
        EXPECT_EQ(report(s.stage, s.count, &ref_), 0);
        EXPECT_EQ(record_.done, s.done) << "stage " << s.stage;
        EXPECT_EQ(record_.total, s.total) << "stage " << s.stage;
        EXPECT_EQ(reported.size(), s.calls) << "stage " << s.stage;
    }
    EXPECT_EQ(record_.priv[0], 11u);
    EXPECT_EQ(record_.priv2, 13u);
    ref_.progress = nullptr;
    EXPECT_EQ(report(HTTP_UTIL_PROGRESS_BODY, 10, &ref_), 0);
}

TEST_F(Progress, OnProgressCancelsEvenWithTheDisplayOff) {
    url_.param.show_progress = 0;
    cancel_from = 1;
    EXPECT_EQ(report(HTTP_UTIL_PROGRESS_BODY, 10, &ref_), -1);
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_BODY, &ref_, 10, nullptr), -1);
    EXPECT_EQ(record_.done, 20u);
    url_.param.show_progress = 1;
    fake::device().keys = {3};
    EXPECT_EQ(report(HTTP_UTIL_PROGRESS_BODY, 10, &ref_), -1);
    EXPECT_EQ(record_.done, 30u) << "a Ctrl+C does not skip the record";
}

}  // namespace
