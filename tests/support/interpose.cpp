#include "interpose.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <string.h>
#include <unistd.h>

#include <mutex>

extern "C" void *__real_calloc(size_t n, size_t size);

namespace interpose {

std::string fail_open_path;
int open_failures = 0;
size_t fail_calloc_bytes = 0;
int watch_write_fd = -1;
std::vector<size_t> writes;
std::set<int> sockopt_pretend_ok;
int fail_bind_errno = 0;

namespace {
std::mutex sockopt_mutex;
std::vector<SockoptCall> sockopt_log;
}  // namespace

std::vector<SockoptCall> sockopt_calls() {
    std::lock_guard<std::mutex> lock(sockopt_mutex);
    return sockopt_log;
}
std::optional<timespec> fake_monotonic;
int fake_monotonic_reads = 0;

void reset() {
    fail_open_path.clear();
    open_failures = 0;
    fail_calloc_bytes = 0;
    watch_write_fd = -1;
    fail_bind_errno = 0;
    writes.clear();
    std::lock_guard<std::mutex> lock(sockopt_mutex);
    sockopt_log.clear();
    sockopt_pretend_ok.clear();
    fake_monotonic.reset();
    fake_monotonic_reads = 0;
}

}  // namespace interpose

namespace {

using open_fn = int (*)(const char *, int, ...);
using write_fn = ssize_t (*)(int, const void *, size_t);
using setsockopt_fn = int (*)(int, int, int, const void *, socklen_t);
using bind_fn = int (*)(int, const sockaddr *, socklen_t);
using clock_gettime_fn = int (*)(clockid_t, struct timespec *);

template <typename Fn>
Fn real(const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

int forward_open(const char *name, const char *path, int flags, mode_t mode) {
    if (!interpose::fail_open_path.empty() && interpose::fail_open_path == path) {
        ++interpose::open_failures;
        errno = ENOENT;
        return -1;
    }
    return real<open_fn>(name)(path, flags, mode);
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

// Linked with --wrap=calloc: the test binaries' own calls come here, the
// C library's internal ones (dlsym among them) do not.
void *__wrap_calloc(size_t n, size_t size) {
    if (interpose::fail_calloc_bytes != 0 && n * size == interpose::fail_calloc_bytes) {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_calloc(n, size);
}

ssize_t write(int fd, const void *buf, size_t count) {
    if (interpose::watch_write_fd != -1 && fd == interpose::watch_write_fd)
        interpose::writes.push_back(count);
    return real<write_fn>("write")(fd, buf, count);
}

int setsockopt(int fd, int level, int name, const void *value, socklen_t len) {
    std::lock_guard<std::mutex> lock(interpose::sockopt_mutex);
    int v = 0;
    if (len == sizeof v) memcpy(&v, value, sizeof v);
    int result = interpose::sockopt_pretend_ok.count(name) != 0
                     ? 0
                     : real<setsockopt_fn>("setsockopt")(fd, level, name, value, len);
    int saved = errno;
    interpose::sockopt_log.push_back({fd, level, name, v, len, result});
    errno = saved;
    return result;
}

int bind(int fd, const sockaddr *addr, socklen_t len) {
    if (interpose::fail_bind_errno != 0) {
        errno = interpose::fail_bind_errno;
        return -1;
    }
    return real<bind_fn>("bind")(fd, addr, len);
}

int clock_gettime(clockid_t clock, struct timespec *ts) noexcept {
    if (clock == CLOCK_MONOTONIC && interpose::fake_monotonic) {
        ++interpose::fake_monotonic_reads;
        *ts = *interpose::fake_monotonic;
        return 0;
    }
    static auto forward = real<clock_gettime_fn>("clock_gettime");
    return forward(clock, ts);
}

}  // extern "C"
