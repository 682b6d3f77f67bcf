// The chunked body reader through a socket pair: size lines are peeked and
// consumed exactly, data goes out in blocks of at most 1023 bytes, and
// nothing after the zero chunk is read.
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include "fuzz_support.h"

namespace {

constexpr size_t kSizeLinePeek = 20;
constexpr size_t kDataRead = 1023;

fuzz::BodyModel model(const std::string &body) {
    fuzz::BodyModel m;
    size_t pos = 0;
    for (;;) {
        // A size line, with the CR LF that ends the previous data, must be
        // whole within the first 20 bytes the socket holds.
        const std::string window = body.substr(pos, kSizeLinePeek);
        const size_t start = window.compare(0, 2, "\r\n") == 0 ? 2 : 0;
        const size_t crlf = window.find("\r\n", start);
        unsigned long long value = 0;
        if (crlf == std::string::npos ||
            sscanf(window.substr(start, crlf - start).c_str(), "%llx", &value) != 1 ||
            value > INT32_MAX) {
            m.rc = HTTP_UTIL_ERR_RSP_FORMAT;
            break;
        }
        pos += crlf + 2;
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
