// The one log step of the library. A log point is
//     HTTP_LOG("format %d", value);
// and names its source module, the enclosing function and the line.
// The platform services have no va_list form, so the step is a macro that
// hands the format and arguments to each of them directly.
#ifndef HTTP_UTIL_FRAME_LOG_H
#define HTTP_UTIL_FRAME_LOG_H

#include <errno.h>
#include <stdint.h>
#include <string.h>

#include "http_util.h"
#include "platform/device.h"

// Files of the upload side define this to "http_upload" before including.
#ifndef HTTP_LOG_MODULE
#define HTTP_LOG_MODULE "http_util"
#endif

namespace http_util_internal {

constexpr int kLogPriority = 7;   // system log: debug
constexpr int kLogLevel = 20;     // zlog: debug
constexpr size_t kLogBufSize = 1024;

// The two source modules a record can name.
constexpr const char *kLogModules[] = {"http_util", "http_upload"};

constexpr bool log_same(const char *a, const char *b) {
    while (*a != '\0' && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

// Where a log point sits, packed into one word so that a point passes its
// origin in a register: the line, the module and the function name's length.
constexpr uint32_t log_origin(const char *module, size_t func_len, long line) {
    return static_cast<uint32_t>(line) << 16 | (log_same(module, kLogModules[1]) ? 1u : 0u) << 15 |
           static_cast<uint32_t>(func_len);
}

// The module and function a record names, for log points that do not sit
// in the function they log for (HTTP_LOG_AS).
struct LogName {
    const char *module;  // one of kLogModules
    const char *func;
};

// The parts of the step that do not depend on the format live out of line:
// a log point then holds little more than its tests and its two formatting
// calls, which keeps the library small (there are some 150 points).
// errno is kept across the step: descriptor-level callers report through it.
int log_saved_errno();
void log_restore_errno(int saved);
// Clears the text buffer; returns errno as it stood.
int log_clear(char (&text)[kLogBufSize]);
// Hands one formatted record to the platform log when a category exists,
// then puts errno back.
void log_emit(const char *func, uint32_t origin, const char *text, int saved_errno);

}  // namespace http_util_internal

// The step itself, for a record named func with origin as log_origin packs it.
#define HTTP_LOG_EMIT_(func, origin, ...)                                                    \
    do {                                                                                     \
        if (g_http_opt.debug) {                                                              \
            int http_log_errno_ = http_util_internal::log_saved_errno();                     \
            (void)printk_syslog_ext(http_util_internal::kLogPriority, "HTTP_UTIL", "DEBUG",  \
                                    1, __VA_ARGS__);                                         \
            http_util_internal::log_restore_errno(http_log_errno_);                          \
        }                                                                                    \
        if (g_http_util_zlog_level > 4) {                                                    \
            char http_log_buf_[http_util_internal::kLogBufSize];                            \
            int http_log_errno_ = http_util_internal::log_clear(http_log_buf_);              \
            (void)at_snprintf(http_log_buf_, sizeof http_log_buf_, __VA_ARGS__);             \
            http_util_internal::log_emit(func, origin, http_log_buf_, http_log_errno_);      \
        }                                                                                    \
    } while (0)

// A record of the enclosing function.
#define HTTP_LOG(...)                                                                        \
    do {                                                                                     \
        static_assert(__LINE__ < 0x10000 && sizeof(__func__) < 0x8000, "origin fits");      \
        static_assert(http_util_internal::log_same(HTTP_LOG_MODULE, "http_util") ||          \
                          http_util_internal::log_same(HTTP_LOG_MODULE, "http_upload"),      \
                      "a known module");                                                     \
        HTTP_LOG_EMIT_(__func__,                                                             \
                       http_util_internal::log_origin(HTTP_LOG_MODULE, sizeof(__func__) - 1, \
                                                      __LINE__),                             \
                       __VA_ARGS__);                                                         \
    } while (0)

// A record of a step that works for several functions, named after the one
// it works for (a LogName), so that moving a log point into a shared step
// leaves the record as it was.
#define HTTP_LOG_AS(name, ...)                                                               \
    do {                                                                                     \
        static_assert(__LINE__ < 0x10000, "origin fits");                                    \
        const http_util_internal::LogName &http_log_name_ = (name);                          \
        HTTP_LOG_EMIT_(http_log_name_.func,                                                  \
                       http_util_internal::log_origin(http_log_name_.module,                 \
                                                      strlen(http_log_name_.func), __LINE__), \
                       __VA_ARGS__);                                                         \
    } while (0)

#endif
