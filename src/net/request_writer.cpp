// Request heads leave through the handle's send buffer, so that a whole
// head normally goes out in a single write.
#include "net/request_writer.h"

#include <string.h>

#include "http_util.h"

namespace {

constexpr char kCrlf[] = "\r\n";
constexpr char kSeparator[] = ": ";
constexpr int kBufSize = HTTP_UTIL_SEND_BUF_SIZE;

// Pushes one block that was placed into the buffer.
int flush_into_last_err(http_util *util) {
    util->last_err = http_flush(util);
    return util->last_err;
}

}  // namespace

namespace http_util_internal {

int http_buffered_send(http_util *util, const void *bytes, int count) {
    if ((util->flags & HTTP_UTIL_FLAG_BUFFERED) == 0) {
        util->last_err = http_util_fd_write(util->socket, bytes, count, util->timeout);
        return util->last_err;
    }
    const char *p = static_cast<const char *>(bytes);
    int room = kBufSize - util->send_len;
    if (count < room) {
        memcpy(util->send_buf + util->send_len, p, static_cast<size_t>(count));
        util->send_len += count;
        return 0;
    }
    // A buffer that becomes full leaves at once: send_len stays below 1024.
    memcpy(util->send_buf + util->send_len, p, static_cast<size_t>(room));
    util->send_len = kBufSize;
    if (flush_into_last_err(util) != 0) return util->last_err;
    p += room;
    count -= room;
    for (; count >= kBufSize; p += kBufSize, count -= kBufSize) {
        memcpy(util->send_buf, p, kBufSize);
        util->send_len = kBufSize;
        if (flush_into_last_err(util) != 0) return util->last_err;
    }
    memcpy(util->send_buf, p, static_cast<size_t>(count));
    util->send_len = count;
    return 0;
}

// Field values may come from callers with line ends in them; a LF would
// end the head line early, so it never reaches the socket.
int http_write_header_text(http_util *util, const char *text) {
    for (;;) {
        const char *lf = strchr(text, '\n');
        size_t len = lf != nullptr ? static_cast<size_t>(lf - text) : strlen(text);
        if (http_buffered_send(util, text, static_cast<int>(len)) != 0) return -1;
        if (lf == nullptr) return 0;
        text = lf + 1;
    }
}

}  // namespace http_util_internal

extern "C" {

HTTP_UTIL_API int http_post_header(http_util *util, const char *name, const char *value) {
    using namespace http_util_internal;
    // No name: the empty line that ends the head.
    if (name == nullptr) return http_buffered_send(util, kCrlf, 2);
    if (http_write_header_text(util, name) != 0) return util->last_err;
    // No value: a bare line, as the request line is written.
    if (value == nullptr) return http_buffered_send(util, kCrlf, 2);
    if (http_buffered_send(util, kSeparator, 2) != 0 || http_write_header_text(util, value) != 0)
        return util->last_err;
    return http_buffered_send(util, kCrlf, 2);
}

HTTP_UTIL_API int http_flush(http_util *util) {
    if (util->send_len <= 0) return 0;
    int len = util->send_len;
    // Emptied first: after a failed write the bytes are dropped, never resent.
    util->send_len = 0;
    return http_util_fd_write(util->socket, util->send_buf, len, util->timeout);
}

}  // extern "C"
