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

void http_util_internal::log_emit(const char *module, size_t module_len, const char *func,
                                  size_t func_len, long line, const char *text) {
    if (g_http_util_zlog_category == nullptr) return;
    qzdf_zlog(g_http_util_zlog_category, module, module_len, func, func_len, line,
              kLogLevel, "%s", text);
}

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
