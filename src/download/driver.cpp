// The download driver: one URL and its redirections, the retries at each
// URL, and the pause between them.
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <time.h>

#include "download/download.h"
#include "frame/log.h"
#include "frame/raii.h"
#include "http_util.h"
#include "platform/device.h"

namespace http_util_internal {

namespace {

struct RetryRow {
    int code;
    RetryAction action;
};

constexpr RetryRow kRetryTable[] = {
    {HTTP_UTIL_OK, RetryAction::Done},
    {HTTP_UTIL_ERR_CANCELED, RetryAction::Done},
    {HTTP_UTIL_ERR_CONNECT, RetryAction::Count},
    {HTTP_UTIL_ERR_RECV_RSP, RetryAction::Count},
    {HTTP_UTIL_ERR_RECV_DATA, RetryAction::Count},
    {HTTP_UTIL_ERR_PROTOCOL, RetryAction::Count},
    {HTTP_UTIL_ERR_SEND, RetryAction::Count},
    {HTTP_UTIL_NEED_RETRY, RetryAction::Restart},
    {HTTP_UTIL_ERR_REDIRECT, RetryAction::Redirect},
    {HTTP_UTIL_ERR_UNAUTHORIZED, RetryAction::Fatal},
    {HTTP_UTIL_ERR_UNEXPECTED_RSP, RetryAction::Fatal},
    {HTTP_UTIL_ERR_SAVE_FILE, RetryAction::SaveFailed},
};

// printf of a null %s is undefined; the text then reads as glibc prints it.
const char *or_null(const char *s) { return s != nullptr ? s : "(null)"; }

}  // namespace

RetryAction retry_action(int code) {
    for (const RetryRow &row : kRetryTable)
        if (row.code == code) return row.action;
    return RetryAction::Unknown;
}

const char *download_time_text(char (&text)[32]) {
    time_t now = qz_time_get(2);
    struct tm tm;
    if (localtime_r(&now, &tm) == nullptr) return nullptr;
    if (strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &tm) == 0) return nullptr;
    return text;
}

double random_pause_seconds(int wait, const uint32_t (&draws)[4]) {
    double r = draws[0] / 1e4;
    r += draws[1] / 1e8;
    r += draws[2] / 1e12;
    r += draws[3] / 1e16;
    return (r + 0.5) * wait;
}

void http_sleep_between_retrievals(int count) {
    int wait = g_http_opt.wait;
    if (wait <= 0) return;
    double seconds = wait;
    if (g_http_opt.random_wait != 0 && count == 1) {
        uint32_t draws[4];
        for (uint32_t &d : draws) d = random_number(10000);
        seconds = random_pause_seconds(wait, draws);
        HTTP_LOG("sleep_between_retrievals: avg=%d,sleep=%f", wait, seconds);
    }
    struct timeval tv;
    tv.tv_sec = static_cast<time_t>(seconds);
    tv.tv_usec = static_cast<suseconds_t>((seconds - static_cast<double>(tv.tv_sec)) * 1000000);
    // An early return on a signal only shortens the pause.
    (void)select(0, nullptr, nullptr, nullptr, &tv);
}

int http_get_loop(http_progress *progress, char (&url_buf)[kUrlBufSize], http_url_param *url,
                  const char *local_file) {
    MallocPtr<char> path(strdup(local_file != nullptr ? local_file : url->filename));
    if (!path) {
        HTTP_LOG("malloc for local_file fail");
        return HTTP_UTIL_ERR_NOMEM;
    }
    http_progress_ref ref = {progress, 0, path.get(), 0};
    int result = HTTP_UTIL_OK;
    http_util *util = http_create_util();
    if (util == nullptr) {
        HTTP_LOG("malloc for util fail");
        result = HTTP_UTIL_ERR_NOMEM;
    } else {
        (void)http_change_progess(HTTP_UTIL_PROGRESS_BEGIN, &ref, 0, url);
        HTTP_LOG("get_loop-->local_file:%s", path.get());
        const int32_t ntry = url->param.ntry;
        int32_t count = 0;
        bool done = false;
        char when[32];  // each call its own: transfers on other threads log too
        while (!done && count <= ntry) {
            if (count != 0) http_sleep_between_retrievals(count);
            HTTP_LOG("--%s--", or_null(download_time_text(when)));
            result = http_get(url, util, &ref);
            switch (retry_action(result)) {
            case RetryAction::Done:
                HTTP_LOG("end download %d --%s--", result, or_null(download_time_text(when)));
                done = true;
                break;
            case RetryAction::Count:
                if (count + 1 > ntry)
                    HTTP_LOG("Giving up.");
                else
                    HTTP_LOG("Retrying.");
                ++count;
                break;
            case RetryAction::Restart:
                break;
            case RetryAction::Redirect:
                HTTP_LOG("http newlocation, will copy newurl(newlocal %s)", util->rsp.new_local);
                // A relative target is taken from the URL asked for; what
                // does not fit the URL buffer is not followed.
                if (!http_resolve_location(url_buf, util->rsp.new_local)) {
                    HTTP_LOG("new location too long for the url buffer");
                    result = HTTP_UTIL_ERR_URL_FORMAT;
                }
                done = true;
                break;
            case RetryAction::Fatal:
                HTTP_LOG("Fatal errors just return from the function");
                done = true;
                break;
            case RetryAction::SaveFailed:
                HTTP_LOG("Cannot write to %s (%s).", path.get(), strerror(errno));
                done = true;
                break;
            case RetryAction::Unknown:
                HTTP_LOG("unknow");
                done = true;
                break;
            }
        }
    }
    (void)http_change_progess(HTTP_UTIL_PROGRESS_END, &ref, 0, url);
    http_free_util(util);
    return result;
}

int http_download_param(http_progress *progress, const char *url, const char *local_file,
                        const http_util_param *param, uint8_t is_mgmt, const char *mgmt_name) {
    // Refused before anything is resolved or connected: a caller who passes
    // no URL or a negative retry count has made a mistake, and a silent
    // success without any transfer would hide it.
    if (url == nullptr) {
        HTTP_LOG("http_create_url %d fail", HTTP_UTIL_ERR_PARAM);
        return HTTP_UTIL_ERR_PARAM;
    }
    if (param->ntry < 0) {
        HTTP_LOG("wrong retry count %d", param->ntry);
        return HTTP_UTIL_ERR_PARAM;
    }
    char url_buf[kUrlBufSize];
    memset(url_buf, 0, sizeof url_buf);
    copy_bounded(url_buf, url);

    int result = HTTP_UTIL_OK;
    for (int n = 1;; ++n) {
        int err = HTTP_UTIL_OK;
        MallocPtr<http_url_param> rec(
            http_create_url_param(url_buf, &err, param, is_mgmt, mgmt_name));
        if (!rec) {
            HTTP_LOG("http_create_url %d fail", err);
            return err;
        }
        if (rec->is_post) {
            HTTP_LOG("post file %s, and download to %s", rec->param.post_file, or_null(local_file));
            result = http_post_loop(rec.get(), rec->param.post_file, local_file);
            break;
        }
        result = http_get_loop(progress, url_buf, rec.get(), local_file);
        if (result != HTTP_UTIL_ERR_REDIRECT || n > param->max_redirect) break;
        HTTP_LOG("return newlocation, will http get new-url again(num %d, newurl %s)", n, url_buf);
    }
    HTTP_LOG("download file result: %s", http_util_strerr(result));
    return result;
}

}  // namespace http_util_internal
