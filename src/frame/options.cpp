// Process-wide options, the debug switch and the once-only log set-up.
#include <pthread.h>

#include "frame/log.h"
#include "http_util.h"
#include "platform/device.h"

extern "C" {

HTTP_UTIL_API http_opt g_http_opt = {5, 5, 5, 5, 30, 0, 1, 0};
HTTP_UTIL_API uint32_t g_http_util_zlog_level = 5;
HTTP_UTIL_API void *g_http_util_zlog_category = nullptr;

}  // extern "C"

namespace {

pthread_once_t init_once = PTHREAD_ONCE_INIT;

// The category is published with release ordering, and read with acquire
// ordering by every record: a thread that logs without having called
// http_util_init itself sees either no category or a set-up one.
void init_log() {
    __atomic_store_n(&g_http_util_zlog_category, qz_zlog_init("http_util"), __ATOMIC_RELEASE);
}

}  // namespace

namespace http_util_internal {

int log_saved_errno() { return errno; }

void log_restore_errno(int saved) { errno = saved; }

int log_clear(char (&text)[kLogBufSize]) {
    int saved = errno;
    memset(text, 0, sizeof text);
    return saved;
}

void log_emit(const char *func, uint32_t origin, const char *text, int saved_errno) {
    void *category = __atomic_load_n(&g_http_util_zlog_category, __ATOMIC_ACQUIRE);
    if (category != nullptr) {
        const char *module = kLogModules[origin >> 15 & 1];
        qzdf_zlog(category, module, strlen(module), func, origin & 0x7fff,
                  static_cast<long>(origin >> 16), kLogLevel, "%s", text);
    }
    errno = saved_errno;
}

}  // namespace http_util_internal

extern "C" {

HTTP_UTIL_API void http_open_debug(void) { g_http_opt.debug = 1; }

HTTP_UTIL_API void http_close_debug(void) { g_http_opt.debug = 0; }

HTTP_UTIL_API void http_set_options(const http_opt *opt) { g_http_opt = *opt; }

// Runs the set-up once, however many threads arrive together; the others
// wait until it is done. A failed set-up (NULL category) is kept: logging
// stays off rather than asking the platform again on every transfer.
HTTP_UTIL_API void http_util_init(void) { (void)pthread_once(&init_once, init_log); }

}  // extern "C"
