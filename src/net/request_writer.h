// Internal steps of the request writer: the handle's 1024-byte send buffer.
#ifndef HTTP_UTIL_NET_REQUEST_WRITER_H
#define HTTP_UTIL_NET_REQUEST_WRITER_H

#include "http_util.h"

namespace http_util_internal {

// Appends count bytes to the send buffer, writing every block that fills
// it (or writes them straight when buffering is off). 0 or -1 (last_err).
int http_buffered_send(http_util *util, const void *bytes, int count);

// Sends text without its LF characters. 0 or -1.
int http_write_header_text(http_util *util, const char *text);

}  // namespace http_util_internal

#endif
