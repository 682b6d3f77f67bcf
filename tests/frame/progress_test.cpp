// The progress function: the CLI user's display and Ctrl+C, and the
// application's progress record.
#include <gtest/gtest.h>

#include <string>

#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"

namespace {

class Progress : public testing::Test {
protected:
    void SetUp() override {
        url_.param.show_progress = 1;
        interpose::fake_monotonic = timespec{500, 0};
        ref_.progress = &record_;
        ref_.start = 300;
        record_.on_progress = on_progress;
        calls_ = 0;
        last_count_ = ~0u;
        cancel_ = 0;
    }
    void TearDown() override { interpose::reset(); }

    void at(time_t sec, long nsec = 0) { interpose::fake_monotonic = timespec{sec, nsec}; }
    int report(uint32_t stage, uint32_t count = 0) {
        return http_change_progess(stage, nullptr, count, &url_);
    }

    static int on_progress(http_progress *, uint32_t count) {
        ++calls_;
        last_count_ = count;
        return cancel_;
    }

    http_url_param url_{};
    http_progress record_{};
    http_progress_ref ref_{};
    static int calls_;
    static uint32_t last_count_;
    static int cancel_;
};

int Progress::calls_;
uint32_t Progress::last_count_;
int Progress::cancel_;

// ---- display ----

TEST_F(Progress, BeginPrintsTheBannerAndLogsUnderTheExportedName) {
    EXPECT_EQ(report(HTTP_UTIL_PROGRESS_BEGIN), 0);
    auto &d = fake::device();
    EXPECT_EQ(d.terminal, "Press Ctrl+C to quit\n");
    EXPECT_EQ(d.flushes, 1);
    ASSERT_EQ(d.logs.size(), 1u);
    EXPECT_EQ(d.logs[0].module, "http_util");
    EXPECT_EQ(d.logs[0].func, "http_change_progess");
    EXPECT_EQ(d.logs[0].text, "translation begin.");
}

struct Tick {
    time_t sec;
    long nsec;
    uint32_t stage;
    uint32_t count;
    const char *printed;
};

// One record's ticks in order: a character only when the whole second of
// the monotonic clock has moved on since the last one printed.
constexpr Tick kTicks[] = {
    {500, 900000000, HTTP_UTIL_PROGRESS_BODY, 1024, "!"},  // first tick: at once
    {500, 999999999, HTTP_UTIL_PROGRESS_BODY, 1024, ""},   // same second
    {501, 0, HTTP_UTIL_PROGRESS_HEAD, 0, "."},             // next second, a wait
    {501, 500, HTTP_UTIL_PROGRESS_SEND, 7, ""},
    {504, 0, HTTP_UTIL_PROGRESS_SEND, 7, "!"},             // not accumulated over a gap
    {503, 0, HTTP_UTIL_PROGRESS_BODY, 5, ""},              // clock behind the last tick
    {504, 999999999, HTTP_UTIL_PROGRESS_BODY, 0, ""},
    {505, 1, HTTP_UTIL_PROGRESS_BODY, 0, "."},
};

TEST_F(Progress, TicksAtMostOncePerWholeSecond) {
    std::string expected;
    for (const Tick &t : kTicks) {
        at(t.sec, t.nsec);
        size_t flushes = static_cast<size_t>(fake::device().flushes);
        EXPECT_EQ(report(t.stage, t.count), 0);
        expected += t.printed;
        SCOPED_TRACE(testing::Message() << "tick at " << t.sec << "." << t.nsec);
        EXPECT_EQ(fake::device().terminal, expected);
        EXPECT_EQ(static_cast<size_t>(fake::device().flushes), flushes + (*t.printed ? 1 : 0));
        if (*t.printed) {
            EXPECT_EQ(url_.last_tick[0], t.sec);
            EXPECT_EQ(url_.last_tick[1], t.nsec);
            EXPECT_EQ(fake::log_texts("http_change_progess").back(),
                      "translation: " + std::to_string(t.count) + ".");
        }
    }
    EXPECT_EQ(fake::device().polls, static_cast<int>(std::size(kTicks)));
    EXPECT_EQ(interpose::fake_monotonic_reads, static_cast<int>(std::size(kTicks)));
}

TEST_F(Progress, AWholeTransferShowsBannerTicksAndLineEnd) {
    report(HTTP_UTIL_PROGRESS_BEGIN);
    report(HTTP_UTIL_PROGRESS_HEAD, 0);
    at(501);
    report(HTTP_UTIL_PROGRESS_HEAD, 200);
    report(HTTP_UTIL_PROGRESS_SIZE, 5000);
    at(502);
    report(HTTP_UTIL_PROGRESS_BODY, 1024);
    report(HTTP_UTIL_PROGRESS_END);
    EXPECT_EQ(fake::device().terminal, "Press Ctrl+C to quit\n.!!\n");
    EXPECT_EQ(fake::device().flushes, 5);
    EXPECT_EQ(interpose::fake_monotonic_reads, 3) << "only the ticks read the clock";
}

TEST_F(Progress, SizeAndUnknownStagesOnlyPoll) {
    for (uint32_t stage : {2u, 6u, 7u, 0xffffffffu}) EXPECT_EQ(report(stage, 10), 0);
    EXPECT_EQ(fake::device().terminal, "");
    EXPECT_EQ(fake::device().polls, 4);
    EXPECT_TRUE(fake::device().logs.empty());
}

TEST_F(Progress, CtrlCIsSeenAtTheNextCallOfAnyStage) {
    for (uint32_t stage = 0; stage <= 7; ++stage) {
        fake::device().keys = {3};
        EXPECT_EQ(report(stage, 1), -1) << "stage " << stage;
        EXPECT_TRUE(fake::device().keys.empty());
        EXPECT_EQ(report(stage, 1), 0) << "the key was consumed, stage " << stage;
    }
}

TEST_F(Progress, AnotherKeyIsConsumedWithoutEffect) {
    fake::device().keys = {'q', 3, 'x'};
    EXPECT_EQ(report(HTTP_UTIL_PROGRESS_BODY, 1), 0);
    EXPECT_EQ(report(HTTP_UTIL_PROGRESS_BODY, 1), -1);
    EXPECT_EQ(report(HTTP_UTIL_PROGRESS_BODY, 1), 0);
    EXPECT_TRUE(fake::device().keys.empty());
}

TEST_F(Progress, OnlyShowProgressOneTurnsTheDisplayOn) {
    for (int32_t show : {0, 2, -1}) {
        fake::reset();
        url_.param.show_progress = show;
        fake::device().keys = {3};
        for (uint32_t stage = 0; stage <= 6; ++stage) EXPECT_EQ(report(stage, 1), 0);
        EXPECT_EQ(fake::device().terminal, "") << "show_progress " << show;
        EXPECT_EQ(fake::device().polls, 0);
        EXPECT_EQ(fake::device().keys.size(), 1u) << "Ctrl+C is not read";
        EXPECT_TRUE(fake::device().logs.empty());
    }
    EXPECT_EQ(interpose::fake_monotonic_reads, 0);
}

TEST_F(Progress, NoUrlRecordNoDisplay) {
    fake::device().keys = {3};
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_BEGIN, nullptr, 0, nullptr), 0);
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_BODY, nullptr, 9, nullptr), 0);
    EXPECT_EQ(fake::device().terminal, "");
    EXPECT_EQ(fake::device().polls, 0);
}

// ---- the application's record ----

TEST_F(Progress, RecordFollowsTheStages) {
    url_.param.show_progress = 0;
    record_.done = 77;
    record_.priv[0] = 11;
    record_.priv[1] = 12;
    record_.priv2 = 13;
    struct Step {
        uint32_t stage;
        uint32_t count;
        uint32_t done;
        uint32_t total;
        int calls;
    };
    const Step steps[] = {
        {HTTP_UTIL_PROGRESS_BEGIN, 0, 0, 0, 0},
        {HTTP_UTIL_PROGRESS_HEAD, 150, 0, 0, 0},
        {HTTP_UTIL_PROGRESS_SIZE, 5000, 300, 5000, 0},  // counts from the partial file
        {HTTP_UTIL_PROGRESS_BODY, 1024, 1324, 5000, 1},
        {HTTP_UTIL_PROGRESS_BODY, 0, 1324, 5000, 2},    // a timed-out wait still reports
        {HTTP_UTIL_PROGRESS_SEND, 99, 1324, 5000, 2},
        {HTTP_UTIL_PROGRESS_END, 0, 1324, 5000, 2},
        {9, 5, 1324, 5000, 2},
    };
    for (const Step &s : steps) {
        EXPECT_EQ(http_change_progess(s.stage, &ref_, s.count, &url_), 0);
        EXPECT_EQ(record_.done, s.done) << "stage " << s.stage;
        EXPECT_EQ(record_.total, s.total) << "stage " << s.stage;
        EXPECT_EQ(calls_, s.calls) << "stage " << s.stage;
    }
    EXPECT_EQ(last_count_, 0u);
    EXPECT_EQ(record_.priv[0], 11u);
    EXPECT_EQ(record_.priv[1], 12u);
    EXPECT_EQ(record_.priv2, 13u);
}

TEST_F(Progress, OnProgressCancelsEvenWithTheDisplayOff) {
    url_.param.show_progress = 0;
    cancel_ = 1;
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_BODY, &ref_, 10, &url_), -1);
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_BODY, &ref_, 10, nullptr), -1);
    EXPECT_EQ(record_.done, 20u);
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_SEND, &ref_, 10, nullptr), 0)
        << "only body bytes reach on_progress";
}

TEST_F(Progress, BothPartsRunOnOneCall) {
    fake::device().keys = {3};
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_BODY, &ref_, 10, &url_), -1);
    EXPECT_EQ(fake::device().terminal, "!");
    EXPECT_EQ(record_.done, 10u) << "a Ctrl+C does not skip the record";
    EXPECT_EQ(calls_, 1);
}

TEST_F(Progress, MissingRecordSkipsTheSecondPart) {
    url_.param.show_progress = 0;
    ref_.progress = nullptr;
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_BODY, &ref_, 10, &url_), 0);
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_SIZE, nullptr, 10, &url_), 0);
    record_.on_progress = nullptr;
    ref_.progress = &record_;
    EXPECT_EQ(http_change_progess(HTTP_UTIL_PROGRESS_BODY, &ref_, 10, &url_), 0);
    EXPECT_EQ(record_.done, 10u);
}

}  // namespace
