// The download engine: the retrying driver and one GET attempt.
#ifndef HTTP_UTIL_DOWNLOAD_DOWNLOAD_H
#define HTTP_UTIL_DOWNLOAD_DOWNLOAD_H

#include <stddef.h>
#include <stdint.h>

#include "http_util.h"
#include "net/url.h"

namespace http_util_internal {

// Everything behind the download calls and the copy's download direction:
// one URL, its redirections, retries and pauses; a POST of param->post_file
// instead when that is set. A negative param->ntry or a null url is refused
// with HTTP_UTIL_ERR_PARAM before any connection. local_file null: save
// under the file name of each URL visited.
int http_download_param(http_progress *progress, const char *url, const char *local_file,
                        const http_util_param *param, uint8_t is_mgmt, const char *mgmt_name);

// The attempts at one URL. On HTTP_UTIL_ERR_REDIRECT url_buf holds the new
// URL.
int http_get_loop(http_progress *progress, char (&url_buf)[kUrlBufSize], http_url_param *url,
                  const char *local_file);

// The pause before retry number count (1 for the first retry).
void http_sleep_between_retrievals(int count);

// The randomised first pause: four draws below 10000 make a fraction r in
// [0, 1); the pause is (r + 0.5) * wait seconds.
double random_pause_seconds(int wait, const uint32_t (&draws)[4]);

// What the retry loop makes of an attempt's result.
enum class RetryAction {
    Done,        // stored, or cancelled by the user: stop
    Count,       // the connection or transfer failed: retry while allowed
    Restart,     // the partial file was dropped: again, uncounted
    Redirect,    // follow the Location
    Fatal,       // the server refuses us
    SaveFailed,  // the local file cannot be written
    Unknown,     // any other answer: stop
};
RetryAction retry_action(int code);

// Current local time as "%Y-%m-%d %H:%M:%S" in the caller's buffer, or
// null when the clock cannot be converted.
const char *download_time_text(char (&text)[32]);

// One GET attempt at the URL into ref->local_file through util.
int http_get(http_url_param *url, http_util *util, http_progress_ref *ref);

// Writes the request head; 0, or -1 when a line was not written.
int http_get_request(http_util *util, const http_url_param *url, int32_t start);

}  // namespace http_util_internal

#endif
