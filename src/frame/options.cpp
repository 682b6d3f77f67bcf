// Process-wide options, the debug switch and the once-only log set-up.
#include "frame/log.h"
#include "http_util.h"
#include "platform/device.h"

extern "C" {

HTTP_UTIL_API http_opt g_http_opt = {5, 5, 5, 5, 30, 0, 1, 0};
HTTP_UTIL_API uint32_t g_http_util_zlog_level = 5;
HTTP_UTIL_API void *g_http_util_zlog_category = nullptr;

}  // extern "C"

namespace {
int inited = 0;
}

namespace http_util_internal {

int log_saved_errno() { return errno; }

void log_restore_errno(int saved) { errno = saved; }

int log_clear(char (&text)[kLogBufSize]) {
    int saved = errno;
    memset(text, 0, sizeof text);
    return saved;
}

void log_emit(const char *func, uint32_t origin, const char *text, int saved_errno) {
    if (g_http_util_zlog_category != nullptr) {
        const char *module = kLogModules[origin >> 15 & 1];
        qzdf_zlog(g_http_util_zlog_category, module, strlen(module), func, origin & 0x7fff,
                  static_cast<long>(origin >> 16), kLogLevel, "%s", text);
    }
    errno = saved_errno;
}

}  // namespace http_util_internal

extern "C" {

HTTP_UTIL_API void http_open_debug(void) { g_http_opt.debug = 1; }

HTTP_UTIL_API void http_close_debug(void) { g_http_opt.debug = 0; }

HTTP_UTIL_API void http_set_options(const http_opt *opt) { g_http_opt = *opt; }

// A failed set-up (NULL category) is kept: logging stays off rather than
// asking the platform again on every transfer.
HTTP_UTIL_API void http_util_init(void) {
    if (inited) return;
    g_http_util_zlog_category = qz_zlog_init("http_util");
    inited = 1;
}

}  // extern "C"
