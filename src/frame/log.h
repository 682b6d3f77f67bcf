// The one log step of the library. A log point is
//     HTTP_LOG("format %d", value);
// and names its source module, the enclosing function and the line.
// The platform services have no va_list form, so the step is a macro that
// hands the format and arguments to each of them directly.
#ifndef HTTP_UTIL_FRAME_LOG_H
#define HTTP_UTIL_FRAME_LOG_H

#include <errno.h>
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

// Hands one formatted record to the platform log when a category exists.
void log_emit(const char *module, size_t module_len, const char *func, size_t func_len,
              long line, const char *text);

}  // namespace http_util_internal

// errno is kept across the step: descriptor-level callers report through it.
#define HTTP_LOG(...)                                                                       \
    do {                                                                                    \
        if (g_http_opt.debug) {                                                             \
            int http_log_errno_ = errno;                                                    \
            (void)printk_syslog_ext(http_util_internal::kLogPriority, "HTTP_UTIL", "DEBUG", \
                                    1, __VA_ARGS__);                                        \
            errno = http_log_errno_;                                                        \
        }                                                                                   \
        if (g_http_util_zlog_level > 4) {                                                   \
            int http_log_errno_ = errno;                                                    \
            char http_log_buf_[http_util_internal::kLogBufSize];                           \
            memset(http_log_buf_, 0, sizeof http_log_buf_);                                 \
            (void)at_snprintf(http_log_buf_, sizeof http_log_buf_, __VA_ARGS__);            \
            http_util_internal::log_emit(HTTP_LOG_MODULE, sizeof(HTTP_LOG_MODULE) - 1,      \
                                         __func__, sizeof(__func__) - 1, __LINE__,          \
                                         http_log_buf_);                                    \
            errno = http_log_errno_;                                                        \
        }                                                                                   \
    } while (0)

#endif
