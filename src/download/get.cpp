// One GET attempt: resume decision, request head, response head, lengths,
// the partial file's version check, the body and the file's time.
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "download/download.h"
#include "frame/handle.h"
#include "frame/log.h"
#include "frame/raii.h"
#include "http_util.h"
#include "net/request_writer.h"

namespace http_util_internal {

int format_host_value(char *buf, size_t size, const http_url_param *url) {
    const bool v4 = url->ip_addr.ss_family == AF_INET;
    if (url->port == 80) return snprintf(buf, size, v4 ? "%s" : "[%s]", url->host);
    return snprintf(buf, size, v4 ? "%s:%d" : "[%s]:%d", url->host, url->port);
}

int http_get_request(http_util *util, const http_url_param *url, int32_t start) {
    http_request_line(util->work_buf, sizeof util->work_buf, "GET", url->path);
    if (http_post_header(util, util->work_buf, nullptr) != 0) {
        HTTP_LOG("errno:%s", strerror(errno));
        return -1;
    }
    (void)format_host_value(util->work_buf, sizeof util->work_buf, url);
    if (http_post_header(util, "Host", util->work_buf) != 0) return -1;
    if (start > 0) {
        char range[32];
        (void)snprintf(range, sizeof range, "bytes=%d-", start);
        if (http_post_header(util, "Range", range) != 0) return -1;
    }
    if (http_post_header(util, "Accept", "*/*") != 0) return -1;
    if (http_post_header(util, nullptr, nullptr) != 0) return -1;
    // A failed transmission shows when the response head is read.
    (void)http_flush(util);
    HTTP_LOG("http_post_request success");
    return 0;
}

namespace {

// The answer's Last-Modified says that the local file, whose time the
// last attempt set to the server's, belongs to another version.
bool server_copy_changed(const http_rsp &rsp, const http_progress_ref &ref) {
    return rsp.mtime != -1 && g_http_opt.timestamp_check != 0 && rsp.mtime != ref.local_mtime;
}

// A local file that cannot be removed would make every restart find it
// again, so that is a failure to save.
bool local_file_removed(const char *path) { return unlink(path) == 0 || errno == ENOENT; }

}  // namespace

int http_get(http_url_param *url, http_util *util, http_progress_ref *ref) {
    struct stat st;
    if (stat(ref->local_file, &st) == 0 && S_ISREG(st.st_mode)) {
        // Positions are 32-bit: a larger file would resume from a cut-down
        // offset and have the wrong bytes appended. It is no partial copy of
        // anything this call can fetch, and it is not ours to delete.
        if (st.st_size > INT32_MAX) {
            errno = EFBIG;
            HTTP_LOG("local file %s too large to resume.", ref->local_file);
            return HTTP_UTIL_ERR_SAVE_FILE;
        }
        ref->start = static_cast<int32_t>(st.st_size);
        ref->local_mtime = static_cast<int32_t>(st.st_mtime);
    } else {
        ref->start = 0;
        ref->local_mtime = -1;
    }

    if (util->socket == -1) {
        util->socket = http_create_socket(reinterpret_cast<const struct sockaddr *>(&url->ip_addr),
                                          sizeof url->ip_addr, 1, url->is_mgmt, url->param.src_ip,
                                          url->mgmt_name, url->param.vrf);
        if (util->socket < 0) {
            util->socket = -1;
            HTTP_LOG("errno:%s", strerror(errno));
            return HTTP_UTIL_ERR_CONNECT;
        }
        HTTP_LOG("http_get-->connect %s success util->socket:%d",
                 http_sock_ntop(reinterpret_cast<const struct sockaddr *>(&url->ip_addr),
                                sizeof url->ip_addr),
                 util->socket);
    }

    if (http_get_request(util, url, ref->start) != 0) {
        HTTP_LOG("errno %s", strerror(errno));
        http_util_close_socket(util);
        return HTTP_UTIL_ERR_SEND;
    }

    int err = HTTP_UTIL_ERR_RECV_RSP;
    MallocPtr<char> head(http_read_http_response_head(util->socket, url, &err));
    if (!head) {
        HTTP_LOG("receive header failed.");
        http_util_close_socket(util);
        return err;
    }
    HTTP_LOG("read response ret:%d, len: %d", err, static_cast<int>(strlen(head.get())));
    int rc = http_parse_http_response_head(util, ref, head.get());
    if (rc != HTTP_UTIL_OK) {
        HTTP_LOG("parse head result: %s.", http_util_strerr(rc));
        http_util_close_socket(util);
        // A 416 to a Range from the end of the server's file: the local file
        // is whole and stays as it is, unless it is another version of the
        // same size. One longer than the server's file is no prefix of it.
        if (rc == HTTP_UTIL_ALREADY_DONE && !server_copy_changed(util->rsp, *ref))
            return HTTP_UTIL_OK;
        if (rc != HTTP_UTIL_ALREADY_DONE && rc != HTTP_UTIL_NEED_RETRY) return rc;
        if (!local_file_removed(ref->local_file)) return HTTP_UTIL_ERR_SAVE_FILE;
        HTTP_LOG("unlink %s.", ref->local_file);
        return HTTP_UTIL_NEED_RETRY;
    }
    head.reset();

    http_rsp *rsp = &util->rsp;
    if (rsp->content_len == -1) HTTP_LOG("can't find content-length.\n");
    HTTP_LOG("http_rsp->file_len:%d http_rsp->content_len:%d", rsp->file_len, rsp->content_len);
    if (rsp->content_len != -1 && rsp->range_start != 0 && rsp->range_end != 0) {
        int32_t span = rsp->range_end + 1 - rsp->range_start;
        if (span != rsp->content_len) {
            HTTP_LOG("warning: Content-Range doesn't match Content-Length.");
            if (static_cast<uint32_t>(span) < static_cast<uint32_t>(rsp->content_len))
                rsp->content_len = span;
        }
    }
    if (rsp->content_len != -1 && rsp->file_len == 0) rsp->file_len = rsp->content_len;
    if (static_cast<uint32_t>(rsp->file_len) < static_cast<uint32_t>(rsp->range_end)) {
        HTTP_LOG("warning: File length is less than Range-end.");
        rsp->file_len = rsp->range_end;
    }

    // The server's copy changed under the partial file: its bytes cannot be
    // joined to the new version.
    if (ref->start > 0 && server_copy_changed(*rsp, *ref)) {
        http_util_close_socket(util);
        if (!local_file_removed(ref->local_file)) return HTTP_UTIL_ERR_SAVE_FILE;
        HTTP_LOG("unlink %s.", ref->local_file);
        return HTTP_UTIL_NEED_RETRY;
    }

    (void)http_change_progess(HTTP_UTIL_PROGRESS_SIZE, ref, static_cast<uint32_t>(rsp->file_len),
                              url);
    // A server that ignored the Range sends the file from its first byte.
    uint32_t skip = ref->start > 0 && rsp->range_start == 0 ? static_cast<uint32_t>(ref->start) : 0;
    UniqueFile file(fopen(ref->local_file, "ab"));
    if (!file) {
        HTTP_LOG("fopen file error %s.", strerror(errno));
        http_util_close_socket(util);
        return HTTP_UTIL_ERR_SAVE_FILE;
    }
    rc = rsp->chunked ? http_fd_read_body_chunked(url, util->socket, file.get(), ref, skip)
                      : http_fd_read_body(url, util->socket, file.get(), ref, rsp->content_len, skip);
    if (rc != HTTP_UTIL_OK) {
        HTTP_LOG(" errno %s", strerror(errno));
        file.reset();
        // The partial file carries the server's time, so that the next
        // attempt resumes it instead of starting over.
        if (rsp->mtime != -1) {
            touch(ref->local_file, rsp->mtime);
            HTTP_LOG("modify %s time %s  success", ref->local_file, rsp->last_modified);
        }
        http_util_close_socket(util);
        return rc;
    }
    HTTP_LOG("save  success");
    if (!rsp->keep_alive) http_util_close_socket(util);
    file.reset();
    if (rsp->mtime != -1) {
        touch(ref->local_file, rsp->mtime);
        HTTP_LOG("modify %s time %s  success", ref->local_file, rsp->last_modified);
    }
    return HTTP_UTIL_OK;
}

}  // namespace http_util_internal
