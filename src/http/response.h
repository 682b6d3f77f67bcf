// Internal steps of response handling, shared by the head and body readers
// and by the transfers above them.
#ifndef HTTP_UTIL_HTTP_RESPONSE_H
#define HTTP_UTIL_HTTP_RESPONSE_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "http_util.h"
#include "net/io.h"

namespace http_util_internal {

// Waits up to wait_s seconds (<= 0: 5) for data, then peeks without
// consuming: bytes peeked, 0 when the peer closed, -1 with errno
// (ETIMEDOUT when the wait ran out).
int http_fd_peek(int fd, char *buf, size_t len, int wait_s);
int http_fd_peek(int fd, char *buf, size_t len, WaitMs wait);

// The head reader behind http_read_http_response_head.
char *http_fd_read_hunk(int fd, http_url_param *url, int *err);

// Where the head ends, if the bytes seen so far hold its end: start itself
// when the reply does not begin with "HTTP", NULL when the end is still to
// come. peeked is where the latest peek stored its len bytes.
const char *http_response_head_terminator(const char *start, const char *peeked, int len);

// The status code of a status line (up to its NUL), or -1 when it is not
// one.
int http_status_code(const char *line);

// The header fields the parser reads, by name as http_tag_cmp compares them.
enum class Field {
    ContentLength,
    TransferEncoding,
    Connection,
    AcceptRanges,
    ContentRange,
    LastModified,
    Location,
    None
};
Field http_field_of(const char *name);
// Whether a header line whose name (up to its colon, if any) starts at name
// and runs len characters carries a field the parser reads.
bool http_field_used(const char *name, size_t len);
// Whether a Content-Range value gives only the complete length (bytes */N).
bool http_range_unsatisfied(const char *value);

// The result code of a parsed head: go on, redirect, or a named failure.
// unsatisfied: its Content-Range gives only the complete length.
int http_process_response_head(http_util *util, http_progress_ref *ref, bool unsatisfied);

// Writes a block to out past the first *skip bytes, counting *skip down;
// flushes and tests the stream's error indicator. 1 = dealt with, 0 = failed.
int write_data(FILE *out, const char *block, uint32_t len, uint32_t *skip);

// The body readers read through one heap block of this size.
constexpr uint32_t kBodyBlockSize = 1024;

// Where the body readers put each block: the caller's data sink when the
// progress record has one, else the output stream past the first skip
// bytes. Also counts the read time-outs sat out in a row.
struct BodyTarget {
    FILE *out;
    http_progress_ref *ref;
    http_progress *sink;
    uint32_t skip;
    int timeouts_left;
    char why[96];
};
BodyTarget body_target(FILE *out, http_progress_ref *ref, uint32_t skip);

// What follows one read: go on (code 0), or stop with this code, logging
// the text under the reader's own name.
struct BodyStep {
    int code;
    const char *failure;
};
// A block came: hand it on and report it.
BodyStep deliver_block(BodyTarget &target, const char *block, uint32_t len, http_url_param *url);
// The read failed (errno tells why): a time-out is reported with count 0
// while the budget lasts; anything else ends the body.
BodyStep after_failed_read(BodyTarget &target, http_url_param *url);

}  // namespace http_util_internal

#endif
