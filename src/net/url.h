// The two steps of http_create_url_param, under the names their log
// records carry.
#ifndef HTTP_UTIL_NET_URL_H
#define HTTP_UTIL_NET_URL_H

#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>

#include <string_view>

#include "http_util.h"

namespace http_util_internal {

// Cuts of a text that never throw (string_view's substr would, and so pull
// in the C++ library): the first n characters, all when there are fewer;
// the text from position n on, empty past the end.
inline std::string_view head(std::string_view s, size_t n) {
    return std::string_view(s.data(), n < s.size() ? n : s.size());
}
inline std::string_view from(std::string_view s, size_t n) {
    return n < s.size() ? std::string_view(s.data() + n, s.size() - n)
                        : std::string_view(s.data() + s.size(), 0);
}

// The download driver's URL buffer: a URL, or a redirection target, of at
// most 255 characters and its NUL.
constexpr size_t kUrlBufSize = 256;

// Splits a URL whose scheme the caller has checked into host, port, path
// and filename of up, and stores the url pointer. 0, or -1 after its log
// record for a malformed or over-long host part.
int http_parse_url(const char *url, http_url_param *up);

// The server address for host and port: an address literal as it stands,
// a name through the device resolver (IPv4 answers only). 0, or -1 after
// its log record.
int http_tcp_gethost(const char *host, int port, uint32_t is_mgmt, sockaddr_storage *addr);

// Replaces url, the URL that was asked for, with the redirection target
// location: as given when it is an absolute URL, else resolved against url
// (absolute or relative path, dot segments, query, network path). False,
// with url unchanged, when the result does not fit.
bool http_resolve_location(char (&url)[kUrlBufSize], const char *location);

}  // namespace http_util_internal

#endif
