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

// A size line, with the CR LF that ends the previous chunk's data, must be
// in the socket whole within this many bytes.
constexpr size_t kSizeLinePeek = 20;
// Data reads leave room in the block, as they always have.
constexpr uint32_t kChunkReadMax = kBodyBlockSize - 1;

}  // namespace

int http_util_fd_read_chunk_len(int fd, int32_t *size) {
    char line[kSizeLinePeek + 1] = {};
    int n = http_fd_peek(fd, line, kSizeLinePeek, -1);
    if (n < 0) {
        HTTP_LOG("peek chunk length failed(%s).", strerror(errno));
        return HTTP_UTIL_ERR_RECV_DATA;
    }
    HTTP_LOG("peek chunk: %s", line);
    // The size line is peeked, then consumed exactly: chunk data never
    // enters this buffer.
    char *start = line;
    if (n >= 2 && line[0] == '\r' && line[1] == '\n') start += 2;
    auto *crlf = static_cast<char *>(memmem(start, static_cast<size_t>(line + n - start), "\r\n", 2));
    if (crlf == nullptr) {
        HTTP_LOG("wrong chunk format.");
        return HTTP_UTIL_ERR_RSP_FORMAT;
    }
    *crlf = '\0';
    // Read wide, so that a size of 2^31 or more is refused on every word
    // size rather than cut to 32 bits.
    unsigned long long value = 0;
    if (sscanf(start, "%llx", &value) != 1) {
        HTTP_LOG("scanf chunk length failed.");
        return HTTP_UTIL_ERR_RSP_FORMAT;
    }
    if (value > static_cast<unsigned long long>(INT32_MAX)) {
        HTTP_LOG("wrong chunk length.");
        return HTTP_UTIL_ERR_RSP_FORMAT;
    }
    auto used = static_cast<unsigned>(crlf + 2 - line);
    if (fast_read(fd, line, used, 1) <= 0) {
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
