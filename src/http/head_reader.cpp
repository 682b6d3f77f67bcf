// The response head is taken off the socket exactly: peek, find the empty
// line, then read no further than it, so the body stays for the body readers.
// Interim 1xx heads before the final one are taken off and passed over.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>

#include "frame/log.h"
#include "frame/raii.h"
#include "http/response.h"
#include "http_util.h"
#include "net/io.h"

namespace http_util_internal {

namespace {

constexpr long kHeadInitialSize = 2048;
constexpr long kHeadMaxSize = 4096;
constexpr time_t kHeadDeadline = 29;  // whole seconds; the 30th ends the wait
constexpr int kPeekWait = 1;

time_t monotonic_seconds() { return static_cast<time_t>(monotonic_ms() / 1000); }

}  // namespace

int http_fd_peek(int fd, char *buf, size_t len, int wait_s) {
    return http_fd_peek(fd, buf, len, wait_of_seconds(wait_s));
}

int http_fd_peek(int fd, char *buf, size_t len, WaitMs wait) {
    int n;
    if (recv_at_once(fd, buf, len, MSG_PEEK, &n)) return n;
    int ready = http_select_fd(fd, wait, kWaitRead);
    if (ready <= 0) {
        HTTP_LOG("select failed, return: %d", ready);
        if (ready == 0) errno = ETIMEDOUT;
        return -1;
    }
    ssize_t got;
    do {
        got = recv(fd, buf, len, MSG_PEEK);
    } while (got == -1 && (errno == EINTR || errno == EAGAIN));
    return static_cast<int>(got);
}

// Scanning starts two bytes before the new ones, so an end whose first
// bytes came with an earlier peek is found.
const char *http_response_head_terminator(const char *start, const char *peeked, int len) {
    if (peeked == start && memcmp(start, "HTTP", std::min(len, 4)) != 0) {
        HTTP_LOG("the first line is not HTTP STATUS");
        return start;
    }
    const char *p = peeked - start >= 2 ? peeked - 2 : start;
    const char *end = peeked + len;
    for (; p < end - 2; ++p) {
        if (*p != '\n') continue;
        if (p[1] == '\r' && p[2] == '\n') return p + 3;
        if (p[1] == '\n') return p + 2;
    }
    if (end - p >= 2 && p[0] == '\n' && p[1] == '\n') return p + 2;
    return nullptr;
}

namespace {

// Every record of the steps below names the head reader.
constexpr LogName kHunk = {"http_util", "http_fd_read_hunk"};

// One peek at what has come, reported to the progress function after a wait
// that timed out too, so that the user sees the wait and can cancel it. The
// bytes peeked; 0 after a time-out; -1 with *err set when no head can come.
int peek_and_report(int fd, char *at, int tail, long bufsize, http_url_param *url, int *err) {
    int n = http_fd_peek(fd, at, static_cast<size_t>(bufsize - 1 - tail), kPeekWait);
    if (n == 0 || (n < 0 && errno != ETIMEDOUT)) {
        *err = HTTP_UTIL_ERR_RECV_RSP;
        return -1;
    }
    if (n > 0) HTTP_LOG_AS(kHunk, "peek length: %d, tail: %d, bufsize: %ld.", n, tail, bufsize);
    if (http_change_progess(HTTP_UTIL_PROGRESS_HEAD, nullptr, n > 0 ? static_cast<uint32_t>(n) : 0,
                            url) != 0) {
        HTTP_LOG_AS(kHunk, "cancle by user.");
        *err = HTTP_UTIL_ERR_CANCELED;
        return -1;
    }
    return n > 0 ? n : 0;
}

// A full buffer doubles, up to the largest head: HTTP_UTIL_OK or a code.
int grow_head_buffer(MallocPtr<char> *buf, long *bufsize, int tail) {
    if (*bufsize >= kHeadMaxSize) {
        HTTP_LOG_AS(kHunk, "reached maxsize, bufsize: %ld.", *bufsize);
        return HTTP_UTIL_ERR_HEAD_TOO_LONG;
    }
    long grown = std::min(*bufsize * 2, kHeadMaxSize);
    char *old = buf->release();
    auto *p = static_cast<char *>(realloc(old, static_cast<size_t>(grown)));
    if (p == nullptr) {
        buf->reset(old);  // still ours to free
        HTTP_LOG_AS(kHunk, "realloc error, bufsize: %ld.", grown);
        return HTTP_UTIL_ERR_NOMEM;
    }
    buf->reset(p);
    memset(p + tail, 0, static_cast<size_t>(grown - tail));
    *bufsize = grown;
    return HTTP_UTIL_OK;
}

// The status code of the head in buf, read from its first line alone.
int head_status(char *buf, int len) {
    auto *lf = static_cast<char *>(memchr(buf, '\n', static_cast<size_t>(len)));
    if (lf != nullptr) *lf = '\0';
    int status = http_status_code(buf);
    if (lf != nullptr) *lf = '\n';
    return status;
}

}  // namespace

char *http_fd_read_hunk(int fd, http_url_param *url, int *err) {
    long bufsize = kHeadInitialSize;
    MallocPtr<char> buf(static_cast<char *>(calloc(1, static_cast<size_t>(bufsize))));
    if (!buf) {
        HTTP_LOG("malloc error, bufsize: %ld.", bufsize);
        *err = HTTP_UTIL_ERR_NOMEM;
        return nullptr;
    }
    int tail = 0;
    const time_t begin = monotonic_seconds();

    for (;;) {
        if (monotonic_seconds() - begin > kHeadDeadline) {
            HTTP_LOG("wait response timeout.");
            *err = HTTP_UTIL_ERR_RSP_TIMEOUT;
            return nullptr;
        }
        char *at = buf.get() + tail;
        int n = peek_and_report(fd, at, tail, bufsize, url, err);
        if (n < 0) return nullptr;
        if (n == 0) continue;

        const char *end = http_response_head_terminator(buf.get(), at, n);
        int amount = n;
        if (end != nullptr) {
            amount = static_cast<int>(end - at);
            if (amount == 0) {  // not an HTTP reply: nothing is consumed
                *at = '\0';
                return buf.release();
            }
        }
        int got = fast_read(fd, at, static_cast<unsigned>(amount), 0);
        if (got < 0) {
            HTTP_LOG("read err,ret: %d, tail: %d, remain: %d", got, tail, amount);
            *err = HTTP_UTIL_ERR_RECV_RSP;
            return nullptr;
        }
        tail += got;
        buf.get()[tail] = '\0';
        HTTP_LOG("rdlen: %d, tail: %d", got, tail);
        if (got == 0) {
            if (tail != 0) return buf.release();
            *err = HTTP_UTIL_ERR_RECV_RSP;
            return nullptr;
        }
        if (end != nullptr && got == amount) {
            // A 1xx head comes before the final one: skip it, still
            // within the deadline of the whole call.
            int status = head_status(buf.get(), tail);
            if (status < 100 || status > 199) return buf.release();
            HTTP_LOG("interim response %d skipped.", status);
            memset(buf.get(), 0, static_cast<size_t>(bufsize));
            tail = 0;
            continue;
        }

        if (tail == bufsize - 1) {
            int rc = grow_head_buffer(&buf, &bufsize, tail);
            if (rc != HTTP_UTIL_OK) {
                *err = rc;
                return nullptr;
            }
        }
    }
}

}  // namespace http_util_internal

extern "C" HTTP_UTIL_API char *http_read_http_response_head(int fd, http_url_param *url,
                                                            int *err) {
    return http_util_internal::http_fd_read_hunk(fd, url, err);
}
