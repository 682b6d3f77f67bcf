// Internal steps on the transfer handle and its response record.
#ifndef HTTP_UTIL_FRAME_HANDLE_H
#define HTTP_UTIL_FRAME_HANDLE_H

#include "http_util.h"

namespace http_util_internal {

// Before every parse: nothing of an earlier response survives.
void http_rsp_reset(http_rsp *rsp);

}  // namespace http_util_internal

#endif
