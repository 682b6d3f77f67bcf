// Progress reporting: the CLI user's display with its Ctrl+C poll, and the
// application's own progress record.
#include <time.h>

#include "frame/log.h"
#include "http_util.h"
#include "platform/device.h"

namespace {

constexpr int kCtrlC = 3;

// One character per whole second of the monotonic clock at most, however
// often the transfer reports; a zero last tick means none was printed yet.
bool tick_due(const int32_t last_tick[2], const struct timespec &now) {
    if (last_tick[0] == 0) return true;
    // Wrapping subtraction: seconds are kept as 32 bits in the URL record.
    auto elapsed = static_cast<int32_t>(static_cast<uint32_t>(now.tv_sec) -
                                        static_cast<uint32_t>(last_tick[0]));
    return elapsed > 0;
}

// The application's record: counts and its chance to cancel.
int update_record(uint32_t stage, http_progress_ref *ref, uint32_t count) {
    if (ref == nullptr || ref->progress == nullptr) return 0;
    http_progress *progress = ref->progress;
    switch (stage) {
    case HTTP_UTIL_PROGRESS_BEGIN:
        progress->done = 0;
        return 0;
    case HTTP_UTIL_PROGRESS_SIZE:
        // A resumed download counts from what the local file already holds.
        progress->total = count;
        progress->done = static_cast<uint32_t>(ref->start);
        return 0;
    case HTTP_UTIL_PROGRESS_BODY:
        progress->done += count;
        if (progress->on_progress != nullptr && progress->on_progress(progress, count) != 0)
            return -1;
        return 0;
    default:
        return 0;
    }
}

}  // namespace

extern "C" HTTP_UTIL_API int http_change_progess(uint32_t stage, http_progress_ref *ref,
                                                 uint32_t count, http_url_param *url) {
    int result = 0;
    if (url != nullptr && url->param.show_progress == 1) {
        switch (stage) {
        case HTTP_UTIL_PROGRESS_BEGIN:
            HTTP_LOG("translation begin.");
            (void)cli_printf("Press Ctrl+C to quit\n");
            cli_flush();
            break;
        case HTTP_UTIL_PROGRESS_HEAD:
        case HTTP_UTIL_PROGRESS_BODY:
        case HTTP_UTIL_PROGRESS_SEND: {
            struct timespec now = {0, 0};
            (void)clock_gettime(CLOCK_MONOTONIC, &now);
            if (tick_due(url->last_tick, now)) {
                HTTP_LOG("translation: %u.", count);
                (void)cli_printf(count != 0 ? "!" : ".");
                cli_flush();
                url->last_tick[0] = static_cast<int32_t>(now.tv_sec);
                url->last_tick[1] = static_cast<int32_t>(now.tv_nsec);
            }
            break;
        }
        case HTTP_UTIL_PROGRESS_END:
            (void)cli_printf("\n");
            cli_flush();
            break;
        default:
            break;
        }
        // Every call polls, so a Ctrl+C is seen at the next report of any kind.
        if (cli_getc_no_block() == kCtrlC) result = -1;
    }
    if (update_record(stage, ref, count) != 0) result = -1;
    return result;
}
