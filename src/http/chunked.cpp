// Chunked bodies: size line, data, size line, ... up to the zero chunk.
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "frame/log.h"
#include "frame/raii.h"
#include "http/response.h"
#include "http_util.h"
#include "net/io.h"

namespace http_util_internal {

namespace {

// The first look at a size line, with the line end of the previous chunk's
// data: a line whole within it is read at once.
constexpr size_t kSizeLinePeek = 20;
// A size line with its extensions and its line end; the line end of the
// data before it comes on top.
constexpr size_t kSizeLineMax = 256;
constexpr size_t kSizeLineBuf = 2 + kSizeLineMax;
// The whole size line has the 5 seconds of the first wait for it.
constexpr int64_t kSizeLineWaitMs = 5000;
// Data reads leave room in the block, as they always have.
constexpr uint32_t kChunkReadMax = kBodyBlockSize - 1;

// Where the size line begins in the bytes seen: after the line end of the
// previous chunk's data, when they begin with one.
size_t line_start(const char *seen, size_t n) {
    if (n >= 2 && seen[0] == '\r' && seen[1] == '\n') return 2;
    return n >= 1 && seen[0] == '\n' ? 1 : 0;
}

}  // namespace

// A size line is peeked, then consumed exactly: chunk data never enters
// this buffer. A line not yet ended when peeked (a server or proxy may cut
// it between segments) is all size line, so it is taken off and the next
// bytes are waited for; the wait sleeps, it does not spin.
int http_util_fd_read_chunk_len(int fd, int32_t *size) {
    char line[kSizeLineBuf + 1] = {};
    const int64_t deadline = monotonic_ms() + kSizeLineWaitMs;
    size_t have = 0;  // bytes of the line already taken off the socket
    size_t start = 0;
    char *lf = nullptr;
    for (;;) {
        const auto left = static_cast<int>(std::max<int64_t>(deadline - monotonic_ms(), 0));
        int n = have == 0 ? http_fd_peek(fd, line, kSizeLinePeek, -1)
                          : http_fd_peek(fd, line + have, kSizeLineBuf - have, WaitMs{left});
        if (n < 0 && have > 0 && errno == ETIMEDOUT) {
            HTTP_LOG("wrong chunk format.");
            return HTTP_UTIL_ERR_RSP_FORMAT;
        }
        if (n < 0) {
            HTTP_LOG("peek chunk length failed(%s).", strerror(errno));
            return HTTP_UTIL_ERR_RECV_DATA;
        }
        if (n == 0) {  // the connection was cut before the line ended
            HTTP_LOG("[http_fd_read_body_chunked]socket closed by peer.");
            return HTTP_UTIL_ERR_RECV_DATA;
        }
        HTTP_LOG("peek chunk: %s", line + have);
        const size_t seen = have + static_cast<size_t>(n);
        start = line_start(line, seen);
        lf = static_cast<char *>(memchr(line + start, '\n', seen - start));
        if (lf != nullptr) break;
        if (seen - start >= kSizeLineMax) break;
        int got = fast_read(fd, line + have, static_cast<unsigned>(n), 1);
        if (got <= 0) {
            HTTP_LOG("skip chunk head failed.");
            return HTTP_UTIL_ERR_RECV_DATA;
        }
        have += static_cast<size_t>(got);
    }
    if (lf == nullptr || static_cast<size_t>(lf + 1 - (line + start)) > kSizeLineMax) {
        HTTP_LOG("wrong chunk format.");
        return HTTP_UTIL_ERR_RSP_FORMAT;
    }
    // A CR LF or a bare LF ends the line; an extension after ";" is ignored.
    *(lf > line + start && lf[-1] == '\r' ? lf - 1 : lf) = '\0';
    // Read wide, so that a size of 2^31 or more is refused on every word
    // size rather than cut to 32 bits.
    unsigned long long value = 0;
    if (sscanf(line + start, "%llx", &value) != 1) {
        HTTP_LOG("scanf chunk length failed.");
        return HTTP_UTIL_ERR_RSP_FORMAT;
    }
    if (value > static_cast<unsigned long long>(INT32_MAX)) {
        HTTP_LOG("wrong chunk length.");
        return HTTP_UTIL_ERR_RSP_FORMAT;
    }
    auto used = static_cast<unsigned>(lf + 1 - (line + have));
    if (fast_read(fd, line + have, used, 1) <= 0) {
        HTTP_LOG("skip chunk head failed.");
        return HTTP_UTIL_ERR_RECV_DATA;
    }
    *size = static_cast<int32_t>(value);
    return 0;
}

}  // namespace http_util_internal

using namespace http_util_internal;

// The CR LF after each chunk's data is passed over with the next size
// line; after the zero chunk nothing more is read.
extern "C" HTTP_UTIL_API int http_fd_read_body_chunked(http_url_param *url, int fd, FILE *out,
                                                       http_progress_ref *ref, uint32_t skip) {
    BodyTarget target = body_target(out, ref, skip);
    MallocPtr<char> block(static_cast<char *>(calloc(1, kBodyBlockSize)));
    if (!block) {
        HTTP_LOG("malloc for temp buffer failed.");
        return HTTP_UTIL_ERR_NOMEM;
    }
    int32_t remaining = 0;
    for (;;) {
        if (remaining == 0) {
            int rc = http_util_fd_read_chunk_len(fd, &remaining);
            if (rc != 0) return rc;
            if (remaining == 0) {
                HTTP_LOG("chunked end.");
                return HTTP_UTIL_OK;
            }
        }
        memset(block.get(), 0, kBodyBlockSize);
        int n = fast_read(fd, block.get(),
                          std::min(static_cast<uint32_t>(remaining), kChunkReadMax), 1);
        if (n == 0) {
            HTTP_LOG("[http_fd_read_body_chunked]socket closed by peer.");
            return HTTP_UTIL_ERR_RECV_DATA;
        }
        BodyStep step = n > 0 ? deliver_block(target, block.get(), static_cast<uint32_t>(n), url)
                              : after_failed_read(target, url);
        if (step.code != HTTP_UTIL_OK) {
            HTTP_LOG("%s", step.failure);
            return step.code;
        }
        if (n > 0) remaining -= n;
    }
}
