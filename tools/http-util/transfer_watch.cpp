#include "transfer_watch.h"

#include <cmath>
#include <cstdlib>

#include "http_util.h"
#include "http_util_host.h"
#include "progress_bar.h"

namespace {

enum class Event {
    UrlStart,      // the retry loop of one URL begins
    AttemptStart,  // an attempt begins
    Failed,        // what an attempt failed at
    Retrying,      // the loop will pause and try again
    Pause,         // the drawn length of a random first pause
    WriteError,    // the local file could not be written
    RenameError,   // the copy could not put its file in place
    ReadError,     // the file to upload could not be opened
    NotHttp,       // a URL that is not http://
    Banner,        // the library's display begins a line
    Tick,          // the library's display printed a tick
};

// What the rest of a failure record is worth: nothing (a stale errno), words
// for the retry line, or the system's own reason (strerror) for the last line.
enum class Rest { Skip, Shown, System };

// The records that say what a transfer does, by the function that logs them
// and the start of their text. `what` names a failure for a person.
struct Rule {
    std::string_view func;
    std::string_view prefix;
    Event event;
    const char *what = nullptr;
    Rest rest = Rest::Skip;
};

constexpr Rule kRules[] = {
    {"http_get_loop", "get_loop-->local_file:", Event::UrlStart},
    {"http_get_loop", "--", Event::AttemptStart},
    {"http_get_loop", "Retrying.", Event::Retrying},
    {"http_sleep_between_retrievals", "sleep_between_retrievals:", Event::Pause},
    {"http_get_loop", "Cannot write to ", Event::WriteError},
    {"http_get", "errno:", Event::Failed, "connect failed", Rest::System},
    {"http_get", "errno ", Event::Failed, "sending the request failed", Rest::System},
    {"http_get", " errno ", Event::Failed, "the transfer broke off"},
    {"http_get", "receive header failed.", Event::Failed, "no response"},
    {"http_get", "parse head result: ", Event::Failed, "bad response", Rest::Shown},
    {"http_util_copy", "rename file failed:", Event::RenameError},
    {"http_post", "open ", Event::ReadError},
    {"http_create_url_param", "Only HTTP protocol is supported! url:", Event::NotHttp},
    {"http_change_progess", "translation begin.", Event::Banner},
    {"http_change_progess", "translation: ", Event::Tick},
};

std::string_view without_final_dot(std::string_view s) {
    if (!s.empty() && s.back() == '.') s.remove_suffix(1);
    return s;
}

// "PATH (REASON)." and "PATH failed: REASON": the path may hold the separator
// too, the reason never does.
bool split_last(std::string_view s, std::string_view sep, std::string_view *path,
                std::string_view *reason) {
    size_t at = s.rfind(sep);
    if (at == std::string_view::npos) return false;
    *path = s.substr(0, at);
    *reason = s.substr(at + sep.size());
    return true;
}

void on_record(void *ctx, const char *func, const char *text) {
    static_cast<TransferWatch *>(ctx)->record(func, text);
}

}  // namespace

TransferWatch::TransferWatch(Display display) : display_(std::move(display)) {
    http_util_host_set_log_hook(on_record, this);
}

TransferWatch::~TransferWatch() { http_util_host_set_log_hook(nullptr, nullptr); }

void TransferWatch::record(std::string_view func, std::string_view text) {
    const Rule *rule = nullptr;
    for (const Rule &r : kRules)
        if (r.func == func && text.substr(0, r.prefix.size()) == r.prefix) {
            rule = &r;
            break;
        }
    if (rule == nullptr) return;
    std::string_view rest = text.substr(rule->prefix.size());
    std::string_view path, reason;
    switch (rule->event) {
    case Event::UrlStart:
        retries_ = 0;
        break;
    case Event::AttemptStart:
        failure_.clear();
        detail_.clear();
        why_.clear();
        file_reason_.clear();
        break;
    case Event::Failed:
        failure_ = rule->what;
        if (rule->rest != Rest::Skip) detail_ = without_final_dot(rest);
        if (rule->rest == Rest::System) why_ = detail_;
        break;
    case Event::Retrying:
        ++retries_;
        // Only the first pause of a random wait differs from --wait; its
        // length comes in the next record.
        if (g_http_opt.random_wait != 0 && retries_ == 1 && g_http_opt.wait > 0)
            pending_ = true;
        else
            tell(g_http_opt.wait);
        break;
    case Event::Pause:
        if (pending_) {
            size_t at = rest.find("sleep=");
            tell(at == std::string_view::npos ? g_http_opt.wait
                                              : atof(std::string(rest.substr(at + 6)).c_str()));
        }
        break;
    case Event::WriteError:
        if (split_last(without_final_dot(rest), " (", &path, &reason) && !reason.empty()) {
            reason.remove_suffix(1);  // ")"
            file_reason_ = "cannot write " +
                           (display_.dest.empty() ? std::string(path) : display_.dest) + ": " +
                           std::string(reason);
        }
        break;
    case Event::RenameError:
        file_reason_ = "cannot write " + display_.dest + ": " + std::string(rest);
        break;
    case Event::ReadError:
        if (split_last(rest, " failed: ", &path, &reason))
            file_reason_ = "cannot read " + std::string(path) + ": " + std::string(reason);
        break;
    case Event::NotHttp:
        why_ = rest == display_.url ? "URLs begin with http://" : "redirected to " + std::string(rest);
        break;
    case Event::Banner:
        mid_line_ = false;
        break;
    case Event::Tick:
        mid_line_ = display_.ticks_on_out;
        break;
    }
}

// "connect failed (Connection refused); attempt 2 of 6 in 30 s"
void TransferWatch::tell(double seconds) {
    pending_ = false;
    if (display_.out == nullptr) return;
    if (display_.bar != nullptr) display_.bar->break_line();
    if (mid_line_) fputc('\n', display_.out);
    mid_line_ = false;
    std::string line = failure_.empty() ? "the attempt failed" : failure_;
    if (!detail_.empty()) line += " (" + detail_ + ")";
    long whole = std::lround(seconds);
    char next[80];
    if (whole > 0)
        snprintf(next, sizeof next, "; attempt %d of %d in %ld s", retries_ + 1, display_.attempts,
                 whole);
    else
        snprintf(next, sizeof next, "; attempt %d of %d now", retries_ + 1, display_.attempts);
    fprintf(display_.out, "http-util: %s%s\n", line.c_str(), next);
    fflush(display_.out);
}
