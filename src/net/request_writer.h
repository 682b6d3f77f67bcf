// Internal steps of the request writer: the handle's 1024-byte send buffer
// and the lines every request head begins with.
#ifndef HTTP_UTIL_NET_REQUEST_WRITER_H
#define HTTP_UTIL_NET_REQUEST_WRITER_H

#include <stddef.h>

#include "http_util.h"

namespace http_util_internal {

// Appends count bytes to the send buffer, writing every block that fills
// it (or writes them straight when buffering is off). 0 or -1 (last_err).
int http_buffered_send(http_util *util, const void *bytes, int count);

// Sends text without its LF characters. 0 or -1.
int http_write_header_text(http_util *util, const char *text);

// The Host value for url: the host alone for port 80, host:port otherwise,
// an IPv6 literal in brackets. Returns what snprintf returns.
int format_host_value(char *buf, size_t size, const http_url_param *url);

// The first two lines of every request head, composed in work_buf: the
// request line ("METHOD /path HTTP/1.1") and the Host line. 0, or the
// number of the line (1 or 2) that was not written.
int http_write_request_start(http_util *util, const http_url_param *url, const char *method);

}  // namespace http_util_internal

#endif
