// The steps of one request that the GET and the POST share: the first lines
// of the request head, and the connection's steps.
#include "http/connection.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include "frame/handle.h"
#include "http_util.h"
#include "net/request_writer.h"

namespace http_util_internal {

int format_host_value(char *buf, size_t size, const http_url_param *url) {
    const bool v4 = url->ip_addr.ss_family == AF_INET;
    if (url->port == 80) return snprintf(buf, size, v4 ? "%s" : "[%s]", url->host);
    return snprintf(buf, size, v4 ? "%s:%d" : "[%s]:%d", url->host, url->port);
}

int http_write_request_start(http_util *util, const http_url_param *url, const char *method) {
    http_request_line(util->work_buf, sizeof util->work_buf, method, url->path);
    if (http_post_header(util, util->work_buf, nullptr) != 0) return 1;
    (void)format_host_value(util->work_buf, sizeof util->work_buf, url);
    if (http_post_header(util, "Host", util->work_buf) != 0) return 2;
    return 0;
}

bool Connection::connect() {
    util_->socket = http_create_socket(reinterpret_cast<const sockaddr *>(&url_->ip_addr),
                                       sizeof url_->ip_addr, 1, url_->is_mgmt,
                                       url_->param.src_ip, url_->mgmt_name, url_->param.vrf);
    if (util_->socket >= 0) return true;
    util_->socket = -1;
    return false;
}

int Connection::read_head(MallocPtr<char> *head) {
    // The reader writes the code only when it returns no head.
    int err = HTTP_UTIL_ERR_RECV_RSP;
    head->reset(http_read_http_response_head(util_->socket, url_, &err));
    if (*head) return HTTP_UTIL_OK;
    HTTP_LOG_AS(driver_, "receive header failed.");
    return err;
}

int Connection::parse_head(const char *head, http_progress_ref *ref) {
    int rc = http_parse_http_response_head(util_, ref, head);
    if (rc != HTTP_UTIL_OK) HTTP_LOG_AS(driver_, "parse head result: %s.", http_util_strerr(rc));
    return rc;
}

FILE *Connection::open_output(const char *path, const char *mode) {
    FILE *f = fopen(path, mode);
    if (f == nullptr) HTTP_LOG_AS(driver_, "fopen file error %s.", strerror(errno));
    return f;
}

int Connection::read_body(FILE *out, http_progress_ref *ref, uint32_t skip) {
    const http_rsp &rsp = util_->rsp;
    if (rsp.chunked) return http_fd_read_body_chunked(url_, util_->socket, out, ref, skip);
    return http_fd_read_body(url_, util_->socket, out, ref, rsp.content_len, skip);
}

void Connection::close() { http_util_close_socket(util_); }

}  // namespace http_util_internal
