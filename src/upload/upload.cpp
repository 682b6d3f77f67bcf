// The upload entry points and the POST driver.
#define HTTP_LOG_MODULE "http_upload"

#include <stdlib.h>
#include <string.h>

#include "frame/log.h"
#include "frame/raii.h"
#include "http_util.h"
#include "upload/post.h"

using http_util_internal::MallocPtr;

extern "C" {

HTTP_UTIL_API int http_post_loop(http_url_param *url, const char *local_file,
                                 const char *save_path) {
    http_util *util = http_create_util();
    if (util == nullptr) return HTTP_UTIL_ERR_NOMEM;
    (void)http_change_progess(HTTP_UTIL_PROGRESS_BEGIN, nullptr, 0, url);
    int rc = http_util_internal::http_post(url, util, local_file, save_path);
    (void)http_change_progess(HTTP_UTIL_PROGRESS_END, nullptr, 0, url);
    http_free_util(util);
    return rc;
}

// Also sets up logging, so that a host program using only this call gets
// its records too.
HTTP_UTIL_API int http_upload_param(const char *url, const char *local_file,
                                    const http_util_param *param, uint8_t is_mgmt,
                                    const char *mgmt_name) {
    if (url == nullptr || local_file == nullptr || param == nullptr) return HTTP_UTIL_ERR_PARAM;
    http_util_init();
    int err = HTTP_UTIL_OK;
    MallocPtr<http_url_param> rec(http_create_url_param(url, &err, param, is_mgmt, mgmt_name));
    if (!rec) {
        HTTP_LOG("http_create_url fail");
        return err;
    }
    rec->multipart = 1;
    return http_post_loop(rec.get(), local_file, nullptr);
}

}  // extern "C"

namespace {

int upload_with(const char *url, const char *local_file, const void *tlv, uint8_t is_mgmt) {
    http_util_init();
    http_util_param param;
    memset(&param, 0, sizeof param);
    int rc = http_util_parse_tlv(tlv, &param);
    if (rc != HTTP_UTIL_OK) return rc;
    return http_upload_param(url, local_file, &param, is_mgmt, nullptr);
}

}  // namespace

extern "C" {

HTTP_UTIL_API int http_upload_file(const char *url, const char *local_file) {
    return upload_with(url, local_file, nullptr, 0);
}

HTTP_UTIL_API int http_upload_file_tlv(const char *url, const char *local_file, const void *tlv) {
    return upload_with(url, local_file, tlv, 0);
}

HTTP_UTIL_API int http_mgnt_upload_file(const char *url, const char *local_file) {
    return upload_with(url, local_file, nullptr, 1);
}

}  // extern "C"
