// Readiness wait: the bridge between the library's non-blocking sockets
// and the blocking calls it presents.
#ifndef HTTP_UTIL_NET_IO_H
#define HTTP_UTIL_NET_IO_H

namespace http_util_internal {

constexpr int kWaitRead = 0;
constexpr int kWaitWrite = 1;

// > 0 ready (errors and hang-ups included), 0 time limit passed, -1 failure.
// A limit of 0 or less waits 5 seconds.
int http_select_fd(int fd, int seconds, int direction);

}  // namespace http_util_internal

#endif
