// From the head text to the parsed response record and one result code.
#include <ctype.h>
#include <string.h>

#include "frame/handle.h"
#include "frame/log.h"
#include "http/response.h"
#include "http_util.h"

namespace {

constexpr size_t kLineSize = 512;

bool is_digit(char c) { return isdigit(static_cast<unsigned char>(c)) != 0; }
bool is_space(char c) { return isspace(static_cast<unsigned char>(c)) != 0; }
bool is_blank_or_control(char c) {
    auto u = static_cast<unsigned char>(c);
    return u >= 1 && u <= 32;
}

const char *skip_digits(const char *p) {
    while (is_digit(*p)) ++p;
    return p;
}

const char *skip_space(const char *p) {
    while (is_space(*p)) ++p;
    return p;
}

// The value of a header line without surrounding blanks and quotes; its
// first character is never cut.
char *trim_value(char *v) {
    while (is_blank_or_control(*v)) ++v;
    if (*v == '"') ++v;
    size_t len = strlen(v);
    if (len == 0) return v;
    char *e = v + len - 1;
    while (e > v && static_cast<unsigned char>(*e) <= 32) *e-- = '\0';
    if (*e == '"') *e = '\0';
    return v;
}

bool is_redirect(int32_t status) {
    return status == 300 || status == 301 || status == 302 || status == 303 || status == 307;
}

// Where the three digits of a status line's code begin, after "HTTP", the
// version (passed over, not examined) and blanks; null when the line does
// not begin with "HTTP" or has no three digits there.
const char *status_digits(const char *line) {
    if (strncmp(line, "HTTP", 4) != 0) return nullptr;
    const char *p = line + 4;
    if (*p == '/') {
        p = skip_digits(p + 1);
        if (*p == '.') ++p;
        p = skip_digits(p);
    }
    p = skip_space(p);
    return is_digit(p[0]) && is_digit(p[1]) && is_digit(p[2]) ? p : nullptr;
}

int32_t code_of(const char *d) { return (d[0] - '0') * 100 + (d[1] - '0') * 10 + (d[2] - '0'); }

}  // namespace

int http_util_internal::http_status_code(const char *line) {
    const char *p = status_digits(line);
    return p != nullptr && (p[3] == '\0' || is_space(p[3])) ? code_of(p) : -1;
}

// Checked in this order: a range that starts elsewhere than asked is
// refused whatever the status.
int http_util_internal::http_process_response_head(http_util *util, http_progress_ref *ref,
                                                   bool unsatisfied) {
    const http_rsp &rsp = util->rsp;
    int32_t status = rsp.status;
    HTTP_LOG("statcode:%d.", status);
    if (status == 403) return HTTP_UTIL_ERR_FORBIDDEN;
    if (status == 404) return HTTP_UTIL_ERR_NOT_FOUND;
    if (status == 401) return HTTP_UTIL_ERR_UNAUTHORIZED;
    int32_t start = ref != nullptr ? ref->start : 0;
    if (status == 416) {
        // Asked from the end of the server's file, or from beyond it.
        if (unsatisfied && start > 0 && rsp.file_len == start) {
            HTTP_LOG("file already complete, %d bytes.", start);
            return HTTP_UTIL_ALREADY_DONE;
        }
        if (unsatisfied && start > 0 && rsp.file_len >= 0 && rsp.file_len < start) {
            HTTP_LOG("local file longer than the server's %d bytes.", rsp.file_len);
            return HTTP_UTIL_NEED_RETRY;
        }
        HTTP_LOG("Range wrong.");
        return HTTP_UTIL_ERR_RANGE;
    }
    if (rsp.range_start != 0 && rsp.range_start != start) return HTTP_UTIL_ERR_PROTOCOL;
    if (status == 206 && rsp.range_start == 0) return HTTP_UTIL_ERR_UNEXPECTED_RSP;
    if (is_redirect(status)) {
        HTTP_LOG("http-get return newlocation, statcode:%d", status);
        return HTTP_UTIL_ERR_REDIRECT;
    }
    if (status >= 200 && status <= 299) return HTTP_UTIL_OK;
    HTTP_LOG("statcode:%d is not suport.", status);
    return HTTP_UTIL_ERR_UNEXPECTED_RSP;
}

extern "C" {

// A line ends at LF, with the CR before it if there is one: servers that
// end their lines in LF alone are read like the others.
HTTP_UTIL_API const char *http_getline(const char *text, char *dst, int size) {
    const char *lf = strchr(text, '\n');
    if (lf == nullptr) return nullptr;
    auto len = static_cast<long>(lf - text);
    if (len > 0 && text[len - 1] == '\r') --len;
    if (len == 0) {
        dst[0] = '\0';
        return lf + 1;
    }
    if (len >= size) return nullptr;
    memcpy(dst, text, static_cast<size_t>(len));
    dst[len] = '\0';
    return lf + 1;
}

HTTP_UTIL_API int http_parse_resp_status(http_rsp *rsp, const char *line) {
    HTTP_LOG("status: %s", line);
    const char *p = status_digits(line);
    if (p == nullptr) return -1;
    rsp->status = code_of(p);
    p += 3;
    if (*p != '\0' && !is_space(*p)) {
        HTTP_LOG("invalid status line");
        return -1;
    }
    HTTP_LOG("rsp->status:%d status message: [%s]", rsp->status, skip_space(p));
    return 0;
}

HTTP_UTIL_API int http_parse_http_response_head(http_util *util, http_progress_ref *ref,
                                                const char *head) {
    http_rsp *rsp = &util->rsp;
    http_util_internal::http_rsp_reset(rsp);
    char line[kLineSize] = {};
    const char *p = http_getline(head, line, sizeof line);
    if (p == nullptr) {
        HTTP_LOG("parse response header error because the packet have't CRLF");
        return HTTP_UTIL_ERR_RSP_FORMAT;
    }
    if (http_parse_resp_status(rsp, line) != 0) {
        HTTP_LOG("http_parse_resp_status error");
        return HTTP_UTIL_ERR_RSP_FORMAT;
    }
    bool unsatisfied = false;
    for (;;) {
        const char *next = http_getline(p, line, sizeof line);
        if (next == nullptr) {
            // A line too long for the line buffer is passed over when its
            // field is not one the parser reads (a long Set-Cookie, say).
            const char *lf = strchr(p, '\n');
            size_t name = lf != nullptr ? strcspn(p, ":\n") : 0;
            if (lf == nullptr || http_util_internal::http_field_used(p, name)) {
                HTTP_LOG("parse response header error because the packet have't CRLFCRLF");
                return HTTP_UTIL_ERR_RSP_FORMAT;
            }
            HTTP_LOG("long header line skipped: %.*s", static_cast<int>(name < 40 ? name : 40), p);
            p = lf + 1;
            continue;
        }
        p = next;
        if (line[0] == '\0') break;
        HTTP_LOG("HTTP header: %s", line);
        char *colon = strchr(line, ':');
        if (colon == nullptr) continue;
        // The name is kept as sent: a blank before the colon makes it unknown.
        *colon = '\0';
        const char *value = trim_value(colon + 1);
        int rc = http_parse_rsp_head(rsp, ref, line, value);
        if (rc != 0) return rc;
        if (http_util_internal::http_field_of(line) == http_util_internal::Field::ContentRange)
            unsatisfied = http_util_internal::http_range_unsatisfied(value);
    }
    return http_util_internal::http_process_response_head(util, ref, unsatisfied);
}

}  // extern "C"
