// Internal steps of the request writer: the handle's 1024-byte send buffer.
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

// The request line "METHOD /TARGET HTTP/1.1" into buf: the target is a URL
// record's path less one leading "/", with each space written as %20 (a
// raw space would end the target early).
void http_request_line(char *buf, size_t size, const char *method, const char *path);

}  // namespace http_util_internal

#endif
