// The chunked body reader through a socket pair: size lines are peeked and
// consumed exactly (a line not yet ended is taken off and read on), data
// goes out in blocks of at most 1023 bytes, and nothing after the zero
// chunk is read.
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include "fuzz_support.h"

namespace {

constexpr size_t kFirstPeek = 20;
constexpr size_t kSizeLineMax = 256;  // line end included
constexpr size_t kLineBuffer = 2 + kSizeLineMax;  // and the line end before it
constexpr size_t kDataRead = 1023;

fuzz::BodyModel model(const std::string &body) {
    fuzz::BodyModel m;
    size_t pos = 0;
    for (;;) {
        // The reader peeks 20 bytes, then, while the line has not ended,
        // takes what it saw off the socket and peeks at what follows, up to
        // the line limit. The input is all in the socket and the writer has
        // closed, so a peek sees everything there is.
        size_t have = 0, lf = std::string::npos, start = 0;
        for (bool first = true;; first = false) {
            const size_t n = std::min(first ? kFirstPeek : kLineBuffer - have, body.size() - pos - have);
            if (n == 0) {
                m.rc = HTTP_UTIL_ERR_RECV_DATA;  // closed before the line ended
                m.consumed = pos + have;
                return m;
            }
            const std::string seen = body.substr(pos, have + n);
            start = seen.compare(0, 2, "\r\n") == 0 ? 2 : seen.compare(0, 1, "\n") == 0 ? 1 : 0;
            lf = seen.find('\n', start);
            if (lf != std::string::npos || seen.size() - start >= kSizeLineMax) break;
            have = seen.size();
        }
        unsigned long long value = 0;
        const size_t end = lf != std::string::npos && lf > start && body[pos + lf - 1] == '\r' ? lf - 1 : lf;
        if (lf == std::string::npos || lf + 1 - start > kSizeLineMax ||
            sscanf(body.substr(pos + start, end - start).c_str(), "%llx", &value) != 1 || value > INT32_MAX) {
            m.rc = HTTP_UTIL_ERR_RSP_FORMAT;
            m.consumed = pos + have;
            return m;
        }
        pos += lf + 1;
        if (value == 0) break;
        for (size_t left = value; left > 0;) {
            if (pos == body.size()) {
                m.rc = HTTP_UTIL_ERR_RECV_DATA;  // closed inside chunk data
                m.consumed = pos;
                return m;
            }
            size_t n = std::min({left, kDataRead, body.size() - pos});
            m.blocks.push_back({pos, n});
            pos += n;
            left -= n;
        }
    }
    m.consumed = pos;
    return m;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const fuzz::BodyCall call = fuzz::BodyCall::take_from(data, size);
    const std::string body = fuzz::text(data, size);
    fuzz::check_body_reader(call, body, model(body),
                            [&](int fd, FILE *out, http_progress_ref *ref, uint32_t skip) {
                                return http_fd_read_body_chunked(nullptr, fd, out, ref, skip);
                            });
    return 0;
}
