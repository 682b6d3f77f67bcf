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
#include "frame/log.h"
#include "frame/raii.h"
#include "http/connection.h"
#include "http_util.h"

namespace http_util_internal {

namespace {

constexpr LogName kGet = {"http_util", "http_get"};

// A regular file at the local path is a partial copy to resume: its size
// and time go into ref.
int look_at_local_file(http_progress_ref *ref) {
    struct stat st;
    if (stat(ref->local_file, &st) != 0 || !S_ISREG(st.st_mode)) {
        ref->start = 0;
        ref->local_mtime = -1;
        return HTTP_UTIL_OK;
    }
    // Positions are 32-bit: a larger file would resume from a cut-down
    // offset and have the wrong bytes appended. It is no partial copy of
    // anything this call can fetch, and it is not ours to delete.
    if (st.st_size > INT32_MAX) {
        errno = EFBIG;
        HTTP_LOG_AS(kGet, "local file %s too large to resume.", ref->local_file);
        return HTTP_UTIL_ERR_SAVE_FILE;
    }
    ref->start = static_cast<int32_t>(st.st_size);
    ref->local_mtime = static_cast<int32_t>(st.st_mtime);
    return HTTP_UTIL_OK;
}

// Content-Range, Content-Length and the complete length made to agree.
void reconcile_lengths(http_rsp *rsp) {
    if (rsp->content_len == -1) HTTP_LOG_AS(kGet, "can't find content-length.\n");
    HTTP_LOG_AS(kGet, "http_rsp->file_len:%d http_rsp->content_len:%d", rsp->file_len,
                rsp->content_len);
    if (rsp->content_len != -1 && rsp->range_start != 0 && rsp->range_end != 0) {
        int32_t span = rsp->range_end + 1 - rsp->range_start;
        if (span != rsp->content_len) {
            HTTP_LOG_AS(kGet, "warning: Content-Range doesn't match Content-Length.");
            if (static_cast<uint32_t>(span) < static_cast<uint32_t>(rsp->content_len))
                rsp->content_len = span;
        }
    }
    if (rsp->content_len != -1 && rsp->file_len == 0) rsp->file_len = rsp->content_len;
    if (static_cast<uint32_t>(rsp->file_len) < static_cast<uint32_t>(rsp->range_end)) {
        HTTP_LOG_AS(kGet, "warning: File length is less than Range-end.");
        rsp->file_len = rsp->range_end;
    }
}

// The answer's Last-Modified says that the local file, whose time the
// last attempt set to the server's, belongs to another version.
bool server_copy_changed(const http_rsp &rsp, const http_progress_ref &ref) {
    return rsp.mtime != -1 && g_http_opt.timestamp_check != 0 && rsp.mtime != ref.local_mtime;
}

// The local file goes and the whole file is fetched again. A file that
// cannot be removed would make every restart find it again, so that is a
// failure to save.
int start_over(const http_progress_ref &ref) {
    if (unlink(ref.local_file) != 0 && errno != ENOENT) return HTTP_UTIL_ERR_SAVE_FILE;
    HTTP_LOG_AS(kGet, "unlink %s.", ref.local_file);
    return HTTP_UTIL_NEED_RETRY;
}

// The server's copy changed under the partial file: its bytes cannot be
// joined to the new version.
int drop_changed_partial_file(const http_rsp &rsp, const http_progress_ref &ref) {
    if (ref.start <= 0 || !server_copy_changed(rsp, ref)) return HTTP_UTIL_OK;
    return start_over(ref);
}

// A head the parser refused. A 416 to a Range from the end of the server's
// file means the local file is whole and stays as it is, unless it is
// another version of the same size; one longer than the server's file is no
// prefix of it.
int settle_refused_head(int rc, const http_rsp &rsp, const http_progress_ref &ref) {
    if (rc == HTTP_UTIL_ALREADY_DONE && !server_copy_changed(rsp, ref)) return HTTP_UTIL_OK;
    if (rc != HTTP_UTIL_ALREADY_DONE && rc != HTTP_UTIL_NEED_RETRY) return rc;
    return start_over(ref);
}

// The body appended to the local file, which then carries the server's
// time, a partial one too: the next attempt then resumes it.
int store_body(Connection &conn, const http_rsp &rsp, http_url_param *url,
               http_progress_ref *ref) {
    (void)http_change_progess(HTTP_UTIL_PROGRESS_SIZE, ref, static_cast<uint32_t>(rsp.file_len),
                              url);
    // A server that ignored the Range sends the file from its first byte.
    uint32_t skip = ref->start > 0 && rsp.range_start == 0 ? static_cast<uint32_t>(ref->start) : 0;
    UniqueFile file(conn.open_output(ref->local_file, "ab"));
    if (!file) return HTTP_UTIL_ERR_SAVE_FILE;
    int rc = conn.read_body(file.get(), ref, skip);
    if (rc != HTTP_UTIL_OK)
        HTTP_LOG_AS(kGet, " errno %s", strerror(errno));
    else
        HTTP_LOG_AS(kGet, "save  success");
    file.reset();
    if (rsp.mtime != -1) {
        touch(ref->local_file, rsp.mtime);
        HTTP_LOG_AS(kGet, "modify %s time %s  success", ref->local_file, rsp.last_modified);
    }
    return rc;
}

}  // namespace

int http_get_request(http_util *util, const http_url_param *url, int32_t start) {
    int failed = http_write_request_start(util, url, "GET");
    if (failed == 1) HTTP_LOG("errno:%s", strerror(errno));
    if (failed != 0) return -1;
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

int http_get(http_url_param *url, http_util *util, http_progress_ref *ref) {
    int rc = look_at_local_file(ref);
    if (rc != HTTP_UTIL_OK) return rc;

    Connection conn(util, url, kGet);
    if (!conn.connected()) {
        if (!conn.connect()) {
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
        return HTTP_UTIL_ERR_SEND;
    }

    MallocPtr<char> head;
    if ((rc = conn.read_head(&head)) != HTTP_UTIL_OK) return rc;
    // The reader leaves its code at the preset value when it returns a head.
    HTTP_LOG("read response ret:%d, len: %d", HTTP_UTIL_ERR_RECV_RSP,
             static_cast<int>(strlen(head.get())));
    if ((rc = conn.parse_head(head.get(), ref)) != HTTP_UTIL_OK)
        return settle_refused_head(rc, util->rsp, *ref);
    head.reset();

    reconcile_lengths(&util->rsp);
    if ((rc = drop_changed_partial_file(util->rsp, *ref)) != HTTP_UTIL_OK) return rc;
    return store_body(conn, util->rsp, url, ref);
}

}  // namespace http_util_internal
