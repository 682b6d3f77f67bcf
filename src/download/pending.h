// Declarations of the lower layers that are not in the public header yet.
// Weak, so that the library and its tests link before those layers are
// merged. Removed once they are.
#ifndef HTTP_UTIL_DOWNLOAD_PENDING_H
#define HTTP_UTIL_DOWNLOAD_PENDING_H

#include <stdint.h>
#include <stdio.h>
#include <sys/socket.h>

#include "http_util.h"

extern "C" {

#define HTTP_UTIL_PENDING __attribute__((weak))

int http_post_loop(http_url_param *url, const char *local_file,
                   const char *save_path) HTTP_UTIL_PENDING;
char *http_util_generate_tmpname(const char *name) HTTP_UTIL_PENDING;
int http_upload_param(const char *url, const char *local_file, http_util_param *param,
                      uint8_t is_mgmt, const char *mgmt_name) HTTP_UTIL_PENDING;

#undef HTTP_UTIL_PENDING
}

#endif
