// Logging wrapper and system log on the host.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <time.h>

#include "host_lock.h"
#include "http_util_host.h"
#include "platform/device.h"

namespace {

using http_util_host_internal::MutexLock;

struct Category {
    char name[64];
};

pthread_mutex_t log_mutex = PTHREAD_MUTEX_INITIALIZER;
FILE *log_out = nullptr;
bool log_chosen = false;
Category category;
http_util_host_log_hook log_hook = nullptr;
void *log_hook_ctx = nullptr;

int open_log_locked(const char *path) {
    if (log_out != nullptr && log_out != stderr) fclose(log_out);
    log_out = nullptr;
    log_chosen = true;
    if (path == nullptr || *path == '\0') return 0;
    if (strcmp(path, "-") == 0) {
        log_out = stderr;
        return 0;
    }
    log_out = fopen(path, "ae");
    return log_out != nullptr ? 0 : -1;
}

}  // namespace

extern "C" {

int http_util_host_set_log(const char *path) {
    MutexLock lock(&log_mutex);
    return open_log_locked(path);
}

void http_util_host_set_log_hook(http_util_host_log_hook hook, void *ctx) {
    MutexLock lock(&log_mutex);
    log_hook = hook;
    log_hook_ctx = ctx;
}

void *qz_zlog_init(const char *name) {
    MutexLock lock(&log_mutex);
    if (!log_chosen) (void)open_log_locked(getenv("HTTP_UTIL_HOST_LOG"));
    snprintf(category.name, sizeof category.name, "%s", name != nullptr ? name : "");
    return &category;
}

void qzdf_zlog(void *cat, const char *file, size_t filelen, const char *func, size_t funclen,
               long line, int level, const char *format, ...) {
    if (cat == nullptr) return;
    char text[1024];
    va_list ap;
    va_start(ap, format);
    vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    http_util_host_log_hook hook = nullptr;
    void *hook_ctx = nullptr;
    {
        MutexLock lock(&log_mutex);
        hook = log_hook;
        hook_ctx = log_hook_ctx;
        if (log_out != nullptr) {
            struct timespec ts = {0, 0};
            clock_gettime(CLOCK_REALTIME, &ts);
            struct tm tm_buf;
            char stamp[32] = "";
            if (localtime_r(&ts.tv_sec, &tm_buf) != nullptr)
                strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tm_buf);
            fprintf(log_out, "%s.%03ld %s %d %.*s %.*s:%ld %s\n", stamp, ts.tv_nsec / 1000000,
                    static_cast<Category *>(cat)->name, level, static_cast<int>(filelen), file,
                    static_cast<int>(funclen), func, line, text);
            fflush(log_out);
        }
    }
    // Outside the lock: the hook may write to the log or change it.
    if (hook != nullptr) {
        char name[64];
        snprintf(name, sizeof name, "%.*s", static_cast<int>(funclen), func);
        hook(hook_ctx, name, text);
    }
}

int printk_syslog_ext(int priority, const char *module, const char *level, int /*flag*/,
                      const char *format, ...) {
    char text[1024];
    va_list ap;
    va_start(ap, format);
    vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    syslog(LOG_USER | (priority & LOG_PRIMASK), "%s %s: %s", module, level, text);
    return 0;
}

int at_snprintf(char *buf, size_t size, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(buf, size, format, ap);
    va_end(ap);
    return n;
}

}  // extern "C"
