// The libFuzzer targets, one program each (FUZZ_TARGET names its function).
// A broken property aborts, and libFuzzer keeps the input as for a crash.
#include <ctype.h>
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

// Calls read(fd) on a socket holding the whole input, its peer closed, so
// that every wait of a reader ends at once; returns what it left there.
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

// A body reader must deliver the blocks (offset, length) of an input all in
// the socket, give rc, and stop at end (unless malformed). mode & 3 sends the
// blocks to the caller's sink, to a stream (without the first skip bytes),
// nowhere, or to a stream with no progress record; the progress callback
// cancels after block (mode >> 2) & 7.
struct Body {
    std::vector<std::pair<size_t, size_t>> blocks;
    int rc = HTTP_UTIL_OK;
    size_t end = 0;

    template <typename Reader>
    void check(uint32_t mode, uint32_t skip, const std::string &in, Reader read) {
        struct Sink : http_progress {
            std::string data;
            uint32_t calls = 0, cancel_at = 0;
        } sink{};
        sink.cancel_at = (mode >> 2) & 7;
        sink.on_progress = [](http_progress *p, uint32_t n) {
            return n != 0 && ++static_cast<Sink *>(p)->calls == static_cast<Sink *>(p)->cancel_at ? 1 : 0;
        };
        if ((mode & 3) == 0)
            sink.on_data = [](http_progress *p, const void *d, uint32_t n) {
                return static_cast<Sink *>(p)->data.append(static_cast<const char *>(d), n), 0;
            };
        if ((mode & 3) != 3 && sink.cancel_at != 0 && sink.cancel_at <= blocks.size()) {
            blocks.resize(sink.cancel_at);
            rc = HTTP_UTIL_ERR_CANCELED;
            end = blocks.back().first + blocks.back().second;
        }
        std::string bytes, rest;
        for (const auto &b : blocks) bytes.append(in, b.first, b.second);
        http_progress_ref ref = {&sink, 0, nullptr, -1};
        char *buf = nullptr;
        size_t len = 0;
        FILE *out = (mode & 1) != 0 ? open_memstream(&buf, &len) : nullptr;
        int got = -1;
        rest = through_socket(in, [&](int fd) { got = read(fd, out, (mode & 3) != 3 ? &ref : nullptr, skip); });
        if (out != nullptr) fclose(out);
        FUZZ_CHECK(got == rc && (rc == HTTP_UTIL_ERR_RSP_FORMAT || rest == in.substr(end)));
        FUZZ_CHECK((mode & 3) != 0 || sink.data == bytes);
        FUZZ_CHECK(out == nullptr || std::string(buf, len) == bytes.substr(std::min<size_t>(skip, bytes.size())));
        FUZZ_CHECK((mode & 3) == 3 || (sink.done == bytes.size() && sink.calls == blocks.size()));
        free(buf);
    }
};

// Exactly toread bytes (all up to the close for -1), in blocks of 1024.
void body_identity(const uint8_t *data, size_t size) {
    const uint32_t mode = take(data, size, 1), skip = take(data, size, 2);
    const auto toread = static_cast<int32_t>(static_cast<int16_t>(take(data, size, 2)));  // -1, 0, in, beyond
    Body b;
    b.end = toread >= 0 && static_cast<size_t>(toread) <= size ? static_cast<size_t>(toread) : size;
    b.rc = toread != -1 && b.end != static_cast<size_t>(toread) ? HTTP_UTIL_ERR_RECV_DATA : HTTP_UTIL_OK;
    for (size_t at = 0; at < b.end; at += 1024) b.blocks.push_back({at, std::min<size_t>(1024, b.end - at)});
    b.check(mode, skip, std::string(reinterpret_cast<const char *>(data), size),
            [&](int fd, FILE *out, http_progress_ref *ref, uint32_t skip) {
                return http_fd_read_body(nullptr, fd, out, ref, toread, skip);
            });
}

// Size lines (after the line end of the chunk before) of at most 256 bytes,
// data in blocks of at most 1023, and nothing after the zero chunk's line.
void body_chunked(const uint8_t *data, size_t size) {
    const uint32_t mode = take(data, size, 1), skip = take(data, size, 2);
    const std::string in(reinterpret_cast<const char *>(data), size);
    Body b;
    for (size_t pos = 0; b.rc == HTTP_UTIL_OK && b.end == 0;) {
        const size_t start = pos + (in.compare(pos, 2, "\r\n") == 0 ? 2 : in.compare(pos, 1, "\n") == 0 ? 1 : 0);
        const size_t lf = in.find('\n', start), end = lf - (lf != std::string::npos && lf > start && in[lf - 1] == '\r');
        unsigned long long value = 0;
        if (lf == std::string::npos && size - start < 256) {
            b.rc = HTTP_UTIL_ERR_RECV_DATA;  // closed within the line
        } else if (lf == std::string::npos || lf + 1 - start > 256 ||
                   sscanf(in.substr(start, end - start).c_str(), "%llx", &value) != 1 || value > INT32_MAX) {
            b.rc = HTTP_UTIL_ERR_RSP_FORMAT;
        } else if (value == 0) {
            b.end = lf + 1;
        } else {
            if ((pos = lf + 1) + value > size) b.rc = HTTP_UTIL_ERR_RECV_DATA;  // closed within the data
            for (size_t n; value > 0 && pos < size; pos += n, value -= n)
                b.blocks.push_back({pos, n = std::min<size_t>({static_cast<size_t>(value), 1023, size - pos})});
        }
    }
    b.end = b.rc == HTTP_UTIL_ERR_RECV_DATA ? size : b.end;
    b.check(mode, skip, in, [](int fd, FILE *out, http_progress_ref *ref, uint32_t skip) {
        return http_fd_read_body_chunked(nullptr, fd, out, ref, skip);
    });
}

// The head is taken off exactly, up to its empty line, and every other byte
// stays in the socket; interim 1xx heads before it are passed over.
void head_reader(const uint8_t *data, size_t size) {
    constexpr size_t kMaxHead = 4095;  // the buffer grows to 4096 bytes, NUL included
    std::string in(reinterpret_cast<const char *>(data), size);
    int err = -1;
    char *head = nullptr;
    const std::string rest = through_socket(in, [&](int fd) { head = http_read_http_response_head(fd, 0, &err); });
    size_t end = 0;
    for (http_rsp rsp = {};; in.erase(0, end), end = 0) {
        for (size_t i = 0; i + 1 < std::min(in.size(), kMaxHead) && end == 0; ++i)
            if (in[i] == '\n') end = in[i + 1] == '\n' ? i + 2 : !in.compare(i + 1, 2, "\r\n") && i + 2 < kMaxHead ? i + 3 : 0;
        if (!end || http_parse_resp_status(&rsp, in.substr(0, in.find('\n')).c_str()) || rsp.status / 100 != 1) break;
    }
    const bool http = in.compare(0, 4, "HTTP", std::min<size_t>(in.size(), 4)) == 0;
    if (in.empty() || (http && end == 0 && in.size() < kMaxHead))  // closed before the head ended
        FUZZ_CHECK(head == nullptr && err == HTTP_UTIL_ERR_RECV_RSP && rest.empty());
    else if (!http)  // not a reply: nothing taken
        FUZZ_CHECK(head != nullptr && head[0] == '\0' && err == -1 && rest == in);
    else if (end != 0)
        FUZZ_CHECK(head && err == -1 && rest == in.substr(end) && !memcmp(head, in.data(), end) && !head[end]);
    else
        FUZZ_CHECK(head == nullptr && err == HTTP_UTIL_ERR_HEAD_TOO_LONG && rest == in.substr(kMaxHead));
    free(head);
}

// A head into the handle's record, then its parts' parsers alone: the date
// (against strptime in the "C" locale), the status line, a Content-Range,
// a line into a buffer the first byte sizes, a name against a pattern.
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
        FUZZ_CHECK(rc != HTTP_UTIL_ERR_REDIRECT || s == 300 || s == 301 || s == 302 || s == 303 || s == 307);
        FUZZ_CHECK((rc != HTTP_UTIL_ERR_FORBIDDEN || s == 403) && (rc != HTTP_UTIL_ERR_NOT_FOUND || s == 404));
        FUZZ_CHECK((rc != HTTP_UTIL_ERR_UNAUTHORIZED || s == 401) && (rc != HTTP_UTIL_ERR_RANGE || s == 416));
        // A 416 to a range asked from the end of the file, or from beyond it.
        FUZZ_CHECK(rc != HTTP_UTIL_ALREADY_DONE || (s == 416 && ref.start > 0 && rsp.file_len == ref.start));
        FUZZ_CHECK(rc != HTTP_UTIL_NEED_RETRY || (s == 416 && rsp.file_len >= 0 && rsp.file_len < ref.start));
    }
    // Nothing of that head survives into the next parse on the same handle.
    FUZZ_CHECK(http_parse_http_response_head(util, &ref, "HTTP/1.1 200 OK\r\n\r\n") == 0 && rsp.content_len == -1);
    FUZZ_CHECK(rsp.mtime == -1 && !rsp.chunked && !rsp.range_start && !rsp.file_len && !rsp.new_local[0]);
    http_free_util(util);

    time_t want = -1;
    for (const char *format : {"%a, %d %b %Y %T", "%A, %d-%b-%y %T", "%a %b %d %T %Y", "%a, %d-%b-%Y %T"}) {
        struct tm tm = {};
        const char *end = strptime(t, format, &tm);
        while (end != nullptr && isspace(*end & 0xff)) ++end;
        if (end && (!*end || !strncmp(end, "GMT", 3) || ((*end == '+' || *end == '-') && isdigit(end[1] & 0xff)))) {
            want = timegm(&tm);
            break;
        }
    }
    FUZZ_CHECK(http_atotm(t) == want);
    http_rsp field = {};
    int32_t first, last, length;
    (void)http_parse_resp_status(&field, t);
    const int range = parse_content_range(t, &first, &last, &length);  // refused alone and as a field alike
    FUZZ_CHECK(http_parse_rsp_head(&field, nullptr, "Content-Range", t) == (range ? 0 : HTTP_UTIL_ERR_RSP_FORMAT));
    (void)http_tag_cmp(t, text.size() < input.size() ? input.c_str() + text.size() + 1 : t);
    std::vector<char> dst(size > 0 ? data[0] + 1u : 1u);  // exactly sized: a byte past it is a finding
    (void)http_getline(size > 0 ? input.c_str() + 1 : "", dst.data(), static_cast<int>(dst.size()));
}

// Address literals only (the stub device has no resolver); the first byte
// sets the management flag and a too long management interface name.
void url(const uint8_t *data, size_t size) {
    const uint32_t flags = take(data, size, 1);
    const std::string url(reinterpret_cast<const char *>(data), size);
    http_util_param param = {};
    int err = 0;
    http_url_param *up = http_create_url_param(url.c_str(), &err, &param, flags & 1, flags & 4 ? "mgmt-interface-0" : 0);
    FUZZ_CHECK(up || err == HTTP_UTIL_ERR_URL_FORMAT || err == HTTP_UTIL_ERR_RESOLVE || err == HTTP_UTIL_ERR_NOT_HTTP);
    // Control bytes never get into a record, so never onto the wire.
    const char *u = url.c_str();
    FUZZ_CHECK(!up || std::all_of(u, u + strlen(u), [](unsigned char c) { return c >= 0x20 && c != 0x7f; }));
    FUZZ_CHECK(!up || (memchr(up->host, 0, 256) && memchr(up->path, 0, 256) && strlen(up->mgmt_name) <= 15));
    free(up);
}

// A TLV block, on the heap with room for the element it ends within and the
// end mark: the elements before a bad one are stored.
void tlv(const uint8_t *data, size_t size) {
    std::vector<uint32_t> block((size + 19) / 4);
    if (size != 0) memcpy(block.data(), data, size);
    int want = HTTP_UTIL_OK;
    http_util_param expected = {}, param = {};
    for (size_t at = 0; block[at] != HTTP_UTIL_TLV_END && want == HTTP_UTIL_OK; at += 3) {
        if (block[at] != HTTP_UTIL_TLV_SRC_IP || block[at + 1] != 4) want = HTTP_UTIL_ERR_PARAM;
        if (want == HTTP_UTIL_OK) expected.src_ip = block[at + 2];
    }
    FUZZ_CHECK(http_util_parse_tlv(block.data(), &param) == want && !memcmp(&param, &expected, sizeof param));
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { return FUZZ_TARGET(data, size), 0; }
