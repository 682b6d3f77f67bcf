/* A host program in plain C99, with the library's public header and shared library and the host's device
 * services: the calls answer from C; the records have the widths they were laid out for (32-bit pointers and
 * time_t on the device); with SIGPIPE at its default action, as most programs leave it, the library's writes
 * to a peer that has gone fail and never raise the signal. */
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "http_util.h"

/* The library's writes to a socket whose peer has gone, buffered and not; 0 when each failed. */
static int gone_peer(void) {
    int sv[2], failed;
    http_util *util = http_create_util();
    if (util == NULL || socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0 || close(sv[1]) != 0) return 1;
    util->socket = sv[0]; /* closed by http_free_util */
    failed = http_util_fd_write(sv[0], "x", 1, 5) != -1 || http_util_fd_write_nonblock(sv[0], "x", 1, 1) != -1 ||
             http_post_header(util, "Host", "x") != 0 || http_flush(util) != -1;
    util->flags = 0; /* unbuffered */
    failed |= http_post_header(util, "Host", "x") != -1;
    http_free_util(util);
    return failed;
}

int main(void) {
    http_progress_ref ref = {0};
    http_util *util;
    int calls, widths = 1, writes = !gone_peer();
#ifdef __arm__
    widths = sizeof(void *) == 4 && sizeof(time_t) == 4; /* the device */
#endif
    http_util_init();
    util = http_create_util();
    calls = g_http_util_zlog_category != NULL && util != NULL &&
            strcmp(http_util_strerr(HTTP_UTIL_ERR_NOT_HTTP), http_util_err_str[HTTP_UTIL_ERR_NOT_HTTP]) == 0 &&
            http_parse_http_response_head(util, &ref, "HTTP/1.1 404 Not Found\r\n\r\n") == HTTP_UTIL_ERR_NOT_FOUND &&
            http_download_file("ftp://127.0.0.1/f", "f") == HTTP_UTIL_ERR_NOT_HTTP;
    http_free_util(util);
    printf("calls from C: %s; sizeof(void *) %u, sizeof(time_t) %u; writes to a gone peer: %s, no signal\n",
           calls ? "answered" : "FAILED", (unsigned)sizeof(void *), (unsigned)sizeof(time_t), writes ? "each failed" : "FAILED");
    return !calls || !widths || !writes;
}
