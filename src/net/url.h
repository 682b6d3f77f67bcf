// The two steps of http_create_url_param, under the names their log
// records carry.
#ifndef HTTP_UTIL_NET_URL_H
#define HTTP_UTIL_NET_URL_H

#include <stdint.h>
#include <sys/socket.h>

#include "http_util.h"

namespace http_util_internal {

// Splits a URL whose scheme the caller has checked into host, port, path
// and filename of up, and stores the url pointer. 0, or -1 after its log
// record for a malformed or over-long host part.
int http_parse_url(const char *url, http_url_param *up);

// The server address for host and port: an address literal as it stands,
// a name through the device resolver (IPv4 answers only). 0, or -1 after
// its log record.
int http_tcp_gethost(const char *host, int port, uint32_t is_mgmt, sockaddr_storage *addr);

}  // namespace http_util_internal

#endif
