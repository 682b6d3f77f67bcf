// The libFuzzer targets, one program each (FUZZ_TARGET names its function).
// A broken property aborts, and libFuzzer keeps the input as for a crash.
#include <arpa/inet.h>
#include <ctype.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "http_util.h"

#define FUZZ_CHECK(c) ((c) ? (void)0 : (fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #c), abort()))

namespace fuzz {

// n bytes off the front of the input, little-endian.
uint32_t take(const uint8_t *&data, size_t &size, size_t n) {
    uint32_t v = 0;
    for (size_t i = 0; i < n && size > 0; ++i, ++data, --size) v |= uint32_t(*data) << (8 * i);
    return v;
}

bool terminated(const char *field, size_t size) { return memchr(field, '\0', size) != nullptr; }

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
    close(sv[0]);
    FUZZ_CHECK(dup(0) == lowest_free && close(lowest_free) == 0);  // no descriptor left open
    return rest;
}

// What a body reader must do with an input all in the socket: the blocks it
// delivers (offset, length), its result, and where it stops (unless malformed).
struct Body {
    std::vector<std::pair<size_t, size_t>> blocks;
    int rc = HTTP_UTIL_OK;
    size_t end = 0;
};

// mode & 3 sends the blocks to the caller's sink, to a stream (without the
// first skip bytes), nowhere, or to a stream with no progress record; the
// progress callback cancels after block (mode >> 2) & 7.
template <typename Reader>
void check_body(uint32_t mode, uint32_t skip, const std::string &in, Body want, Reader read) {
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
    if ((mode & 3) != 3 && sink.cancel_at != 0 && sink.cancel_at <= want.blocks.size()) {
        want.blocks.resize(sink.cancel_at);
        want.rc = HTTP_UTIL_ERR_CANCELED;
        want.end = want.blocks.back().first + want.blocks.back().second;
    }
    std::string bytes;
    for (const auto &b : want.blocks) bytes.append(in, b.first, b.second);
    http_progress_ref ref = {&sink, 0, nullptr, -1};
    char *buf = nullptr;
    size_t len = 0;
    FILE *out = (mode & 1) != 0 ? open_memstream(&buf, &len) : nullptr;
    int rc = -1;
    const std::string rest = through_socket(in, [&](int fd) { rc = read(fd, out, (mode & 3) != 3 ? &ref : nullptr, skip); });
    if (out != nullptr) fclose(out);
    FUZZ_CHECK(rc == want.rc && (rc == HTTP_UTIL_ERR_RSP_FORMAT || rest == in.substr(want.end)));
    FUZZ_CHECK((mode & 3) != 0 || sink.data == bytes);
    FUZZ_CHECK(out == nullptr || std::string(buf, len) == bytes.substr(std::min<size_t>(skip, bytes.size())));
    FUZZ_CHECK((mode & 3) == 3 || (sink.done == bytes.size() && sink.calls == want.blocks.size()));
    free(buf);
}

// Exactly toread bytes (all up to the close for -1), in blocks of 1024.
void body_identity(const uint8_t *data, size_t size) {
    const uint32_t mode = take(data, size, 1), skip = take(data, size, 2);
    const auto toread = static_cast<int32_t>(static_cast<int16_t>(take(data, size, 2)));  // -1, 0, in, beyond
    Body b;
    b.end = toread >= 0 && static_cast<size_t>(toread) <= size ? static_cast<size_t>(toread) : size;
    if (toread != -1 && b.end != static_cast<size_t>(toread)) b.rc = HTTP_UTIL_ERR_RECV_DATA;
    for (size_t at = 0; at < b.end; at += 1024) b.blocks.push_back({at, std::min<size_t>(1024, b.end - at)});
    check_body(mode, skip, std::string(reinterpret_cast<const char *>(data), size), b,
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
        const size_t lf = in.find('\n', start), end = lf != std::string::npos && lf > start && in[lf - 1] == '\r' ? lf - 1 : lf;
        unsigned long long value = 0;
        if (lf == std::string::npos && in.size() - start < 256) {
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
    if (b.rc == HTTP_UTIL_ERR_RECV_DATA) b.end = size;
    check_body(mode, skip, in, b, [](int fd, FILE *out, http_progress_ref *ref, uint32_t skip) {
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
    const std::string rest = through_socket(in, [&](int fd) { head = http_read_http_response_head(fd, nullptr, &err); });
    size_t end;
    for (http_rsp rsp = {};; in.erase(0, end)) {
        const size_t seen = std::min(in.size(), kMaxHead);
        end = 0;
        for (size_t i = 0; i + 1 < seen && end == 0; ++i)
            if (in[i] == '\n') end = in[i + 1] == '\n' ? i + 2 : i + 2 < seen && in.compare(i + 1, 2, "\r\n") == 0 ? i + 3 : 0;
        if (end == 0 || http_parse_resp_status(&rsp, in.substr(0, in.find('\n')).c_str()) != 0 || rsp.status / 100 != 1)
            break;
    }
    if (in.empty() || (end == 0 && in.size() < kMaxHead && in.compare(0, 4, "HTTP", std::min<size_t>(in.size(), 4)) == 0)) {
        FUZZ_CHECK(head == nullptr && err == HTTP_UTIL_ERR_RECV_RSP && rest.empty());  // closed before the head ended
    } else if (in.compare(0, 4, "HTTP", std::min<size_t>(in.size(), 4)) != 0) {
        FUZZ_CHECK(head != nullptr && head[0] == '\0' && err == -1 && rest == in);  // not a reply: nothing taken
    } else if (end != 0) {
        FUZZ_CHECK(head != nullptr && err == -1 && rest == in.substr(end));
        FUZZ_CHECK(memcmp(head, in.data(), end) == 0 && head[end] == '\0');
    } else {
        FUZZ_CHECK(head == nullptr && err == HTTP_UTIL_ERR_HEAD_TOO_LONG && rest == in.substr(kMaxHead));
    }
    free(head);
}

// A head into the handle's record, with the parsers of its parts alone: a
// status line, a date (as strptime reads it in the "C" locale), a
// Content-Range value, a line into a buffer the first byte sizes, and a
// name against a pattern after a NUL.
void head_parser(const uint8_t *data, size_t size) {
    const std::string input(reinterpret_cast<const char *>(data), size), text = input.c_str();
    http_util *util = http_create_util();
    const http_rsp &rsp = util->rsp;
    http_progress_ref ref = {};
    // Fresh, then resumed from the head's own range start and from its
    // complete length, so that both sides of the range checks are taken.
    for (int32_t start : {0, 1, 2}) {
        ref.start = start == 0 ? 0 : start == 1 ? rsp.range_start : rsp.file_len;
        const int rc = http_parse_http_response_head(util, &ref, text.c_str()), s = rsp.status;
        const int codes[] = {HTTP_UTIL_OK, HTTP_UTIL_ERR_REDIRECT, HTTP_UTIL_ERR_FORBIDDEN, HTTP_UTIL_ERR_NOT_FOUND,
                             HTTP_UTIL_ERR_UNAUTHORIZED, HTTP_UTIL_ERR_RANGE, HTTP_UTIL_ALREADY_DONE, HTTP_UTIL_NEED_RETRY,
                             HTTP_UTIL_ERR_PROTOCOL, HTTP_UTIL_ERR_UNEXPECTED_RSP, HTTP_UTIL_ERR_RSP_FORMAT};
        FUZZ_CHECK(std::count(codes, codes + 11, rc) == 1 && terminated(rsp.new_local, sizeof rsp.new_local));
        FUZZ_CHECK(rc == HTTP_UTIL_ERR_RSP_FORMAT || (s >= 0 && s <= 999 && rsp.content_len >= -1));
        FUZZ_CHECK(rc != HTTP_UTIL_OK || (s / 100 == 2 && (rsp.range_start == 0 ? s != 206 : rsp.range_start == ref.start)));
        FUZZ_CHECK(rc != HTTP_UTIL_ERR_REDIRECT || s == 300 || s == 301 || s == 302 || s == 303 || s == 307);
        FUZZ_CHECK((rc != HTTP_UTIL_ERR_FORBIDDEN || s == 403) && (rc != HTTP_UTIL_ERR_NOT_FOUND || s == 404));
        FUZZ_CHECK((rc != HTTP_UTIL_ERR_UNAUTHORIZED || s == 401) && (rc != HTTP_UTIL_ERR_RANGE || s == 416));
        // A 416 to a range asked from the end of the file, or from beyond it.
        FUZZ_CHECK(rc != HTTP_UTIL_ALREADY_DONE || (s == 416 && ref.start > 0 && rsp.file_len == ref.start));
        FUZZ_CHECK(rc != HTTP_UTIL_NEED_RETRY || (s == 416 && rsp.file_len >= 0 && rsp.file_len < ref.start));
        FUZZ_CHECK(rc != HTTP_UTIL_ERR_PROTOCOL || (rsp.range_start != 0 && rsp.range_start != ref.start));
    }
    // Nothing of that head survives into the next parse on the same handle.
    FUZZ_CHECK(http_parse_http_response_head(util, &ref, "HTTP/1.1 200 OK\r\n\r\n") == 0 && rsp.content_len == -1);
    FUZZ_CHECK(rsp.mtime == -1 && !rsp.keep_alive && !rsp.chunked && !rsp.accept_ranges && !rsp.range_start);
    FUZZ_CHECK(!rsp.range_end && !rsp.file_len && !rsp.new_local[0] && !rsp.last_modified[0]);
    http_free_util(util);

    http_rsp status;
    memset(&status, 0xa5, sizeof status);
    char digits[8] = "";
    if (http_parse_resp_status(&status, text.c_str()) == 0) snprintf(digits, sizeof digits, "%03d", int(status.status));
    FUZZ_CHECK(digits[0] == '\0' || (strncmp(text.c_str(), "HTTP", 4) == 0 && strstr(text.c_str() + 4, digits)));
    const auto *bytes = reinterpret_cast<const unsigned char *>(&status);  // no other field written
    FUZZ_CHECK(static_cast<size_t>(std::count(bytes + 4, bytes + sizeof status, 0xa5)) == sizeof status - 4);

    time_t want = -1;  // the dates the parser reads, as strptime reads them
    for (const char *format : {"%a, %d %b %Y %T", "%A, %d-%b-%y %T", "%a %b %d %T %Y", "%a, %d-%b-%Y %T"}) {
        struct tm tm = {};
        const char *end = strptime(text.c_str(), format, &tm);
        while (end != nullptr && isspace(static_cast<unsigned char>(*end))) ++end;
        if (end != nullptr && (*end == '\0' || strncmp(end, "GMT", 3) == 0 ||
                               ((*end == '+' || *end == '-') && isdigit(static_cast<unsigned char>(end[1]))))) {
            want = timegm(&tm);
            break;
        }
    }
    http_rsp field = {};
    FUZZ_CHECK(http_atotm(text.c_str()) == want && http_parse_rsp_head(&field, nullptr, "Last-Modified", text.c_str()) == 0);
    FUZZ_CHECK(field.mtime == int32_t(want) && terminated(field.last_modified, 32) && strncmp(field.last_modified, text.c_str(), sizeof field.last_modified - 1) == 0);

    // Positions come together or not at all (the unsatisfiable form); the
    // field parser refuses exactly what parse_content_range refuses.
    int32_t first = INT_MIN, last = INT_MIN, length = INT_MIN;
    const int ok = parse_content_range(text.c_str(), &first, &last, &length);
    FUZZ_CHECK(ok == 1 ? length != INT_MIN && (first == INT_MIN) == (last == INT_MIN) : ok == 0 && length == INT_MIN);
    field = {};
    FUZZ_CHECK(http_parse_rsp_head(&field, nullptr, "Content-Range", text.c_str()) == (ok ? 0 : HTTP_UTIL_ERR_RSP_FORMAT));
    FUZZ_CHECK(!ok || (field.file_len == length && (first == INT_MIN || (field.range_start == first && field.range_end == last))));

    const int dst_size = size > 0 ? data[0] + 1 : 1;
    const std::string line = size > 0 ? input.substr(1).c_str() : "";
    std::vector<char> dst(static_cast<size_t>(dst_size), 'x');  // exactly sized: a byte past it is a finding
    const char *next = http_getline(line.c_str(), dst.data(), dst_size);
    const size_t lf = line.find('\n'), n = lf != std::string::npos && lf > 0 && line[lf - 1] == '\r' ? lf - 1 : lf;
    if (lf == std::string::npos || (n != 0 && n >= static_cast<size_t>(dst_size)))
        FUZZ_CHECK(next == nullptr && std::count(dst.begin(), dst.end(), 'x') == dst_size);
    else
        FUZZ_CHECK(next == line.c_str() + lf + 1 && line.compare(0, n, dst.data()) == 0 && dst[n] == '\0');

    // The ASCII case of a name never matters.
    const std::string pattern = text.size() < input.size() ? input.substr(text.size() + 1).c_str() : text;
    std::string upper = text;
    for (char &c : upper) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
    FUZZ_CHECK((http_tag_cmp(upper.c_str(), pattern.c_str()) == 0) == (http_tag_cmp(text.c_str(), pattern.c_str()) == 0));
    FUZZ_CHECK(http_tag_cmp(text.c_str(), text.substr(0, text.find('"')).c_str()) == 0);
}

// Address literals only: the stub device has no resolver. The first byte
// sets the management flag and a (too long) management interface name.
void url(const uint8_t *data, size_t size) {
    const uint32_t flags = take(data, size, 1);
    const std::string url(reinterpret_cast<const char *>(data), size);
    http_util_param param = {};
    int err = 12345;
    http_url_param *up = http_create_url_param(url.c_str(), &err, &param, flags & 1, flags & 4 ? "management-port-0" : nullptr);
    if (up == nullptr) {
        FUZZ_CHECK(err == HTTP_UTIL_ERR_URL_FORMAT || err == HTTP_UTIL_ERR_RESOLVE ||
                   (err == HTTP_UTIL_ERR_NOT_HTTP && strncasecmp(url.c_str(), "http://", 7) != 0));
        return;
    }
    // Control bytes never get into a record, and so never onto the wire.
    FUZZ_CHECK(std::all_of(url.c_str(), url.c_str() + strlen(url.c_str()), [](unsigned char c) { return c >= 0x20 && c != 0x7f; }));
    FUZZ_CHECK(err == 12345 && up->path[0] == '/' && strpbrk(up->filename, "/?") == nullptr && up->is_mgmt == (flags & 1));
    FUZZ_CHECK(terminated(up->host, sizeof up->host) && terminated(up->path, sizeof up->path) && terminated(up->filename, 256));
    FUZZ_CHECK(strcmp(up->mgmt_name, flags & 4 ? "management-port" : "") == 0);  // cut to 15 characters
    // The server's address is the host's literal, with the port (cut to 16 bits).
    const bool v4 = up->ip_addr.ss_family == AF_INET;
    const auto *sa = reinterpret_cast<const unsigned char *>(&up->ip_addr);
    unsigned char addr[16];
    FUZZ_CHECK(inet_pton(v4 ? AF_INET : AF_INET6, up->host, addr) == 1 && (v4 || up->ip_addr.ss_family == AF_INET6));
    FUZZ_CHECK(memcmp(addr, sa + (v4 ? 4 : 8), v4 ? 4 : 16) == 0 && sa[2] * 256 + sa[3] == (up->port & 0xffff));
    free(up);
}

// A TLV block into the transfer parameters: the elements before a bad one
// are stored, and nothing but src_ip is touched.
void tlv(const uint8_t *data, size_t size) {
    // On the heap, with room for the element the input ends in the middle of
    // and the end mark every block carries.
    std::vector<uint32_t> block((size + 19) / 4);
    if (size != 0) memcpy(block.data(), data, size);
    int want = HTTP_UTIL_OK;
    http_util_param expected = {}, param = {};
    for (size_t at = 0; block[at] != HTTP_UTIL_TLV_END && want == HTTP_UTIL_OK; at += 3) {
        if (block[at] != HTTP_UTIL_TLV_SRC_IP || block[at + 1] != 4) want = HTTP_UTIL_ERR_PARAM;
        if (want == HTTP_UTIL_OK) expected.src_ip = block[at + 2];
    }
    FUZZ_CHECK(http_util_parse_tlv(block.data(), &param) == want && memcmp(&param, &expected, sizeof param) == 0);
    FUZZ_CHECK(http_util_parse_tlv(nullptr, &param) == HTTP_UTIL_OK && memcmp(&param, &expected, sizeof param) == 0);
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { return FUZZ_TARGET(data, size), 0; }
