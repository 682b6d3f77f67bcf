// The tool's progress bar as a person sees it on a terminal.
#include "progress_bar.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono;

TEST(ProgressBar, Lines) {
    struct Case {
        uint32_t done, total, first;
        double seconds;
        const char *line;
    } cases[] = {
        {0, 0, 0, 0, "0 B"}, {512, 0, 0, 1, "512 B  512 B/s"},
        {5u << 20, 10u << 20, 0, 1, " 50% 5.0 MiB / 10.0 MiB  5.0 MiB/s  ETA 0:01"},
        {10u << 20, 10u << 20, 0, 2, "100% 10.0 MiB / 10.0 MiB  5.0 MiB/s"},
        {6u << 20, 10u << 20, 5u << 20, 1, " 60% 6.0 MiB / 10.0 MiB  1.0 MiB/s  ETA 0:04"},  // resumed
        {1u << 20, 100u << 20, 0, 60, "  1% 1.0 MiB / 100.0 MiB  17.1 KiB/s  ETA 99:00"},
        {3000, 2000, 0, 1, "100% 2.9 KiB / 2.0 KiB  2.9 KiB/s"},  // more than announced
    };
    for (const auto &c : cases) EXPECT_EQ(ProgressBar::render(c.done, c.total, c.seconds, c.first), c.line);
}

// Steps of a run: an update of done bytes (of 2000000) at ms, a line break (done 0), the end (done -1).
TEST(ProgressBar, Drawing) {
    struct Case {
        int interval_ms;  // -1: disabled
        std::vector<std::pair<int, int>> steps;
        const char *shows;  // nullptr: nothing drawn
        int redraws;
    } cases[] = {
        {-1, {{10, 0}, {-1, 1}}, nullptr, 0}, {0, {{-1, 0}}, nullptr, 0}, {0, {{0, 0}}, nullptr, 0},
        {0, {{1000, 0}, {0, 1}, {0, 2}}, "\r  0% 1000 B / 1.9 MiB", 1},  // a break ends a drawn line once
        {0, {{1000, 0}, {2000000, 1000}, {-1, 1001}}, "\r100% ", 3},
        {0, {{1000, 0}, {999000, 1000}, {2000000, 2000}, {0, 2001}}, "\r100%", 3},  // shorter after longer
        {200, {{1, 0}, {2, 100}, {3, 199}, {4, 200}, {5, 390}, {6, 400}, {0, 401}}, "6 B", 3},  // five a second
    };
    for (const auto &c : cases) {
        FILE *f = tmpfile();
        ProgressBar bar(f, c.interval_ms >= 0, milliseconds(std::max(c.interval_ms, 0)));
        for (auto [done, ms] : c.steps) {
            const auto at = ProgressBar::Clock::time_point{} + hours(1) + milliseconds(ms);
            done > 0 ? bar.update(static_cast<uint32_t>(done), 2000000, at) : done == 0 ? bar.break_line() : bar.finish(at);
        }
        std::string out(static_cast<size_t>(ftell(f)), '\0');
        EXPECT_TRUE(fseek(f, 0, SEEK_SET) == 0 && fread(&out[0], 1, out.size(), f) == out.size() && fclose(f) == 0);
        EXPECT_EQ(bar.redraws(), c.redraws) << out;
        EXPECT_EQ(out.empty(), c.shows == nullptr) << out;
        if (c.shows == nullptr) continue;
        EXPECT_NE(out.find(c.shows), std::string::npos) << out;
        EXPECT_EQ(out.find('\n'), out.size() - 1) << "one line end, at the end: " << out;
        const size_t last = out.rfind('\r');  // each redraw is at least as long as the line before
        EXPECT_GE(out.size() - last - 1, last - out.rfind('\r', last - 1)) << out;
    }
}

}  // namespace
