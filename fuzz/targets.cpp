// The libFuzzer targets, one program each (FUZZ_TARGET names its function). A broken property
// aborts, and libFuzzer keeps the input as for a crash.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "http_util.h"

#define FUZZ_CHECK(c) ((c) ? (void)0 : (fprintf(stderr, "%d: property failed: %s\n", __LINE__, #c), abort()))

namespace fuzz {

uint32_t take(const uint8_t *&data, size_t &size, size_t n) {  // n bytes off the front, little-endian
    uint32_t v = 0;
    for (size_t i = 0; i < n && size > 0; ++i, ++data, --size) v |= uint32_t(*data) << (8 * i);
    return v;
}

// Calls read(fd) on a socket holding the whole input, its peer closed, so that every wait of a
// reader ends at once; returns what it left there.
template <typename Read>
std::string through_socket(const std::string &in, Read read) {
    int sv[2], lowest_free = dup(0);
    close(lowest_free);
    FUZZ_CHECK(in.size() <= 64 * 1024 && socketpair(AF_UNIX, SOCK_STREAM, 0, sv) == 0);
    FUZZ_CHECK(write(sv[1], in.data(), in.size()) == static_cast<ssize_t>(in.size()) && close(sv[1]) == 0);
    read(sv[0]);
    std::string rest;
    char buf[4096];
    for (ssize_t n; (n = ::read(sv[0], buf, sizeof buf)) > 0;) rest.append(buf, static_cast<size_t>(n));
    FUZZ_CHECK(close(sv[0]) == 0 && dup(0) == lowest_free && close(lowest_free) == 0);  // no descriptor left open
    return rest;
}

// Exactly toread bytes, or all up to the close for -1, written but the first skip of them, with a
// progress record or, mode & 1, without.
void body_identity(const uint8_t *data, size_t size) {
    const uint32_t mode = take(data, size, 1), skip = take(data, size, 2);
    const auto toread = static_cast<int32_t>(static_cast<int16_t>(take(data, size, 2)));  // -1, 0, in, beyond
    const std::string in(reinterpret_cast<const char *>(data), size);
    const size_t end = toread >= 0 && size_t(toread) <= size ? size_t(toread) : size;
    http_progress progress = {};
    http_progress_ref ref = {&progress, 0, nullptr, -1};
    char *buf = nullptr;
    size_t len = 0;
    FILE *out = open_memstream(&buf, &len);
    int rc = -1;
    const std::string rest =
        through_socket(in, [&](int fd) { rc = http_fd_read_body(0, fd, out, mode & 1 ? nullptr : &ref, toread, skip); });
    FUZZ_CHECK(fclose(out) == 0 && rc == (toread != -1 && end != size_t(toread) ? HTTP_UTIL_ERR_RECV_DATA : 0));
    const size_t from = std::min<size_t>(skip, end);
    FUZZ_CHECK(rest == in.substr(end) && std::string(buf, len) == in.substr(from, end - from));
    FUZZ_CHECK((mode & 1) || progress.done == end);
    free(buf);
}

// A chunked body is read up to the end of its zero chunk's line (the last one taken holds its 0), not a byte more.
void body_chunked(const uint8_t *data, size_t size) {
    const uint32_t mode = take(data, size, 1), skip = take(data, size, 2);
    const std::string in(reinterpret_cast<const char *>(data), size);
    http_progress progress = {};
    http_progress_ref ref = {&progress, 0, nullptr, -1};
    FILE *out = fopen("/dev/null", "w");
    int rc = -1;
    const std::string rest = through_socket(
        in, [&](int fd) { rc = http_fd_read_body_chunked(nullptr, fd, out, mode & 1 ? nullptr : &ref, skip); });
    const std::string taken = in.substr(0, size - rest.size()), last = taken.substr(taken.rfind('\n', taken.size() - 2) + 1);
    FUZZ_CHECK(fclose(out) == 0 && (rc == HTTP_UTIL_ERR_RSP_FORMAT || rc == HTTP_UTIL_ERR_RECV_DATA ||
                                    (rc == HTTP_UTIL_OK && taken.size() > 1 && taken.back() == '\n' && last.find('0') != last.npos)));
}

// A head is taken off up to its first empty line (after interim 1xx heads), and not a byte more.
void head_reader(const uint8_t *data, size_t size) {
    const std::string in(reinterpret_cast<const char *>(data), size);
    int err = -1;
    char *head = nullptr;
    const std::string rest = through_socket(in, [&](int fd) { head = http_read_http_response_head(fd, 0, &err); });
    const std::string h = head != nullptr ? head : "", taken = in.substr(0, in.size() - rest.size());
    const size_t lf_lf = h.find("\n\n"), lf_crlf = h.find("\n\r\n"), none = std::string::npos;  // the first empty line
    const size_t blank = std::min(lf_lf == none ? none : lf_lf + 2, lf_crlf == none ? none : lf_crlf + 3);
    FUZZ_CHECK(h.empty() || in.find('\0') != std::string::npos ||
               (err == -1 && blank == h.size() && taken.compare(taken.size() - h.size(), h.size(), h) == 0));
    free(head);
}

// A head into the handle's record, and the parsers of its parts alone: a date, the status line, a
// Content-Range, a line into a buffer the first byte sizes, a name against a pattern after a NUL.
void head_parser(const uint8_t *data, size_t size) {
    const std::string input(reinterpret_cast<const char *>(data), size), text = input.c_str();
    const char *t = text.c_str();
    http_util *util = http_create_util();
    const http_rsp &rsp = util->rsp;
    http_progress_ref ref = {};
    for (int pass = 0; pass < 3; ++pass) {  // fresh, then resumed where the head's range starts, and at its end
        ref.start = pass == 0 ? 0 : pass == 1 ? rsp.range_start : rsp.file_len;
        const int rc = http_parse_http_response_head(util, &ref, t), s = rsp.status;
        FUZZ_CHECK(rc || (s / 100 == 2 && (rsp.range_start == 0 ? s != 206 : rsp.range_start == ref.start)));
        // A 416 to a range asked from the end of the file, or from beyond it.
        FUZZ_CHECK(rc != HTTP_UTIL_ALREADY_DONE || (s == 416 && ref.start > 0 && rsp.file_len == ref.start));
        FUZZ_CHECK(rc != HTTP_UTIL_NEED_RETRY || (s == 416 && rsp.file_len >= 0 && rsp.file_len < ref.start));
    }
    http_free_util(util);
    http_rsp field = {};
    int32_t first, last, length;
    (void)http_atotm(t);
    (void)http_parse_resp_status(&field, t);
    const int range = parse_content_range(t, &first, &last, &length);  // refused alone and as a field alike
    FUZZ_CHECK(http_parse_rsp_head(&field, nullptr, "Content-Range", t) == (range ? 0 : HTTP_UTIL_ERR_RSP_FORMAT));
    (void)http_tag_cmp(t, text.size() < input.size() ? input.c_str() + text.size() + 1 : t);
    std::vector<char> dst(size > 0 ? data[0] + 1u : 1u);  // exactly sized: a byte past it is a finding
    (void)http_getline(size > 0 ? input.c_str() + 1 : "", dst.data(), static_cast<int>(dst.size()));
}

// Address literals only (the stub device has no resolver); the first byte sets the management flag.
void url(const uint8_t *data, size_t size) {
    const uint32_t flags = take(data, size, 1);
    const std::string url(reinterpret_cast<const char *>(data), size);  // up to a NUL
    const char *u = url.c_str();
    const http_util_param param = {};
    int err = 0;
    http_url_param *up = http_create_url_param(u, &err, &param, flags & 1, flags & 4 ? "mgmt-interface-0" : 0);
    FUZZ_CHECK(up || err == HTTP_UTIL_ERR_URL_FORMAT || err == HTTP_UTIL_ERR_RESOLVE || err == HTTP_UTIL_ERR_NOT_HTTP);
    // Control bytes never get into a record, so never onto the wire.
    FUZZ_CHECK(!up || std::all_of(u, u + strlen(u), [](unsigned char c) { return c >= 0x20 && c != 0x7f; }));
    free(up);
}

// A TLV block, on the heap with room for the element it ends within and the end mark.
void tlv(const uint8_t *data, size_t size) {
    std::vector<uint32_t> block((size + 19) / 4);
    http_util_param param = {}, expected = {};
    if (size != 0) memcpy(block.data(), data, size);
    const int rc = http_util_parse_tlv(block.data(), &param);
    expected.src_ip = param.src_ip;  // nothing else is written
    FUZZ_CHECK((rc == HTTP_UTIL_OK || rc == HTTP_UTIL_ERR_PARAM) && !memcmp(&param, &expected, sizeof param));
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { return FUZZ_TARGET(data, size), 0; }
