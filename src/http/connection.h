// The transfer handle's connection for one request and its answer: the
// steps that the GET and the POST share.
#ifndef HTTP_UTIL_HTTP_CONNECTION_H
#define HTTP_UTIL_HTTP_CONNECTION_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "frame/log.h"
#include "frame/raii.h"
#include "http_util.h"

namespace http_util_internal {

// The Host value for url: the host alone for port 80, host:port otherwise,
// an IPv6 literal in brackets. Returns what snprintf returns.
int format_host_value(char *buf, size_t size, const http_url_param *url);

// The first two lines of every request head, composed in work_buf and
// written through the handle's send buffer: the request line ("METHOD
// /path HTTP/1.1") and the Host line. 0, or the number of the line (1 or 2)
// that was not written.
int http_write_request_start(http_util *util, const http_url_param *url, const char *method);

// Owns the handle's socket from the start of a request to its end: however
// the request ends, the socket is closed and the handle left at -1, so the
// next request connects afresh. The steps log under the driver's name.
class Connection {
public:
    Connection(http_util *util, http_url_param *url, LogName driver)
        : util_(util), url_(url), driver_(driver) {}
    ~Connection() { close(); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    bool connected() const { return util_->socket != -1; }
    // To the server of the URL record, in the VRF and from the source
    // address it names; false (errno set, the handle at -1) when it fails.
    bool connect();
    // The answer's head into *head: HTTP_UTIL_OK, or the head reader's code.
    int read_head(MallocPtr<char> *head);
    // The head into util->rsp: HTTP_UTIL_OK, or the parser's code.
    int parse_head(const char *head, http_progress_ref *ref);
    // The file that receives the body, or null (logged).
    FILE *open_output(const char *path, const char *mode);
    // The body into out, chunked or identity as the head says.
    int read_body(FILE *out, http_progress_ref *ref, uint32_t skip);

private:
    void close();

    http_util *util_;
    http_url_param *url_;
    LogName driver_;
};

}  // namespace http_util_internal

#endif
