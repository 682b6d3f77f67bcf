// Result codes and their messages.
#include "http_util.h"

namespace {
constexpr char kNotConformed[] = "Server response is not conformed to protocol";
}

extern "C" {

HTTP_UTIL_API extern const char *const http_util_err_str[HTTP_UTIL_ERR_UNKNOWN + 1] = {
    "Success",
    "Alloc memory failed",
    "Wrong parameter",
    "Resolve hostname failed",
    "Connect to server failed",
    "Server response: Redirect",
    "Only HTTP protocol is supported",
    "Receive response failed",
    "Already done",
    "Receive data failed",
    "Need retry",
    kNotConformed,
    "Server response: Unauthorized",
    "Send data failed",
    "Local file doesn't exist",
    "Unexpected server response",
    "Operation canceled",
    "Request not support",
    "Server response: Not Found",
    "Server response: Forbidden",
    "Server response: Range Not Satisfiable",
    "Server response: Not OK",
    "URLs that contain non-ascii characters are not supported",
    "Save file failed, maybe no enough space left on device",
    "Read local file failed",
    kNotConformed,
    "Receive response timeout",
    "Server response header is too long",
    "Parameter is too long",
    "Wrong URL format",
    "Unknown error",
};

// One unsigned comparison covers negative codes too.
HTTP_UTIL_API const char *http_util_strerr(int code) {
    unsigned idx = static_cast<unsigned>(code);
    if (idx > HTTP_UTIL_ERR_UNKNOWN) idx = HTTP_UTIL_ERR_UNKNOWN;
    return http_util_err_str[idx];
}

}  // extern "C"
