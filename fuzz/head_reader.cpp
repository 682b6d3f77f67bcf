// The head reader through a socket pair: the head is taken off exactly, up
// to its empty line, and every other byte stays in the socket; interim 1xx
// heads before it are taken off and passed over.
#include <ctype.h>
#include <string.h>

#include "fuzz_support.h"

namespace {

constexpr size_t kMaxHead = 4095;   // the buffer grows to 4096 bytes, NUL included
constexpr size_t kFirstPeek = 2047;

// Where the head ends in what the reader can see: just past the first LF
// CR LF or LF LF; 0 when there is none.
size_t head_end(const std::string &in) {
    const size_t seen = std::min(in.size(), kMaxHead);
    for (size_t i = 0; i < seen; ++i) {
        if (in[i] != '\n') continue;
        if (i + 2 < seen && in[i + 1] == '\r' && in[i + 2] == '\n') return i + 3;
        if (i + 1 < seen && in[i + 1] == '\n') return i + 2;
    }
    return 0;
}

bool space_or_end(char c) { return c == '\0' || isspace(static_cast<unsigned char>(c)); }

// A head whose status line (up to its LF, or a NUL before it) carries a
// 1xx code, read as the status parser reads it.
bool interim(const std::string &head) {
    const std::string line = head.substr(0, head.find('\n'));
    const char *p = line.c_str();
    if (strncmp(p, "HTTP", 4) != 0) return false;
    p += 4;
    if (*p == '/') {
        while (isdigit(static_cast<unsigned char>(*++p))) {
        }
        if (*p == '.') ++p;
        while (isdigit(static_cast<unsigned char>(*p))) ++p;
    }
    while (isspace(static_cast<unsigned char>(*p))) ++p;
    return p[0] == '1' && isdigit(static_cast<unsigned char>(p[1])) && isdigit(static_cast<unsigned char>(p[2])) &&
           space_or_end(p[3]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const int fds = fuzz::lowest_free_fd();
    const std::string whole = fuzz::text(data, size);
    int err = -1;
    std::string rest;
    char *head;
    {
        fuzz::Feed feed(data, size);
        if (!feed.ok()) return 0;
        head = http_read_http_response_head(feed.fd(), nullptr, &err);
        rest = feed.rest();
    }
    FUZZ_CHECK(fuzz::lowest_free_fd() == fds);

    // Past the interim heads: each is read as a head of its own.
    std::string in = whole;
    size_t end;
    while ((end = head_end(in)) != 0 && in.compare(0, 4, "HTTP") == 0 && interim(in.substr(0, end)))
        in.erase(0, end);
    const size_t first = std::min({in.size(), kFirstPeek, size_t{4}});
    if (in.empty()) {
        FUZZ_CHECK(head == nullptr && err == HTTP_UTIL_ERR_RECV_RSP);
    } else if (in.compare(0, first, "HTTP", first) != 0) {
        // Not a reply of this protocol: an empty text, nothing consumed.
        FUZZ_CHECK(head != nullptr && head[0] == '\0' && err == -1);
        FUZZ_CHECK(rest == in);
    } else if (end != 0) {
        FUZZ_CHECK(head != nullptr && err == -1);
        FUZZ_CHECK(memcmp(head, in.data(), end) == 0 && head[end] == '\0');
        FUZZ_CHECK(rest == in.substr(end));
    } else if (in.size() >= kMaxHead) {
        FUZZ_CHECK(head == nullptr && err == HTTP_UTIL_ERR_HEAD_TOO_LONG);
        FUZZ_CHECK(rest == in.substr(kMaxHead));
    } else {
        // The peer closed before the end of the head.
        FUZZ_CHECK(head == nullptr && err == HTTP_UTIL_ERR_RECV_RSP);
        FUZZ_CHECK(rest.empty());
    }
    free(head);
    return 0;
}
