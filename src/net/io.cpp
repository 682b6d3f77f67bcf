// Readiness wait and the raw descriptor I/O built on it.
#include "net/io.h"

#include <arpa/inet.h>
#include <errno.h>
#include <limits.h>
#include <netinet/in.h>
#include <stdio.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include "frame/log.h"
#include "http_util.h"

namespace http_util_internal {

int64_t monotonic_ms() {
    struct timespec now = {0, 0};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

int http_select_fd(int fd, int seconds, int direction) {
    return http_select_fd(fd, wait_of_seconds(seconds), direction);
}

// A fresh epoll instance per wait keeps the function free of state.
int http_select_fd(int fd, WaitMs wait, int direction) {
    int ep = epoll_create(1);
    if (ep < 0) {
        HTTP_LOG("epoll fd create fail.");
        return -1;
    }
    struct epoll_event ev = {};
    ev.events = direction == kWaitRead ? EPOLLIN : EPOLLOUT;
    ev.data.fd = fd;
    if (epoll_ctl(ep, EPOLL_CTL_ADD, fd, &ev) < 0) {
        int saved = errno;
        (void)close(ep);
        errno = saved;
        HTTP_LOG("epoll add ctl fail, fd %d.", fd);
        return -1;
    }
    struct epoll_event out = {};
    int n = epoll_wait(ep, &out, 1, wait.ms > 0 ? wait.ms : 0);
    int saved = errno;
    (void)close(ep);
    errno = saved;
    return n;
}

}  // namespace http_util_internal

namespace {

using http_util_internal::http_select_fd;
using http_util_internal::kWaitRead;
using http_util_internal::kWaitWrite;

constexpr int kWriteWaits = 5;
constexpr int kOnceCalls = 6;

bool transient(int err) { return err == EINTR || err == EAGAIN; }

// A socket whose peer has gone makes a plain write raise SIGPIPE, whose
// default action kills the host program; the library may neither catch the
// signal nor touch the process's signal mask, so it asks send to fail with
// EPIPE instead. A descriptor that is not a socket gets a plain write.
ssize_t write_no_sigpipe(int fd, const void *buf, size_t count) {
    ssize_t n = send(fd, buf, count, MSG_NOSIGNAL);
    if (n == -1 && errno == ENOTSOCK) n = write(fd, buf, count);
    return n;
}

// After a failed readiness wait: -1, with ETIMEDOUT when the limit passed.
int wait_failed(int ready) {
    if (ready == 0) errno = ETIMEDOUT;
    return -1;
}

// One read or write, repeated at once while it is interrupted or would block.
template <typename Call>
int once_retrying(Call call) {
    for (int i = 0; i < kOnceCalls; ++i) {
        ssize_t n = call();
        if (n != -1) return static_cast<int>(n);
        if (!transient(errno)) return -1;
    }
    return -1;
}

// Errors of the call itself rather than of the connection: nothing was
// taken from the socket, so the waiting path meets the same state and
// reports it in its own way (a descriptor that cannot be watched is logged
// by the wait, for example). Every other error is one the socket held; the
// waiting path's wait would have ended at once on it and its call would
// have returned it, but it is gone once read.
bool call_refused(int err) {
    switch (err) {
    case EAGAIN:
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
    case EINTR:
    case EBADF:
    case ENOTSOCK:
    case EFAULT:
    case EINVAL:
    case ENOTCONN:
    case EOPNOTSUPP:
    case ENOMEM:
    case ENOBUFS:
        return true;
    default:
        return false;
    }
}

}  // namespace

namespace http_util_internal {

bool recv_at_once(int fd, void *buf, size_t len, int flags, int *result) {
    // A zero-length call returns at once where the waiting path waits first.
    if (len == 0) return false;
    int before = errno;
    ssize_t n = recv(fd, buf, len, flags | MSG_DONTWAIT);
    if (n >= 0 || !call_refused(errno)) {
        *result = static_cast<int>(n);
        return true;
    }
    errno = before;
    return false;
}

int fast_read(int fd, void *buf, unsigned max, int seconds) {
    int n;
    if (recv_at_once(fd, buf, max, 0, &n)) return n;
    return http_util_fd_read(fd, buf, max, seconds);
}

// A write is not tried blind: a send that finds some room takes bytes where
// the wait, which asks for a third of the buffer free, would still hold
// back, and a stalled peer would then see other progress and time-outs.
// The wait's own readiness test, asked without waiting, keeps them alike.
int fast_write_nonblock(int fd, const void *buf, unsigned count, int seconds) {
    pollfd p = {fd, POLLOUT, 0};
    int before = errno;
    if (poll(&p, 1, 0) == 1 && (p.revents & POLLNVAL) == 0)
        return once_retrying([&] { return write_no_sigpipe(fd, buf, count); });
    errno = before;
    return http_util_fd_write_nonblock(fd, buf, count, seconds);
}

}  // namespace http_util_internal

extern "C" {

HTTP_UTIL_API int http_util_fd_write(int fd, const void *buf, int count, int /*timeout*/) {
    if (fd == -1) return -1;
    if (count == 0) return 0;
    const char *p = static_cast<const char *>(buf);
    size_t left = static_cast<size_t>(count);
    int waits = 0;
    for (;;) {
        ssize_t n = write_no_sigpipe(fd, p, left);
        if (n > 0) {
            p += n;
            left -= static_cast<size_t>(n);
            if (left == 0) return 0;
            continue;
        }
        if (n == 0 || !transient(errno)) return -1;
        if (waits >= kWriteWaits) return -1;
        ++waits;
        (void)http_select_fd(fd, 1, kWaitWrite);
    }
}

// The wait is logged here and not in a shared helper, so that the record
// names the function the caller called.
HTTP_UTIL_API int http_util_fd_write_nonblock(int fd, const void *buf, unsigned count,
                                              int seconds) {
    int ready = http_select_fd(fd, seconds, kWaitWrite);
    if (ready <= 0) {
        HTTP_LOG("select failed, return: %d", ready);
        return wait_failed(ready);
    }
    return once_retrying([&] { return write_no_sigpipe(fd, buf, count); });
}

HTTP_UTIL_API int http_util_fd_read(int fd, void *buf, unsigned max, int seconds) {
    int ready = http_select_fd(fd, seconds, kWaitRead);
    if (ready <= 0) {
        HTTP_LOG("select failed, return: %d", ready);
        return wait_failed(ready);
    }
    return once_retrying([&] { return read(fd, buf, max); });
}

// An IP address as text, then " port" when the port is set.
static const char *ip_text(char (&text)[128], int family, const void *addr, uint16_t net_port) {
    if (inet_ntop(family, addr, text, sizeof text) == nullptr) return "NULL";
    if (net_port != 0) {
        size_t len = strlen(text);
        snprintf(text + len, sizeof text - len, " %d", ntohs(net_port));
    }
    return text;
}

HTTP_UTIL_API const char *http_sock_ntop(const struct sockaddr *sa, int salen) {
    // One area per thread: parallel transfers never show each other's
    // address. Initial-exec, so that no __tls_get_addr call makes the
    // library depend on the dynamic loader; the 128 bytes come from the
    // static TLS that the C library keeps for libraries opened later.
    static thread_local char text[128] __attribute__((tls_model("initial-exec")));
    switch (sa->sa_family) {
    case AF_INET: {
        const auto *sin = reinterpret_cast<const sockaddr_in *>(sa);
        return ip_text(text, AF_INET, &sin->sin_addr, sin->sin_port);
    }
    case AF_INET6: {
        const auto *sin6 = reinterpret_cast<const sockaddr_in6 *>(sa);
        return ip_text(text, AF_INET6, &sin6->sin6_addr, sin6->sin6_port);
    }
    case AF_UNIX: {
        const auto *sun = reinterpret_cast<const sockaddr_un *>(sa);
        if (sun->sun_path[0] == '\0')
            snprintf(text, sizeof text, "(no pathname bound)");
        else
            snprintf(text, sizeof text, "%.*s", static_cast<int>(sizeof sun->sun_path),
                     sun->sun_path);
        return text;
    }
    default:
        snprintf(text, sizeof text, "sock_ntop: unknown AF_xxx: %d, len %d", sa->sa_family,
                 salen);
        return text;
    }
}

}  // extern "C"
