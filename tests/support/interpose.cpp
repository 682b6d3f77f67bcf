#include "interpose.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>

namespace interpose {

std::string fail_open_path;
int open_failures = 0;
std::optional<timespec> fake_monotonic;
int fake_monotonic_reads = 0;

void reset() {
    fail_open_path.clear();
    open_failures = 0;
    fake_monotonic.reset();
    fake_monotonic_reads = 0;
}

}  // namespace interpose

namespace {

using open_fn = int (*)(const char *, int, ...);
using clock_gettime_fn = int (*)(clockid_t, struct timespec *);

int forward_open(const char *name, const char *path, int flags, mode_t mode) {
    if (!interpose::fail_open_path.empty() && interpose::fail_open_path == path) {
        ++interpose::open_failures;
        errno = ENOENT;
        return -1;
    }
    auto real = reinterpret_cast<open_fn>(dlsym(RTLD_NEXT, name));
    return real(path, flags, mode);
}

mode_t mode_arg(int flags, va_list ap) {
    return (flags & (O_CREAT | O_TMPFILE)) ? static_cast<mode_t>(va_arg(ap, int)) : 0;
}

}  // namespace

extern "C" {

int open(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    return forward_open("open", path, flags, mode);
}

int open64(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    return forward_open("open64", path, flags, mode);
}

int clock_gettime(clockid_t clock, struct timespec *ts) noexcept {
    if (clock == CLOCK_MONOTONIC && interpose::fake_monotonic) {
        ++interpose::fake_monotonic_reads;
        *ts = *interpose::fake_monotonic;
        return 0;
    }
    static auto real = reinterpret_cast<clock_gettime_fn>(dlsym(RTLD_NEXT, "clock_gettime"));
    return real(clock, ts);
}

}  // extern "C"
