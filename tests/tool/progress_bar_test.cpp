// The tool's progress bar as a person sees it on a terminal.
#include "progress_bar.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
const auto t0 = ProgressBar::Clock::time_point{} + 1h;

TEST(ProgressBar, Lines) {
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
        {6u << 20, 10u << 20, 1, 5u << 20, " 60% 6.0 MiB / 10.0 MiB  1.0 MiB/s  ETA 0:04"},  // resumed
        {1u << 20, 100u << 20, 60, 0, "  1% 1.0 MiB / 100.0 MiB  17.1 KiB/s  ETA 99:00"},
        {3000, 2000, 1, 0, "100% 2.9 KiB / 2.0 KiB  2.9 KiB/s"},  // more than announced
    };
    for (const auto &c : cases) EXPECT_EQ(ProgressBar::render(c.done, c.total, c.seconds, c.first), c.line);
}

// What a run draws: each step is an update (done > 0, at t0 + ms), a line
// break (done 0) or the end (done -1).
TEST(ProgressBar, Drawing) {
    struct Case {
        const char *what;
        bool enabled;
        std::vector<std::pair<int, int>> steps;  // done, ms
        const char *shows;                       // nullptr: nothing drawn
    } cases[] = {
        {"a disabled bar draws nothing", false, {{10, 0}, {-1, 1}}, nullptr},
        {"no update, no line", true, {{-1, 0}}, nullptr},
        {"a break before any update draws nothing", true, {{0, 0}}, nullptr},
        {"a break ends a drawn line once", true, {{1000, 0}, {0, 1}, {0, 2}}, "\r  0% 1000 B / 1.9 MiB"},
        {"the end draws 100% and ends the line", true, {{1000, 0}, {2000000, 1000}, {-1, 1001}}, "\r100% "},
        {"a shorter line covers a longer one", true, {{1000, 0}, {1000000, 1000}, {2000000, 2000}, {0, 2001}}, "\r100% 1.9 MiB"},
    };
    for (const auto &c : cases) {
        FILE *f = tmpfile();
        ProgressBar bar(f, c.enabled, 0ms);
        for (auto [done, ms] : c.steps) {
            if (done > 0) bar.update(static_cast<uint32_t>(done), 2000000, t0 + std::chrono::milliseconds(ms));
            if (done == 0) bar.break_line();
            if (done < 0) bar.finish(t0 + std::chrono::milliseconds(ms));
        }
        std::string out(static_cast<size_t>(ftell(f)), '\0');
        rewind(f);
        EXPECT_EQ(fread(&out[0], 1, out.size(), f), out.size());
        fclose(f);
        if (c.shows == nullptr) {
            EXPECT_EQ(out, "") << c.what;
            continue;
        }
        EXPECT_NE(out.find(c.shows), std::string::npos) << c.what << ": " << out;
        EXPECT_EQ(out.find('\n'), out.size() - 1) << c.what << ": one line end, at the end: " << out;
        const size_t last = out.rfind('\r');  // each redraw is at least as long as the line before
        EXPECT_GE(out.size() - last - 1, last - out.rfind('\r', last - 1)) << c.what << ": " << out;
    }
}

TEST(ProgressBar, RedrawsAtMostFiveTimesASecond) {
    FILE *f = tmpfile();
    ProgressBar bar(f, true, 200ms);
    for (int ms = 0; ms <= 1000; ms += 10) bar.update(static_cast<uint32_t>(ms) * 1000, 1000000, t0 + std::chrono::milliseconds(ms));
    EXPECT_EQ(bar.redraws(), 6);  // at 0, 200, 400, 600, 800 and 1000 ms
    fclose(f);
}

}  // namespace
