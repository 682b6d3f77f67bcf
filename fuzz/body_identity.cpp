// The identity body reader through a socket pair: exactly toread bytes (or
// up to the close for -1), in blocks of 1024, never a byte more.
#include "fuzz_support.h"

namespace {

constexpr size_t kBlock = 1024;

fuzz::BodyModel model(const std::string &body, int32_t toread) {
    fuzz::BodyModel m;
    size_t deliver = body.size();
    if (toread >= 0 && static_cast<size_t>(toread) <= body.size()) {
        deliver = static_cast<size_t>(toread);
    } else if (toread != -1) {
        m.rc = HTTP_UTIL_ERR_RECV_DATA;  // the peer closed before toread bytes came
    }
    for (size_t at = 0; at < deliver; at += kBlock)
        m.blocks.push_back({at, std::min(kBlock, deliver - at)});
    m.consumed = deliver;
    return m;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const fuzz::BodyCall call = fuzz::BodyCall::take_from(data, size);
    // Two bytes of length, signed: -1 (no Content-Length), 0, within the
    // body and beyond it.
    const auto toread = static_cast<int32_t>(static_cast<int16_t>(fuzz::take(data, size, 2)));
    const std::string body = fuzz::text(data, size);
    fuzz::check_body_reader(call, body, model(body, toread),
                            [&](int fd, FILE *out, http_progress_ref *ref, uint32_t skip) {
                                return http_fd_read_body(nullptr, fd, out, ref, toread, skip);
                            });
    return 0;
}
