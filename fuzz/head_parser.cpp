// The head parser: a head text into the handle's response record and one
// result code.
#include <string.h>

#include "fuzz_support.h"

namespace {

bool terminated(const char *field, size_t size) { return memchr(field, '\0', size) != nullptr; }

bool is_redirect(int32_t s) { return s == 300 || s == 301 || s == 302 || s == 303 || s == 307; }

// What the record says must agree with the code the parser gave.
void check_classified(const http_rsp &rsp, int32_t start, int rc) {
    switch (rc) {
    case HTTP_UTIL_OK:
        FUZZ_CHECK(rsp.status >= 200 && rsp.status <= 299);
        FUZZ_CHECK(rsp.range_start == 0 || rsp.range_start == start);
        FUZZ_CHECK(rsp.status != 206 || rsp.range_start != 0);
        break;
    case HTTP_UTIL_ERR_REDIRECT: FUZZ_CHECK(is_redirect(rsp.status)); break;
    case HTTP_UTIL_ERR_FORBIDDEN: FUZZ_CHECK(rsp.status == 403); break;
    case HTTP_UTIL_ERR_NOT_FOUND: FUZZ_CHECK(rsp.status == 404); break;
    case HTTP_UTIL_ERR_UNAUTHORIZED: FUZZ_CHECK(rsp.status == 401); break;
    case HTTP_UTIL_ERR_RANGE: FUZZ_CHECK(rsp.status == 416); break;
    // A 416 to a range asked from the end of the file, or from beyond it.
    case HTTP_UTIL_ALREADY_DONE: FUZZ_CHECK(rsp.status == 416 && start > 0 && rsp.file_len == start); break;
    case HTTP_UTIL_NEED_RETRY:
        FUZZ_CHECK(rsp.status == 416 && rsp.file_len >= 0 && rsp.file_len < start);
        break;
    case HTTP_UTIL_ERR_PROTOCOL: FUZZ_CHECK(rsp.range_start != 0 && rsp.range_start != start); break;
    case HTTP_UTIL_ERR_UNEXPECTED_RSP:
    case HTTP_UTIL_ERR_RSP_FORMAT: break;
    default: FUZZ_CHECK(!"result code outside the parser's set");
    }
    if (rc != HTTP_UTIL_ERR_RSP_FORMAT) {
        FUZZ_CHECK(rsp.status >= 0 && rsp.status <= 999);
        FUZZ_CHECK(rsp.content_len >= -1);  // none, or a plain decimal
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string head = fuzz::text(data, size);
    http_util *util = http_create_util();
    FUZZ_CHECK(util != nullptr);
    http_progress_ref ref = {};

    // Once as a fresh download, once as a resume from where the head's own
    // Content-Range starts (or from its complete length, which a 416 gives),
    // so that both sides of the range tests are taken.
    for (int pass = 0; pass < 3; ++pass) {
        ref.start = pass == 0 ? 0 : pass == 1 ? util->rsp.range_start : util->rsp.file_len;
        int rc = http_parse_http_response_head(util, &ref, head.c_str());
        check_classified(util->rsp, ref.start, rc);
        FUZZ_CHECK(terminated(util->rsp.new_local, sizeof util->rsp.new_local));
        FUZZ_CHECK(terminated(util->rsp.last_modified, sizeof util->rsp.last_modified));
        FUZZ_CHECK(util->rsp.chunked <= 1 && util->rsp.keep_alive <= 1 &&
                   util->rsp.accept_ranges <= 1);
    }

    // Nothing of that head survives into the next parse on the same handle.
    FUZZ_CHECK(http_parse_http_response_head(util, &ref, "HTTP/1.1 200 OK\r\n\r\n") == 0);
    const http_rsp &rsp = util->rsp;
    FUZZ_CHECK(rsp.status == 200 && rsp.content_len == -1 && rsp.mtime == -1);
    FUZZ_CHECK(rsp.keep_alive == 0 && rsp.accept_ranges == 0 && rsp.chunked == 0);
    FUZZ_CHECK(rsp.range_start == 0 && rsp.range_end == 0 && rsp.file_len == 0);
    FUZZ_CHECK(rsp.new_local[0] == '\0' && rsp.last_modified[0] == '\0');
    http_free_util(util);
    return 0;
}
