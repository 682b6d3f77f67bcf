#include "interpose.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/select.h>
#include <string.h>
#include <unistd.h>

#include <mutex>

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t n, size_t size);
void *__real_realloc(void *p, size_t size);
FILE *__real_fopen(const char *path, const char *mode);
FILE *__real_fopen64(const char *path, const char *mode);
}

namespace interpose {

std::string fail_open_path;
int open_failures = 0;
std::vector<timeval> pauses;
bool skip_pauses = false;
std::string fail_strdup_text;
std::string taken_prefix;
std::string fail_unlink_path;
std::vector<std::string> file_calls;
int fail_fsync_errno = 0;
size_t fail_calloc_bytes = 0;
int watch_write_fd = -1;
std::vector<size_t> writes;
std::set<int> sockopt_pretend_ok;
int fail_bind_errno = 0;
std::atomic<bool> force_waiting_path{false};

namespace {
std::mutex sockopt_mutex;
std::vector<SockoptCall> sockopt_log;

thread_local bool alloc_armed = false;
int alloc_count = 0;
int alloc_fail_at = 0;
}  // namespace

void arm_allocation_failure(int fail_at) {
    alloc_count = 0;
    alloc_fail_at = fail_at;
    alloc_armed = true;
}

int disarm_allocation_failure() {
    alloc_armed = false;
    return alloc_count;
}

// True when this allocation is the one to fail (errno is then ENOMEM).
bool fail_this_allocation() {
    if (!alloc_armed || ++alloc_count != alloc_fail_at) return false;
    errno = ENOMEM;
    return true;
}

std::vector<SockoptCall> sockopt_calls() {
    std::lock_guard<std::mutex> lock(sockopt_mutex);
    return sockopt_log;
}
std::optional<timespec> fake_monotonic;
int fake_monotonic_reads = 0;

void reset() {
    fail_open_path.clear();
    open_failures = 0;
    pauses.clear();
    skip_pauses = false;
    fail_strdup_text.clear();
    taken_prefix.clear();
    fail_unlink_path.clear();
    file_calls.clear();
    fail_fsync_errno = 0;
    fail_calloc_bytes = 0;
    watch_write_fd = -1;
    fail_bind_errno = 0;
    force_waiting_path = false;
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
using access_fn = int (*)(const char *, int);
using unlink_fn = int (*)(const char *);
using rename_fn = int (*)(const char *, const char *);
using fsync_fn = int (*)(int);
using select_fn = int (*)(int, fd_set *, fd_set *, fd_set *, timeval *);
using write_fn = ssize_t (*)(int, const void *, size_t);
using send_fn = ssize_t (*)(int, const void *, size_t, int);
using recv_fn = ssize_t (*)(int, void *, size_t, int);
using poll_fn = int (*)(pollfd *, nfds_t, int);
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

// With 64-bit file offsets on a 32-bit target (the ARM build), <fcntl.h>
// names open as open64 already: this one definition is the symbol open64.
#if defined(__USE_FILE_OFFSET64) && __SIZEOF_LONG__ == 4
#define HTTP_UTIL_OPEN_IS_OPEN64 1
#endif

int open(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
#ifdef HTTP_UTIL_OPEN_IS_OPEN64
    return forward_open("open64", path, flags, mode);
#else
    return forward_open("open", path, flags, mode);
#endif
}

#ifndef HTTP_UTIL_OPEN_IS_OPEN64
int open64(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    return forward_open("open64", path, flags, mode);
}
#endif

// Linked with --wrap: the test binaries' own calls come here, the C
// library's internal ones (dlsym among them) do not.
void *__wrap_calloc(size_t n, size_t size) {
    if ((interpose::fail_calloc_bytes != 0 && n * size == interpose::fail_calloc_bytes) ||
        interpose::fail_this_allocation()) {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_calloc(n, size);
}

void *__wrap_malloc(size_t size) {
    return interpose::fail_this_allocation() ? nullptr : __real_malloc(size);
}

void *__wrap_realloc(void *p, size_t size) {
    return interpose::fail_this_allocation() ? nullptr : __real_realloc(p, size);
}

// With 64-bit file offsets on a 32-bit target the library calls fopen64.
FILE *__wrap_fopen(const char *path, const char *mode) {
    return interpose::fail_this_allocation() ? nullptr : __real_fopen(path, mode);
}

FILE *__wrap_fopen64(const char *path, const char *mode) {
    return interpose::fail_this_allocation() ? nullptr : __real_fopen64(path, mode);
}

ssize_t write(int fd, const void *buf, size_t count) {
    if (interpose::watch_write_fd != -1 && fd == interpose::watch_write_fd)
        interpose::writes.push_back(count);
    return real<write_fn>("write")(fd, buf, count);
}

ssize_t send(int fd, const void *buf, size_t count, int flags) {
    if (interpose::watch_write_fd != -1 && fd == interpose::watch_write_fd)
        interpose::writes.push_back(count);
    return real<send_fn>("send")(fd, buf, count, flags);
}

ssize_t recv(int fd, void *buf, size_t count, int flags) {
    if (interpose::force_waiting_path && (flags & MSG_DONTWAIT) != 0) {
        errno = EAGAIN;
        return -1;
    }
    return real<recv_fn>("recv")(fd, buf, count, flags);
}

int poll(pollfd *fds, nfds_t n, int timeout) {
    if (interpose::force_waiting_path && timeout == 0) {
        for (nfds_t i = 0; i < n; ++i) fds[i].revents = 0;
        return 0;
    }
    return real<poll_fn>("poll")(fds, n, timeout);
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

int select(int nfds, fd_set *rd, fd_set *wr, fd_set *ex, timeval *timeout) {
    if (nfds == 0 && timeout != nullptr) {
        interpose::pauses.push_back(*timeout);
        if (interpose::skip_pauses) return 0;
    }
    return reinterpret_cast<select_fn>(dlsym(RTLD_NEXT, "select"))(nfds, rd, wr, ex, timeout);
}

char *strdup(const char *s) noexcept {
    if (!interpose::fail_strdup_text.empty() && interpose::fail_strdup_text == s) {
        errno = ENOMEM;
        return nullptr;
    }
    size_t n = strlen(s) + 1;
    auto *copy = static_cast<char *>(malloc(n));
    if (copy != nullptr) memcpy(copy, s, n);
    return copy;
}

int access(const char *path, int mode) noexcept {
    if (!interpose::taken_prefix.empty() &&
        strncmp(path, interpose::taken_prefix.c_str(), interpose::taken_prefix.size()) == 0)
        return 0;
    return reinterpret_cast<access_fn>(dlsym(RTLD_NEXT, "access"))(path, mode);
}

int fsync(int fd) {
    char link[32], target[4096];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    ssize_t n = readlink(link, target, sizeof target);
    interpose::file_calls.push_back("fsync " +
                                    std::string(target, n > 0 ? static_cast<size_t>(n) : 0));
    if (interpose::fail_fsync_errno != 0) {
        errno = interpose::fail_fsync_errno;
        return -1;
    }
    return real<fsync_fn>("fsync")(fd);
}

int rename(const char *from, const char *to) noexcept {
    interpose::file_calls.push_back(std::string("rename ") + from + " " + to);
    return real<rename_fn>("rename")(from, to);
}

int unlink(const char *path) noexcept {
    if (!interpose::fail_unlink_path.empty() && interpose::fail_unlink_path == path) {
        errno = EPERM;
        return -1;
    }
    return reinterpret_cast<unlink_fn>(dlsym(RTLD_NEXT, "unlink"))(path);
}

}  // extern "C"
