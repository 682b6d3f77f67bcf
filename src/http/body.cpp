// Identity bodies: Content-Length bytes, or everything up to the close.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "frame/log.h"
#include "frame/raii.h"
#include "http/response.h"
#include "http_util.h"
#include "net/io.h"

namespace http_util_internal {

int write_data(FILE *out, const char *block, uint32_t len, uint32_t *skip) {
    if (out == nullptr) return 1;
    // Bytes the local file already holds are dropped, not written again.
    if (*skip > len) {
        *skip -= len;
        return 1;
    }
    if (*skip != 0) {
        block += *skip;
        len -= *skip;
        *skip = 0;
        if (len == 0) return 1;
    }
    (void)fwrite(block, 1, len, out);
    (void)fflush(out);
    return ferror(out) ? 0 : 1;
}

namespace {
// Consecutive one-second read time-outs a body reader sits out.
constexpr int kBodyTimeouts = 30;
}  // namespace

BodyTarget body_target(FILE *out, http_progress_ref *ref, uint32_t skip) {
    http_progress *sink = nullptr;
    if (ref != nullptr && ref->progress != nullptr && ref->progress->on_data != nullptr)
        sink = ref->progress;
    return BodyTarget{out, ref, sink, skip, kBodyTimeouts, {}};
}

BodyStep deliver_block(BodyTarget &target, const char *block, uint32_t len, http_url_param *url) {
    if (target.sink != nullptr) {
        if (target.sink->on_data(target.sink, block, len) < 0)
            return {HTTP_UTIL_ERR_SAVE_FILE, "proc data fail"};
    } else if (write_data(target.out, block, len, &target.skip) == 0) {
        return {HTTP_UTIL_ERR_SAVE_FILE, "write_data fail"};
    }
    if (http_change_progess(HTTP_UTIL_PROGRESS_BODY, target.ref, len, url) != 0)
        return {HTTP_UTIL_ERR_CANCELED, "cancle by user."};
    target.timeouts_left = kBodyTimeouts;
    return {HTTP_UTIL_OK, nullptr};
}

BodyStep after_failed_read(BodyTarget &target, http_url_param *url) {
    if (errno == ETIMEDOUT && target.timeouts_left > 0) {
        --target.timeouts_left;
        if (http_change_progess(HTTP_UTIL_PROGRESS_BODY, target.ref, 0, url) != 0)
            return {HTTP_UTIL_ERR_CANCELED, "cancle by user."};
        return {HTTP_UTIL_OK, nullptr};
    }
    (void)snprintf(target.why, sizeof target.why, "aborting (%s).", strerror(errno));
    return {HTTP_UTIL_ERR_RECV_DATA, target.why};
}

}  // namespace http_util_internal

using namespace http_util_internal;

extern "C" HTTP_UTIL_API int http_fd_read_body(http_url_param *url, int fd, FILE *out,
                                               http_progress_ref *ref, int32_t toread,
                                               uint32_t skip) {
    if (toread == -1) HTTP_LOG("content length not given.");
    MallocPtr<char> block(static_cast<char *>(calloc(1, kBodyBlockSize)));
    if (!block) {
        HTTP_LOG("malloc for temp buffer failed.");
        return HTTP_UTIL_ERR_NOMEM;
    }
    BodyTarget target = body_target(out, ref, skip);
    if (toread == 0) return HTTP_UTIL_OK;

    // Counted unsigned: a length of -1 (up to the close) never runs out.
    auto remaining = static_cast<uint32_t>(toread);
    for (;;) {
        int n = fast_read(fd, block.get(), std::min(remaining, kBodyBlockSize), 1);
        if (n == 0) {
            if (toread == -1) return HTTP_UTIL_OK;
            HTTP_LOG("[http_fd_read_body]socket closed by peer.");
            return HTTP_UTIL_ERR_RECV_DATA;
        }
        BodyStep step = n > 0 ? deliver_block(target, block.get(), static_cast<uint32_t>(n), url)
                              : after_failed_read(target, url);
        if (step.code != HTTP_UTIL_OK) {
            HTTP_LOG("%s", step.failure);
            return step.code;
        }
        if (n > 0) {
            remaining -= static_cast<uint32_t>(n);
            if (remaining == 0) return HTTP_UTIL_OK;
        }
    }
}
