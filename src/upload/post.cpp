// The POST: request head through the buffered writer, the file straight to
// the socket, then the answer.
#define HTTP_LOG_MODULE "http_upload"

#include "upload/post.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/handle.h"
#include "frame/log.h"
#include "frame/raii.h"
#include "http_util.h"
#include "net/io.h"
#include "net/request_writer.h"

namespace http_util_internal {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
constexpr size_t kBoundaryDashes = 20;
constexpr size_t kBoundaryRandom = 23;
constexpr size_t kBoundarySize = kBoundaryDashes + kBoundaryRandom + 1;
constexpr size_t kPartHeaderSize = 512;
constexpr size_t kClosingSize = 52;
constexpr size_t kBlock = 1024;
constexpr int kSendWaits = 5;

// The parts of the body around the file's bytes; both empty in raw mode.
struct Framing {
    char boundary[kBoundarySize] = {};
    char part_header[kPartHeaderSize] = {};
    char closing[kClosingSize] = {};
    size_t extra() const { return strlen(part_header) + strlen(closing); }
};

void make_framing(Framing *f, const char *local_file) {
    memset(f->boundary, '-', kBoundaryDashes);
    for (size_t i = 0; i < kBoundaryRandom; ++i)
        f->boundary[kBoundaryDashes + i] = kAlphabet[random_number(sizeof kAlphabet - 1)];
    f->boundary[kBoundarySize - 1] = '\0';
    snprintf(f->part_header, sizeof f->part_header,
             "--%s\r\nContent-Disposition: form-data; name=\"file%d\"; filename=\"%s\"\r\n"
             "Content-Type: application/octet-stream\r\n\r\n",
             f->boundary, 1, local_file);
    snprintf(f->closing, sizeof f->closing, "\r\n--%s--\r\n", f->boundary);
}

// The file's bytes, never more than the size announced in Content-Length.
int post_file_data(http_url_param *url, int sock, int file_fd, int32_t size) {
    char block[kBlock];
    int budget = kSendWaits;
    int32_t left = size;
    while (left > 0) {
        memset(block, 0, sizeof block);
        size_t want = static_cast<size_t>(left) < kBlock ? static_cast<size_t>(left) : kBlock;
        ssize_t got = read(file_fd, block, want);
        if (got < 0) {
            HTTP_LOG("fs_read error, errno=%d", errno);
            return HTTP_UTIL_ERR_READ_FILE;
        }
        if (got == 0) {
            // The file shrank after its size went out in Content-Length.
            HTTP_LOG("file shorter than its announced size, %d bytes missing", left);
            return HTTP_UTIL_ERR_READ_FILE;
        }
        left -= static_cast<int32_t>(got);
        const char *p = block;
        size_t rest = static_cast<size_t>(got);
        while (rest > 0) {
            int n = fast_write_nonblock(sock, p, static_cast<unsigned>(rest), 1);
            if (n > 0) {
                if (http_change_progess(HTTP_UTIL_PROGRESS_SEND, nullptr,
                                        static_cast<uint32_t>(n), url) != 0) {
                    HTTP_LOG("cancle by user.");
                    return HTTP_UTIL_ERR_CANCELED;
                }
                budget = kSendWaits;
                p += n;
                rest -= static_cast<size_t>(n);
                continue;
            }
            HTTP_LOG("send data failed: %d.", n);
            if (n == 0 || budget <= 0 || errno != ETIMEDOUT) return HTTP_UTIL_ERR_SEND;
            HTTP_LOG("send data timeout");
            if (http_change_progess(HTTP_UTIL_PROGRESS_SEND, nullptr, 0, url) != 0) {
                HTTP_LOG("cancle by user.");
                return HTTP_UTIL_ERR_CANCELED;
            }
            --budget;
        }
    }
    return HTTP_UTIL_OK;
}

int http_post_upload_request_head(http_url_param *url, http_util *util, const Framing &framing,
                                  int file_fd, int32_t size) {
    http_request_line(util->work_buf, sizeof util->work_buf, "POST", url->path);
    if (http_post_header(util, util->work_buf, nullptr) != 0) return HTTP_UTIL_ERR_SEND;
    if (url->port == 80)
        snprintf(util->work_buf, sizeof util->work_buf, "%s", url->host);
    else
        snprintf(util->work_buf, sizeof util->work_buf, "%s:%d", url->host, url->port);
    if (http_post_header(util, "Host", util->work_buf) != 0) return HTTP_UTIL_ERR_SEND;
    if (url->multipart)
        snprintf(util->work_buf, sizeof util->work_buf, "multipart/form-data; boundary=%s",
                 framing.boundary);
    else
        snprintf(util->work_buf, sizeof util->work_buf, "application/octet-stream");
    if (http_post_header(util, "Content-Type", util->work_buf) != 0) return HTTP_UTIL_ERR_SEND;
    if (http_post_header(util, "Accept", "*/*") != 0) return HTTP_UTIL_ERR_SEND;
    snprintf(util->work_buf, sizeof util->work_buf, "%d",
             static_cast<int>(framing.extra()) + size);
    if (http_post_header(util, "Content-Length", util->work_buf) != 0) return HTTP_UTIL_ERR_SEND;
    if (http_post_header(util, nullptr, nullptr) != 0) return HTTP_UTIL_ERR_SEND;
    (void)http_flush(util);  // a broken connection shows in the writes below
    HTTP_LOG("http_post_request success");

    if (http_util_fd_write(util->socket, framing.part_header,
                           static_cast<int>(strlen(framing.part_header)), util->timeout) != 0)
        return HTTP_UTIL_ERR_SEND;
    int rc = post_file_data(url, util->socket, file_fd, size);
    if (rc != HTTP_UTIL_OK) return rc;
    if (http_util_fd_write(util->socket, framing.closing, static_cast<int>(strlen(framing.closing)),
                           util->timeout) != 0)
        return HTTP_UTIL_ERR_SEND;
    return HTTP_UTIL_OK;
}

}  // namespace

int http_post(http_url_param *url, http_util *util, const char *local_file,
              const char *save_path) {
    if (access(local_file, F_OK) != 0) {
        HTTP_LOG("file not exist: %s", local_file);
        return HTTP_UTIL_ERR_NO_LOCAL_FILE;
    }
    UniqueFd file(open(local_file, O_RDONLY | O_CLOEXEC));
    if (!file) {
        HTTP_LOG("open %s failed: %s", local_file, strerror(errno));
        return HTTP_UTIL_ERR_READ_FILE;
    }
    struct stat st;
    if (fstat(file.get(), &st) != 0) {
        HTTP_LOG("fstat %s failed: %s", local_file, strerror(errno));
        return HTTP_UTIL_ERR_READ_FILE;
    }
    if (st.st_size > INT32_MAX) {  // Content-Length and positions are 32-bit
        errno = EOVERFLOW;
        HTTP_LOG("fstat %s failed: %s", local_file, strerror(errno));
        return HTTP_UTIL_ERR_READ_FILE;
    }
    const int32_t size = static_cast<int32_t>(st.st_size);

    if (util->socket == -1) {
        HTTP_LOG("ip_addr:%s",
                 http_sock_ntop(reinterpret_cast<const sockaddr *>(&url->ip_addr), 128));
        util->socket = http_create_socket(reinterpret_cast<const sockaddr *>(&url->ip_addr), 128,
                                          1, url->is_mgmt, url->param.src_ip, url->mgmt_name,
                                          url->param.vrf);
        if (util->socket < 0) {
            util->socket = -1;
            HTTP_LOG("http_create_socket failed");
            return HTTP_UTIL_ERR_CONNECT;
        }
    }
    HTTP_LOG("connect success util->socket:%d", util->socket);

    Framing framing;
    if (url->multipart) make_framing(&framing, local_file);
    HTTP_LOG("begin send");
    int rc = http_post_upload_request_head(url, util, framing, file.get(), size);
    if (rc != HTTP_UTIL_OK) {
        HTTP_LOG("post header failed.");
        http_util_close_socket(util);
        return rc;
    }
    file.reset();
    HTTP_LOG("begin recv");

    int err = HTTP_UTIL_ERR_RECV_RSP;
    MallocPtr<char> head(http_read_http_response_head(util->socket, url, &err));
    if (!head) {
        HTTP_LOG("receive header failed.");
        http_util_close_socket(util);
        return err;
    }
    http_progress_ref ref = {nullptr, -1, nullptr, 0};
    rc = http_parse_http_response_head(util, &ref, head.get());
    if (rc != HTTP_UTIL_OK) {
        HTTP_LOG("parse head result: %s.", http_util_strerr(rc));
        http_util_close_socket(util);
        return rc;
    }
    HTTP_LOG("content_len:%ld status:%d.", static_cast<long>(util->rsp.content_len),
             util->rsp.status);
    head.reset();

    if (save_path != nullptr && save_path[0] != '\0') {
        UniqueFile out(fopen(save_path, "w+"));
        if (!out) {
            HTTP_LOG("fopen file error %s.", strerror(errno));
            http_util_close_socket(util);
            return HTTP_UTIL_ERR_SAVE_FILE;
        }
        rc = util->rsp.chunked
                 ? http_fd_read_body_chunked(url, util->socket, out.get(), nullptr, 0)
                 : http_fd_read_body(url, util->socket, out.get(), nullptr, util->rsp.content_len,
                                     0);
        if (rc != HTTP_UTIL_OK) {
            HTTP_LOG("http_fd_read_body failed");
            out.reset();
            http_util_close_socket(util);
            return rc;
        }
        HTTP_LOG("save  success");
    }
    http_util_close_socket(util);
    if (util->rsp.status == 200) {
        HTTP_LOG("POST success.\n");
        return HTTP_UTIL_OK;
    }
    HTTP_LOG("status %d is not equal 200.\n", util->rsp.status);
    return HTTP_UTIL_ERR_NOT_OK;
}

}  // namespace http_util_internal
