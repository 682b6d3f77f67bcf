// The header fields the library cares about, and the tolerant comparison
// and Content-Range parser they need.
#include <ctype.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "frame/log.h"
#include "frame/raii.h"
#include "http/response.h"
#include "http_util.h"

namespace {

using http_util_internal::copy_bounded;

unsigned char fold(char c) {
    auto u = static_cast<unsigned char>(c);
    return (u >= 'A' && u <= 'Z') ? static_cast<unsigned char>(u - 'A' + 'a') : u;
}

// A quoted value is compared up to its quote.
bool text_ended(char c) { return c == '\0' || c == '"'; }

bool is_digit(char c) { return isdigit(static_cast<unsigned char>(c)) != 0; }
bool is_space(char c) { return isspace(static_cast<unsigned char>(c)) != 0; }

// Decimal digits into 32 bits; servers that send more get a wrapped value.
int32_t read_digits(const char *&p) {
    uint32_t v = 0;
    while (is_digit(*p)) v = v * 10u + static_cast<uint32_t>(*p++ - '0');
    return static_cast<int32_t>(v);
}

bool is_blank(char c) { return c == ' ' || c == '\t'; }

// Content-Length as a plain decimal from 0 to 2^31 - 1, blanks around it
// allowed; -1 for anything else. A length read leniently ("zzz" as 0) would
// store a wrong file as a whole one.
int32_t content_length(const char *p) {
    while (is_blank(*p)) ++p;
    if (!is_digit(*p)) return -1;
    int64_t v = 0;
    while (is_digit(*p)) {
        v = v * 10 + (*p++ - '0');
        if (v > INT32_MAX) return -1;
    }
    while (is_blank(*p)) ++p;
    return *p == '\0' ? static_cast<int32_t>(v) : -1;
}

// In the order of Field.
constexpr const char *kFieldNames[] = {"Content-Length", "Transfer-Encoding", "Connection",
                                       "Accept-Ranges",  "Content-Range",     "Last-Modified",
                                       "Location"};
static_assert(sizeof kFieldNames / sizeof kFieldNames[0] ==
                  static_cast<size_t>(http_util_internal::Field::None),
              "a name for every field");

// After the unit "bytes", its colon and blanks; null when nothing follows.
const char *after_unit(const char *p) {
    if (strncasecmp(p, "bytes", 5) == 0) {
        p += 5;
        if (*p == ':') ++p;
        while (is_space(*p)) ++p;
        if (*p == '\0') return nullptr;
    }
    return p;
}

// For each star of a pattern, the earliest text position from which its run
// has been tried in full without a match. Whether the rest of the pattern
// matches from a given text position never depends on how the matcher got
// there, so no star needs to try a position twice; without this a pattern
// of a few stars backtracks exponentially over a long text. The table is
// made on the first star that has a run to try, so star-free patterns (all
// of the library's own) allocate nothing; without memory the matcher only
// loses its speed.
class StarRuns {
public:
    explicit StarRuns(const char *pattern) : pattern_(pattern) {}
    const char *tried_from(const char *star) {
        if (!tried_ && !failed_) {
            tried_.reset(static_cast<const char **>(calloc(strlen(pattern_) + 1, sizeof(char *))));
            failed_ = !tried_;
        }
        return tried_ ? tried_.get()[star - pattern_] : nullptr;
    }
    void set_tried_from(const char *star, const char *text) {
        if (tried_) tried_.get()[star - pattern_] = text;
    }

private:
    const char *pattern_;
    http_util_internal::MallocPtr<const char *> tried_;
    bool failed_ = false;
};

int tag_cmp(const char *text, const char *pattern, StarRuns &runs) {
    for (; !text_ended(*text); ++text, ++pattern) {
        // A dash in the pattern stands for any one character.
        if (*pattern == '-' || *pattern == *text || fold(*pattern) == fold(*text)) continue;
        if (*pattern != '*') return 1;
        if (pattern[1] == '\0') return 0;
        // A star covers a run of text up to a character that folds to the
        // one after it, from which the rest has to match.
        unsigned char next = fold(pattern[1]);
        const char *tried = runs.tried_from(pattern);
        if (tried == nullptr || text < tried) {
            const char *from = text;
            for (; !text_ended(*text) && (tried == nullptr || text < tried); ++text)
                if (fold(*text) == next && tag_cmp(text + 1, pattern + 2, runs) == 0) return 0;
            runs.set_tried_from(pattern, from);
        }
        return (next == '*' && pattern[2] == '\0') ? 0 : next;
    }
    if (pattern[0] == '*' && pattern[1] == '\0') return 0;
    return static_cast<unsigned char>(*pattern);
}

}  // namespace

namespace http_util_internal {

Field http_field_of(const char *name) {
    for (size_t i = 0; i < sizeof kFieldNames / sizeof kFieldNames[0]; ++i)
        if (http_tag_cmp(name, kFieldNames[i]) == 0) return static_cast<Field>(i);
    return Field::None;
}

bool http_field_used(const char *name, size_t len) {
    // No name the parser reads is this long; a quote ends the compared text
    // early, and one within the copy is compared as the whole name would be.
    char copy[32];
    const size_t n = len < sizeof copy ? len : sizeof copy - 1;
    memcpy(copy, name, n);
    copy[n] = '\0';
    if (n < len && strchr(copy, '"') == nullptr) return false;
    return http_field_of(copy) != Field::None;
}

bool http_range_unsatisfied(const char *value) {
    const char *p = after_unit(value);
    return p != nullptr && *p == '*';
}

}  // namespace http_util_internal

extern "C" {

HTTP_UTIL_API int http_tag_cmp(const char *text, const char *pattern) {
    StarRuns runs(pattern);
    return tag_cmp(text, pattern, runs);
}

HTTP_UTIL_API int parse_content_range(const char *value, int32_t *first, int32_t *last,
                                      int32_t *length) {
    const char *p = after_unit(value);
    if (p == nullptr) return 0;
    if (*p == '*') {
        // Unsatisfiable range: only the complete length is given.
        ++p;
        if (*p == '/') ++p;
        *length = *p == '*' ? -1 : read_digits(p);
        return 1;
    }
    if (!is_digit(*p)) return 0;
    int32_t v = read_digits(p);
    if (p[0] != '-' || !is_digit(p[1])) return 0;
    *first = v;
    ++p;
    v = read_digits(p);
    if (p[0] != '/' || !(p[1] == '*' || is_digit(p[1]))) return 0;
    *last = v;
    ++p;
    *length = *p == '*' ? -1 : read_digits(p);
    return 1;
}

HTTP_UTIL_API int http_parse_rsp_head(http_rsp *rsp, http_progress_ref * /*ref*/,
                                      const char *name, const char *value) {
    using http_util_internal::Field;
    HTTP_LOG("%s: %s", name, value);
    switch (http_util_internal::http_field_of(name)) {
    case Field::ContentLength: {
        int32_t len = content_length(value);
        if (len < 0) {
            HTTP_LOG("wrong content-length: %s", value);
            return HTTP_UTIL_ERR_RSP_FORMAT;
        }
        rsp->content_len = len;
        break;
    }
    case Field::TransferEncoding:
        if (http_tag_cmp(value, "chunked") == 0) rsp->chunked = 1;
        break;
    case Field::Connection:
        if (http_tag_cmp(value, "keep-alive") == 0)
            rsp->keep_alive = 1;
        else if (http_tag_cmp(value, "close") == 0)
            rsp->keep_alive = 0;
        break;
    case Field::AcceptRanges:
        if (strcmp(value, "none") == 0)
            rsp->accept_ranges = 0;
        else if (strcmp(value, "bytes") == 0)
            rsp->accept_ranges = 1;
        break;
    case Field::ContentRange:
        if (!parse_content_range(value, &rsp->range_start, &rsp->range_end, &rsp->file_len)) {
            HTTP_LOG("parse content-range fail");
            return HTTP_UTIL_ERR_RSP_FORMAT;
        }
        HTTP_LOG("%ld-%ld/%ld", static_cast<long>(rsp->range_start),
                 static_cast<long>(rsp->range_end), static_cast<long>(rsp->file_len));
        break;
    case Field::LastModified:
        copy_bounded(rsp->last_modified, value);
        // The time comes from the whole value, not the stored cut.
        rsp->mtime = static_cast<int32_t>(http_atotm(value));
        if (rsp->mtime == -1) HTTP_LOG("Last-modified header invalid -- time-stamp ignored.");
        break;
    case Field::Location:
        copy_bounded(rsp->new_local, value);
        HTTP_LOG("[newlocation] rsp->new_local %s", rsp->new_local);
        break;
    case Field::None:
        break;
    }
    return 0;
}

}  // extern "C"
