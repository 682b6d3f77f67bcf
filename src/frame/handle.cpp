// The transfer handle and the reset of its response record.
#include "frame/handle.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

void http_util_internal::http_rsp_reset(http_rsp *rsp) {
    memset(rsp, 0, sizeof *rsp);
    rsp->content_len = -1;
    rsp->mtime = -1;
}

void http_util_internal::http_util_close_socket(http_util *util) {
    if (util->socket >= 0) (void)close(util->socket);
    util->socket = -1;
}

extern "C" {

HTTP_UTIL_API http_util *http_create_util(void) {
    auto *util = static_cast<http_util *>(calloc(1, sizeof(http_util)));
    if (util == nullptr) return nullptr;
    util->socket = -1;
    util->timeout = 5;
    util->flags = HTTP_UTIL_FLAG_BUFFERED;
    return util;
}

HTTP_UTIL_API void http_free_util(http_util *util) {
    if (util == nullptr) return;
    http_util_internal::http_util_close_socket(util);
    free(util);
}

}  // extern "C"
