// A one-line progress bar on standard error, fed by the library's
// progress record callbacks.
#ifndef HTTP_UTIL_TOOL_PROGRESS_BAR_H
#define HTTP_UTIL_TOOL_PROGRESS_BAR_H

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

class ProgressBar {
public:
    using Clock = std::chrono::steady_clock;

    // enabled false: draws nothing at all (standard error not a terminal).
    ProgressBar(FILE *out, bool enabled, Clock::duration min_interval = std::chrono::milliseconds(200));

    // Called with the record's counts after every block; draws at most once
    // per interval.
    void update(uint32_t done, uint32_t total, Clock::time_point now = Clock::now());
    // Draws the last state and ends the line (only if anything was drawn).
    void finish(Clock::time_point now = Clock::now());
    // Ends a drawn line so that a message can follow; the bar goes on below.
    void break_line();

    int redraws() const { return redraws_; }

    // "42% 21.0 MiB / 50.0 MiB  8.0 MiB/s  ETA 0:03" (parts dropped when the
    // total or the rate is unknown).
    static std::string render(uint32_t done, uint32_t total, double seconds, uint32_t first_done);
    static std::string human(double bytes);

private:
    void draw(Clock::time_point now);

    FILE *out_;
    bool enabled_;
    Clock::duration min_interval_;
    bool started_ = false;
    Clock::time_point start_;
    Clock::time_point last_draw_;
    uint32_t first_done_ = 0;
    uint32_t done_ = 0;
    uint32_t total_ = 0;
    int redraws_ = 0;
    size_t last_width_ = 0;
    bool line_open_ = false;
};

#endif
