// The copy command: a URL into a local file, or a local file up to a URL.
// A download goes to a temporary file beside the destination and replaces
// it only once the whole file has arrived.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include "download/download.h"
#include "frame/log.h"
#include "frame/raii.h"
#include "http_util.h"

namespace {

using http_util_internal::MallocPtr;

constexpr size_t kMaxArgLen = 255;

bool is_http_url(const char *s) { return strncasecmp(s, "http://", 7) == 0; }

bool too_long(const char *s) { return strnlen(s, kMaxArgLen + 1) > kMaxArgLen; }

bool is_ascii(const char *s) {
    for (; *s != '\0'; ++s)
        if (static_cast<unsigned char>(*s) >= 0x80) return false;
    return true;
}

constexpr http_util_internal::LogName kCopy = {"http_util", "http_util_copy"};

// Puts what path holds on storage: a file's data, or a folder's entries.
// False, logged, when it cannot.
bool sync_to_storage(const char *path, int flags) {
    http_util_internal::UniqueFd fd(open(path, flags | O_CLOEXEC));
    if (!fd) {
        HTTP_LOG_AS(kCopy, "open to fsync failed.");
        return false;
    }
    if (fsync(fd.get()) != 0) {
        HTTP_LOG_AS(kCopy, "fsync failed.");
        return false;
    }
    return true;
}

// The folder that holds path: "." for a bare name, "/" for a name at the root.
void folder_of(const char *path, char (&folder)[kMaxArgLen + 1]) {
    const char *slash = strrchr(path, '/');
    if (slash == nullptr)
        http_util_internal::copy_bounded(folder, ".");
    else
        http_util_internal::copy_bounded(
            folder, std::string_view(path, slash == path ? 1 : static_cast<size_t>(slash - path)));
}

}  // namespace

extern "C" HTTP_UTIL_API int http_util_copy(const char *src, const char *dst,
                                            http_util_param *param) {
    http_util_init();
    if (src == nullptr || dst == nullptr || param == nullptr) {
        HTTP_LOG("null parameter");
        return HTTP_UTIL_ERR_PARAM;
    }
    if (too_long(src) || too_long(dst)) {
        HTTP_LOG("parameter too long");
        return HTTP_UTIL_ERR_PARAM_TOO_LONG;
    }
    bool download;
    if (is_http_url(src)) {
        download = true;
    } else if (is_http_url(dst)) {
        download = false;
    } else {
        HTTP_LOG("src or dst not supported");
        return HTTP_UTIL_ERR_NOT_SUPPORTED;
    }

    MallocPtr<char> url(strdup(download ? src : dst));
    if (!url) return HTTP_UTIL_ERR_NOMEM;
    MallocPtr<char> local;
    if (download) {
        // The name maker reports no memory and five taken names alike; errno
        // tells them apart.
        errno = 0;
        local.reset(http_util_generate_tmpname(dst));
        if (!local) return errno == ENOMEM ? HTTP_UTIL_ERR_NOMEM : HTTP_UTIL_ERR_SAVE_FILE;
    } else {
        local.reset(strdup(src));
        if (!local) return HTTP_UTIL_ERR_NOMEM;
    }
    if (!is_ascii(url.get())) {
        HTTP_LOG("url not ascii");
        return HTTP_UTIL_ERR_URL_NOT_ASCII;
    }
    if (param->show_progress == 0) param->show_progress = 1;

    if (!download) return http_upload_param(url.get(), local.get(), param, 0, nullptr);

    int rc = http_util_internal::http_download_param(nullptr, url.get(), local.get(), param, 0,
                                                     nullptr);
    if (rc != HTTP_UTIL_OK) {
        (void)unlink(local.get());
        return rc;
    }
    // Durable order: on a file system that does not write the data before
    // the rename, a power loss in between would leave an empty destination.
    if (!sync_to_storage(local.get(), O_WRONLY)) {
        (void)unlink(local.get());
        return HTTP_UTIL_ERR_SAVE_FILE;
    }
    if (rename(local.get(), dst) != 0) {
        HTTP_LOG("rename file failed:%s", strerror(errno));
        (void)unlink(local.get());
        return HTTP_UTIL_ERR_SAVE_FILE;
    }
    // The new entry lasts once its folder is on storage. The data is in
    // place already, so a failure here leaves the copy a success.
    char folder[kMaxArgLen + 1];
    folder_of(dst, folder);
    (void)sync_to_storage(folder, O_RDONLY | O_DIRECTORY);
    return HTTP_UTIL_OK;
}
