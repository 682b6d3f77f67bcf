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

#include <algorithm>

#include "frame/log.h"
#include "frame/raii.h"
#include "http/connection.h"
#include "http_util.h"
#include "net/io.h"

namespace http_util_internal {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
constexpr size_t kBoundaryDashes = 20;
constexpr size_t kBoundaryRandom = 23;
constexpr size_t kBoundarySize = kBoundaryDashes + kBoundaryRandom + 1;
constexpr size_t kPartHeaderSize = 512;
constexpr size_t kClosingSize = 52;
constexpr size_t kBlock = 1024;
// The file is read in several blocks at a time: one read per block would be
// a third of an upload's system calls. On the stack, so that an upload
// allocates nothing more.
constexpr size_t kFileBuffer = 8 * kBlock;
constexpr int kSendWaits = 5;

constexpr LogName kPost = {"http_upload", "http_post"};
constexpr LogName kPostFileData = {"http_upload", "post_file_data"};

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

// One block on the wire, after its readiness test: the bytes left when the
// server stalls are tried again, five timed-out waits in a row at most.
int send_block(http_url_param *url, int sock, const char *p, size_t len, int *budget) {
    while (len > 0) {
        int n = fast_write_nonblock(sock, p, static_cast<unsigned>(len), 1);
        if (n > 0) {
            if (http_change_progess(HTTP_UTIL_PROGRESS_SEND, nullptr, static_cast<uint32_t>(n),
                                    url) != 0) {
                HTTP_LOG_AS(kPostFileData, "cancle by user.");
                return HTTP_UTIL_ERR_CANCELED;
            }
            *budget = kSendWaits;
            p += n;
            len -= static_cast<size_t>(n);
            continue;
        }
        HTTP_LOG_AS(kPostFileData, "send data failed: %d.", n);
        if (n == 0 || *budget <= 0 || errno != ETIMEDOUT) return HTTP_UTIL_ERR_SEND;
        HTTP_LOG_AS(kPostFileData, "send data timeout");
        if (http_change_progess(HTTP_UTIL_PROGRESS_SEND, nullptr, 0, url) != 0) {
            HTTP_LOG_AS(kPostFileData, "cancle by user.");
            return HTTP_UTIL_ERR_CANCELED;
        }
        --*budget;
    }
    return HTTP_UTIL_OK;
}

// The file's bytes, never more than the size announced in Content-Length,
// in blocks of 1024 on the wire.
int post_file_data(http_url_param *url, int sock, int file_fd, int32_t size) {
    char buffer[kFileBuffer];
    int budget = kSendWaits;
    int32_t left = size;
    while (left > 0) {
        size_t want = std::min(static_cast<size_t>(left), sizeof buffer);
        ssize_t got = read(file_fd, buffer, want);
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
        for (size_t at = 0; at < static_cast<size_t>(got); at += kBlock) {
            int rc = send_block(url, sock, buffer + at,
                                std::min(kBlock, static_cast<size_t>(got) - at), &budget);
            if (rc != HTTP_UTIL_OK) return rc;
        }
    }
    return HTTP_UTIL_OK;
}

int http_post_upload_request_head(http_url_param *url, http_util *util, const Framing &framing,
                                  int file_fd, int32_t size) {
    if (http_write_request_start(util, url, "POST") != 0) return HTTP_UTIL_ERR_SEND;
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

// The file to send, open, and its size, taken once: Content-Length goes out
// before the bytes.
int open_upload_file(const char *local_file, UniqueFd *file, int32_t *size) {
    if (access(local_file, F_OK) != 0) {
        HTTP_LOG_AS(kPost, "file not exist: %s", local_file);
        return HTTP_UTIL_ERR_NO_LOCAL_FILE;
    }
    file->reset(open(local_file, O_RDONLY | O_CLOEXEC));
    if (!*file) {
        HTTP_LOG_AS(kPost, "open %s failed: %s", local_file, strerror(errno));
        return HTTP_UTIL_ERR_READ_FILE;
    }
    struct stat st;
    if (fstat(file->get(), &st) != 0) {
        HTTP_LOG_AS(kPost, "fstat %s failed: %s", local_file, strerror(errno));
        return HTTP_UTIL_ERR_READ_FILE;
    }
    if (st.st_size > INT32_MAX) {  // Content-Length and positions are 32-bit
        errno = EOVERFLOW;
        HTTP_LOG_AS(kPost, "fstat %s failed: %s", local_file, strerror(errno));
        return HTTP_UTIL_ERR_READ_FILE;
    }
    *size = static_cast<int32_t>(st.st_size);
    return HTTP_UTIL_OK;
}

// The answer's body into save_path.
int save_answer(Connection &conn, const char *save_path) {
    UniqueFile out(conn.open_output(save_path, "w+"));
    if (!out) return HTTP_UTIL_ERR_SAVE_FILE;
    int rc = conn.read_body(out.get(), nullptr, 0);
    if (rc != HTTP_UTIL_OK) {
        HTTP_LOG_AS(kPost, "http_fd_read_body failed");
        return rc;
    }
    HTTP_LOG_AS(kPost, "save  success");
    return HTTP_UTIL_OK;
}

}  // namespace

int http_post(http_url_param *url, http_util *util, const char *local_file,
              const char *save_path) {
    UniqueFd file;
    int32_t size = 0;
    int rc = open_upload_file(local_file, &file, &size);
    if (rc != HTTP_UTIL_OK) return rc;

    Connection conn(util, url, kPost);
    if (!conn.connected()) {
        HTTP_LOG("ip_addr:%s",
                 http_sock_ntop(reinterpret_cast<const sockaddr *>(&url->ip_addr), 128));
        if (!conn.connect()) {
            HTTP_LOG("http_create_socket failed");
            return HTTP_UTIL_ERR_CONNECT;
        }
    }
    HTTP_LOG("connect success util->socket:%d", util->socket);

    Framing framing;
    if (url->multipart) make_framing(&framing, local_file);
    HTTP_LOG("begin send");
    rc = http_post_upload_request_head(url, util, framing, file.get(), size);
    if (rc != HTTP_UTIL_OK) {
        HTTP_LOG("post header failed.");
        return rc;
    }
    file.reset();
    HTTP_LOG("begin recv");

    MallocPtr<char> head;
    if ((rc = conn.read_head(&head)) != HTTP_UTIL_OK) return rc;
    http_progress_ref ref = {nullptr, -1, nullptr, 0};
    if ((rc = conn.parse_head(head.get(), &ref)) != HTTP_UTIL_OK) return rc;
    HTTP_LOG("content_len:%ld status:%d.", static_cast<long>(util->rsp.content_len),
             util->rsp.status);
    head.reset();
    if (save_path != nullptr && save_path[0] != '\0' &&
        (rc = save_answer(conn, save_path)) != HTTP_UTIL_OK)
        return rc;

    if (util->rsp.status == 200) {
        HTTP_LOG("POST success.\n");
        return HTTP_UTIL_OK;
    }
    HTTP_LOG("status %d is not equal 200.\n", util->rsp.status);
    return HTTP_UTIL_ERR_NOT_OK;
}

}  // namespace http_util_internal
