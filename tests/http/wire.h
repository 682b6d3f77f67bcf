// Helpers for feeding the readers over a loopback connection.
#ifndef HTTP_UTIL_TESTS_HTTP_WIRE_H
#define HTTP_UTIL_TESTS_HTTP_WIRE_H

#include <stddef.h>

#include <string>

#include "scripted_server.h"

namespace wire {

// True once the reader has taken the first n bytes off the connected
// client socket fd. Checked from the server's thread before the next part
// is sent, so that a reader sees each part on its own.
using scripted::taken_off;

// The next byte the socket holds (waits up to 5 s for it); -1 at the end
// of the stream or on time-out.
int next_byte(int fd);

// Everything left until the peer closes (waits up to 5 s per read).
std::string rest(int fd);

}  // namespace wire

#endif
