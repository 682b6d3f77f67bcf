#include "interpose.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <unistd.h>

#include <mutex>

namespace interpose {

std::string fail_open_path, fail_unlink_path, taken_prefix;
int fail_bind_errno, fail_fsync_errno;
std::atomic<int> watch_write_fd{-1};
size_t fail_calloc_bytes;
std::vector<size_t> writes;
std::vector<std::string> file_calls;
std::set<int> sockopt_pretend_ok;
std::atomic<bool> force_waiting_path{false};
std::optional<timespec> fake_monotonic;
std::vector<timeval> pauses;
bool skip_pauses;

std::mutex sockopt_mutex;
std::vector<SockoptCall> sockopt_log;
thread_local bool alloc_armed;
int alloc_count, alloc_fail_at;

void arm_allocation_failure(int fail_at) {
    alloc_count = 0;
    alloc_fail_at = fail_at;
    alloc_armed = true;
}
int disarm_allocation_failure() {
    alloc_armed = false;
    return alloc_count;
}
bool fail_this_allocation() {
    if (!alloc_armed || ++alloc_count != alloc_fail_at) return false;
    errno = ENOMEM;
    return true;
}

std::vector<SockoptCall> sockopt_calls() {
    std::lock_guard<std::mutex> lock(sockopt_mutex);
    return sockopt_log;
}

void reset() {
    fail_open_path = fail_unlink_path = taken_prefix = "";
    fail_bind_errno = fail_fsync_errno = 0;
    watch_write_fd = -1;
    fail_calloc_bytes = 0;
    writes = {};
    file_calls = {};
    pauses = {};
    force_waiting_path = skip_pauses = false;
    fake_monotonic.reset();
    std::lock_guard<std::mutex> lock(sockopt_mutex);
    sockopt_log = {};
    sockopt_pretend_ok = {};
}

}  // namespace interpose

using namespace interpose;

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t n, size_t size);
void *__real_realloc(void *p, size_t size);
FILE *__real_fopen(const char *path, const char *mode);
FILE *__real_fopen64(const char *path, const char *mode);
}

// The C library's own definition of fn, called with the arguments.
#define REAL(fn) reinterpret_cast<decltype(&fn)>(dlsym(RTLD_NEXT, #fn))

extern "C" {

// With 64-bit file offsets on a 32-bit target (the ARM build), <fcntl.h>
// names open as open64: then this definition is open64, as is the one it calls.
int open(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) ? static_cast<mode_t>(va_arg(ap, int)) : 0;
    va_end(ap);
    const char *real = sizeof(off_t) == 8 && sizeof(long) == 4 ? "open64" : "open";
    if (fail_open_path.empty() || fail_open_path != path)
        return reinterpret_cast<int (*)(const char *, int, ...)>(dlsym(RTLD_NEXT, real))(path, flags, mode);
    errno = ENOENT;
    return -1;
}

// Linked with --wrap: the test binaries' own calls come here, the C
// library's internal ones (dlsym among them) do not.
void *__wrap_calloc(size_t n, size_t size) {
    if ((fail_calloc_bytes == 0 || n * size != fail_calloc_bytes) && !fail_this_allocation()) return __real_calloc(n, size);
    errno = ENOMEM;
    return nullptr;
}
void *__wrap_malloc(size_t size) { return fail_this_allocation() ? nullptr : __real_malloc(size); }
void *__wrap_realloc(void *p, size_t size) { return fail_this_allocation() ? nullptr : __real_realloc(p, size); }
// With 64-bit file offsets on a 32-bit target the library calls fopen64.
FILE *__wrap_fopen(const char *path, const char *mode) { return fail_this_allocation() ? nullptr : __real_fopen(path, mode); }
FILE *__wrap_fopen64(const char *path, const char *mode) {
    return fail_this_allocation() ? nullptr : __real_fopen64(path, mode);
}
// Takes its copy from malloc, where the sweep sees it.
char *strdup(const char *s) noexcept {
    size_t n = strlen(s) + 1;
    void *copy = malloc(n);
    return static_cast<char *>(copy != nullptr ? memcpy(copy, s, n) : nullptr);
}

ssize_t write(int fd, const void *buf, size_t count) {
    if (watch_write_fd != -1 && fd == watch_write_fd) writes.push_back(count);
    return REAL(write)(fd, buf, count);
}
ssize_t send(int fd, const void *buf, size_t count, int flags) {
    if (watch_write_fd != -1 && fd == watch_write_fd) writes.push_back(count);
    return REAL(send)(fd, buf, count, flags);
}
ssize_t recv(int fd, void *buf, size_t count, int flags) {
    if (!force_waiting_path || (flags & MSG_DONTWAIT) == 0) return REAL(recv)(fd, buf, count, flags);
    errno = EAGAIN;
    return -1;
}
int poll(pollfd *fds, nfds_t n, int timeout) {
    if (!force_waiting_path || timeout != 0) return REAL(poll)(fds, n, timeout);
    for (nfds_t i = 0; i < n; ++i) fds[i].revents = 0;
    return 0;
}
int setsockopt(int fd, int level, int name, const void *value, socklen_t len) {
    std::lock_guard<std::mutex> lock(sockopt_mutex);
    int v = 0;
    if (len == sizeof v) memcpy(&v, value, sizeof v);
    int result = sockopt_pretend_ok.count(name) != 0 ? 0 : REAL(setsockopt)(fd, level, name, value, len);
    int saved = errno;
    sockopt_log.push_back({level, name, v});
    errno = saved;
    return result;
}
int bind(int fd, const sockaddr *addr, socklen_t len) {
    if (fail_bind_errno == 0) return REAL(bind)(fd, addr, len);
    errno = fail_bind_errno;
    return -1;
}
int clock_gettime(clockid_t clock, struct timespec *ts) noexcept {
    static auto forward = REAL(clock_gettime);
    if (clock != CLOCK_MONOTONIC || !fake_monotonic) return forward(clock, ts);
    *ts = *fake_monotonic;
    return 0;
}
int select(int nfds, fd_set *rd, fd_set *wr, fd_set *ex, timeval *timeout) {
    if (nfds == 0 && timeout != nullptr) pauses.push_back(*timeout);
    return nfds == 0 && timeout != nullptr && skip_pauses ? 0 : REAL(select)(nfds, rd, wr, ex, timeout);
}
int access(const char *path, int mode) noexcept {
    return !taken_prefix.empty() && strncmp(path, taken_prefix.c_str(), taken_prefix.size()) == 0 ? 0 : REAL(access)(path, mode);
}
int unlink(const char *path) noexcept {
    if (fail_unlink_path.empty() || fail_unlink_path != path) return REAL(unlink)(path);
    errno = EPERM;
    return -1;
}
int fsync(int fd) {
    char target[4096];
    ssize_t n = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof target);
    file_calls.push_back("fsync " + std::string(target, n > 0 ? static_cast<size_t>(n) : 0));
    if (fail_fsync_errno == 0) return REAL(fsync)(fd);
    errno = fail_fsync_errno;
    return -1;
}
int rename(const char *from, const char *to) noexcept {
    file_calls.push_back(std::string("rename ") + from + " " + to);
    return REAL(rename)(from, to);
}

}  // extern "C"
