// Readiness wait: the bridge between the library's non-blocking sockets
// and the blocking calls it presents.
#ifndef HTTP_UTIL_NET_IO_H
#define HTTP_UTIL_NET_IO_H

#include <limits.h>
#include <stddef.h>
#include <stdint.h>

namespace http_util_internal {

constexpr int kWaitRead = 0;
constexpr int kWaitWrite = 1;

// The monotonic clock in milliseconds. 64 bits: a 32-bit long of
// milliseconds overflows after 24 days of uptime.
int64_t monotonic_ms();

// A wait given in milliseconds; 0 only looks.
struct WaitMs {
    int ms;
};

// A wait of whole seconds, as the seconds-taking waits read it: 0 or less
// is 5 seconds, and a huge limit is clamped rather than overflowed.
constexpr WaitMs wait_of_seconds(int seconds) {
    return WaitMs{seconds <= 0 ? 5000 : seconds > INT_MAX / 1000 ? INT_MAX : seconds * 1000};
}

// > 0 ready (errors and hang-ups included), 0 time limit passed, -1 failure.
// A limit of 0 or less waits 5 seconds.
int http_select_fd(int fd, int seconds, int direction);
int http_select_fd(int fd, WaitMs wait, int direction);

// The readiness fast path. A socket that already holds data (or room) needs
// no wait: the call is tried once without blocking, and only when that does
// not settle it does the wait-then-call path run, so results, errno, log
// records and progress calls stay those of the waiting path.

// One try of recv with MSG_DONTWAIT added to flags. True when it settled the
// call: bytes, the end of the stream, or an error the socket itself reported
// (taking it clears it, so it must not be asked for again), with the result
// in *result and errno as the call left it. False, with errno as it was
// before, when the waiting path has to run.
bool recv_at_once(int fd, void *buf, size_t len, int flags, int *result);

// http_util_fd_read with the fast path in front, for the library's own
// block reads.
int fast_read(int fd, void *buf, unsigned max, int seconds);
// http_util_fd_write_nonblock for the upload's blocks: the wait's readiness
// test is asked without waiting, and a ready socket is written at once.
int fast_write_nonblock(int fd, const void *buf, unsigned count, int seconds);

}  // namespace http_util_internal

#endif
