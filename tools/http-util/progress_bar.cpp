#include "progress_bar.h"

#include <cmath>

ProgressBar::ProgressBar(FILE *out, bool enabled, Clock::duration min_interval)
    : out_(out), enabled_(enabled), min_interval_(min_interval) {}

std::string ProgressBar::human(double bytes) {
    static const char *const units[] = {"B", "KiB", "MiB", "GiB"};
    int u = 0;
    while (bytes >= 1024.0 && u < 3) {
        bytes /= 1024.0;
        ++u;
    }
    char buf[32];
    snprintf(buf, sizeof buf, u == 0 ? "%.0f %s" : "%.1f %s", bytes, units[u]);
    return buf;
}

std::string ProgressBar::render(uint32_t done, uint32_t total, double seconds, uint32_t first_done) {
    std::string line;
    char buf[64];
    if (total > 0) {
        unsigned pct = static_cast<unsigned>(std::min<uint64_t>(100, uint64_t(done) * 100 / total));
        snprintf(buf, sizeof buf, "%3u%% ", pct);
        line += buf;
        line += human(done) + " / " + human(total);
    } else {
        line += human(done);
    }
    // The rate counts only what this run moved, not a resumed file's start.
    double moved = done >= first_done ? double(done - first_done) : 0.0;
    if (seconds > 0.05 && moved > 0) {
        double rate = moved / seconds;
        line += "  " + human(rate) + "/s";
        if (total > done) {
            long eta = std::lround(double(total - done) / rate);
            snprintf(buf, sizeof buf, "  ETA %ld:%02ld", eta / 60, eta % 60);
            line += buf;
        }
    }
    return line;
}

void ProgressBar::update(uint32_t done, uint32_t total, Clock::time_point now) {
    if (!enabled_) return;
    if (!started_) {
        started_ = true;
        start_ = now;
        first_done_ = done;
        last_draw_ = now - min_interval_;
    }
    done_ = done;
    total_ = total;
    if (now - last_draw_ >= min_interval_) draw(now);
}

void ProgressBar::finish(Clock::time_point now) {
    if (!enabled_ || !started_) return;
    draw(now);
    break_line();
}

void ProgressBar::break_line() {
    if (!line_open_) return;
    fputc('\n', out_);
    fflush(out_);
    line_open_ = false;
    last_width_ = 0;
}

void ProgressBar::draw(Clock::time_point now) {
    double seconds = std::chrono::duration<double>(now - start_).count();
    std::string line = render(done_, total_, seconds, first_done_);
    // Pad over the tail of a longer previous line.
    size_t width = line.size();
    if (width < last_width_) line.append(last_width_ - width, ' ');
    last_width_ = width;
    fprintf(out_, "\r%s", line.c_str());
    fflush(out_);
    last_draw_ = now;
    line_open_ = true;
    ++redraws_;
}
