// The exported download calls: each fills a parameter record and hands it
// to the driver with the caller's progress record and management choice.
#include <string.h>

#include "download/download.h"
#include "http_util.h"

namespace {

using http_util_internal::http_download_param;

constexpr int32_t kMaxRedirect = 5;

// Steps shared by every call; tlv is read only by the _tlv calls, which may
// still pass null.
int download(http_progress *progress, const char *url, const char *local_file, int ntry,
             bool with_tlv, const void *tlv, uint8_t is_mgmt, const char *mgmt_name) {
    http_util_init();
    http_util_param param;
    memset(&param, 0, sizeof param);
    if (with_tlv) {
        int rc = http_util_parse_tlv(tlv, &param);
        if (rc != HTTP_UTIL_OK) return rc;
    }
    param.max_redirect = kMaxRedirect;
    param.ntry = ntry;
    return http_download_param(progress, url, local_file, &param, is_mgmt, mgmt_name);
}

}  // namespace

extern "C" {

// The calls without a retry count read the option when they are called, so
// that http_set_options changes the default of later calls.

HTTP_UTIL_API int http_download_file(const char *url, const char *local_file) {
    return download(nullptr, url, local_file, g_http_opt.ntry, false, nullptr, 0, nullptr);
}

HTTP_UTIL_API int http_download_file_tlv(const char *url, const char *local_file,
                                         const void *tlv) {
    return download(nullptr, url, local_file, g_http_opt.ntry, true, tlv, 0, nullptr);
}

HTTP_UTIL_API int http_download_file_ntry(const char *url, const char *local_file, int ntry) {
    return download(nullptr, url, local_file, ntry, false, nullptr, 0, nullptr);
}

HTTP_UTIL_API int http_download_file_ntry_tlv(const char *url, const char *local_file, int ntry,
                                              const void *tlv) {
    return download(nullptr, url, local_file, ntry, true, tlv, 0, nullptr);
}

HTTP_UTIL_API int http_download_file_progress(http_progress *progress, const char *url,
                                              const char *local_file, int ntry) {
    return download(progress, url, local_file, ntry, false, nullptr, 0, nullptr);
}

HTTP_UTIL_API int http_download_file_progress_tlv(http_progress *progress, const char *url,
                                                  const char *local_file, int ntry,
                                                  const void *tlv) {
    return download(progress, url, local_file, ntry, true, tlv, 0, nullptr);
}

HTTP_UTIL_API int http_mgnt_download_file_progress(http_progress *progress, const char *url,
                                                   const char *local_file, int ntry) {
    return download(progress, url, local_file, ntry, false, nullptr, 1, nullptr);
}

HTTP_UTIL_API int http_mgnt_download_file_progress_byname(http_progress *progress,
                                                          const char *url, const char *local_file,
                                                          int ntry, const char *mgmt_name) {
    return download(progress, url, local_file, ntry, false, nullptr, 1, mgmt_name);
}

HTTP_UTIL_API int http_mgnt_download_file(const char *url, const char *local_file) {
    return download(nullptr, url, local_file, g_http_opt.ntry, false, nullptr, 1, nullptr);
}

HTTP_UTIL_API int http_mngt_download_file_ntry(const char *url, const char *local_file,
                                               int ntry) {
    return download(nullptr, url, local_file, ntry, false, nullptr, 1, nullptr);
}

}  // extern "C"
