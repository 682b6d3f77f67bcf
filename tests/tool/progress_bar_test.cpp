// The command-line tool's progress bar: what a person sees, and how often.
#include "progress_bar.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::chrono_literals;

TEST(ProgressBarRender, Lines) {
    struct Case {
        uint32_t done, total;
        double seconds;
        uint32_t first;
        const char *line;
    } cases[] = {
        {0, 0, 0, 0, "0 B"},
        {512, 0, 1, 0, "512 B  512 B/s"},
        {5u << 20, 10u << 20, 1, 0, " 50% 5.0 MiB / 10.0 MiB  5.0 MiB/s  ETA 0:01"},
        {10u << 20, 10u << 20, 2, 0, "100% 10.0 MiB / 10.0 MiB  5.0 MiB/s"},
        // A resumed file: the rate counts only what this run moved.
        {6u << 20, 10u << 20, 1, 5u << 20, " 60% 6.0 MiB / 10.0 MiB  1.0 MiB/s  ETA 0:04"},
        {1u << 20, 100u << 20, 60, 0, "  1% 1.0 MiB / 100.0 MiB  17.1 KiB/s  ETA 99:00"},
        {3000, 2000, 1, 0, "100% 2.9 KiB / 2.0 KiB  2.9 KiB/s"},  // server sent more than announced
    };
    for (const auto &c : cases)
        EXPECT_EQ(ProgressBar::render(c.done, c.total, c.seconds, c.first), c.line);
}

std::string drawn(FILE *f) {
    fflush(f);
    rewind(f);
    std::string s;
    int c;
    while ((c = fgetc(f)) != EOF) s += static_cast<char>(c);
    return s;
}

TEST(ProgressBar, RedrawsAtMostFiveTimesASecond) {
    FILE *f = tmpfile();
    ProgressBar bar(f, true, 200ms);
    auto t0 = ProgressBar::Clock::time_point{} + 1h;
    for (int ms = 0; ms <= 1000; ms += 10) bar.update(static_cast<uint32_t>(ms) * 1000, 1000000, t0 + std::chrono::milliseconds(ms));
    EXPECT_EQ(bar.redraws(), 6);  // at 0, 200, 400, 600, 800, 1000 ms
    bar.finish(t0 + 1001ms);
    std::string out = drawn(f);
    EXPECT_EQ(out.back(), '\n');
    EXPECT_EQ(out.rfind("\r100% ", std::string::npos) != std::string::npos, true) << out;
    fclose(f);
}

TEST(ProgressBar, DisabledDrawsNothing) {
    FILE *f = tmpfile();
    ProgressBar bar(f, false);
    bar.update(10, 100);
    bar.finish();
    EXPECT_EQ(drawn(f), "");
    fclose(f);
}

TEST(ProgressBar, NoUpdateNoLine) {
    FILE *f = tmpfile();
    ProgressBar bar(f, true);
    bar.finish();
    EXPECT_EQ(drawn(f), "") << "a transfer that moved nothing leaves no empty line";
    fclose(f);
}

// A retry line must start at the left edge, and only a drawn bar needs ending.
TEST(ProgressBar, BreakEndsADrawnLineOnce) {
    FILE *f = tmpfile();
    ProgressBar bar(f, true, 0ms);
    bar.break_line();
    EXPECT_EQ(drawn(f), "");
    bar.update(1000, 2000);
    bar.break_line();
    bar.break_line();
    std::string out = drawn(f);
    EXPECT_EQ(out.find('\n'), out.size() - 1) << out;
    fclose(f);
}

TEST(ProgressBar, ShorterLineCoversTheLongerOne) {
    FILE *f = tmpfile();
    ProgressBar bar(f, true, 0ms);
    auto t0 = ProgressBar::Clock::time_point{} + 1h;
    bar.update(1000, 2000000, t0);
    bar.update(1500, 2000000, t0 + 10s);
    std::string out = drawn(f);
    size_t second = out.rfind('\r');
    size_t first_len = second - 1;
    EXPECT_GE(out.size() - second - 1, first_len) << "tail of the previous line left visible";
    fclose(f);
}

}  // namespace
