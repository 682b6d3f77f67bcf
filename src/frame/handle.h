// Internal steps on the transfer handle and its response record.
#ifndef HTTP_UTIL_FRAME_HANDLE_H
#define HTTP_UTIL_FRAME_HANDLE_H

#include "http_util.h"

namespace http_util_internal {

// Before every parse: nothing of an earlier response survives.
void http_rsp_reset(http_rsp *rsp);

// Abandons the handle's connection: closed, and -1 so that the next request
// connects afresh.
void http_util_close_socket(http_util *util);

}  // namespace http_util_internal

#endif
