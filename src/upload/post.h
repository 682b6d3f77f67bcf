// The POST of one local file, reached through http_post_loop.
#ifndef HTTP_UTIL_UPLOAD_POST_H
#define HTTP_UTIL_UPLOAD_POST_H

#include "http_util.h"

namespace http_util_internal {

// Sends local_file to the server of url (multipart form or raw body, by
// url->multipart), reads the answer and saves its body to save_path when
// that is neither null nor empty. 0 for a 200, else a result code.
int http_post(http_url_param *url, http_util *util, const char *local_file,
              const char *save_path);

}  // namespace http_util_internal

#endif
