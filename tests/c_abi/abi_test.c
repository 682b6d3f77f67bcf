/* A host program in plain C99: includes only the library's public header, links only the shared
 * library and the host's device services, and takes every exported name, so that it links only if
 * each resolves. "widths": the data widths the records were laid out for, 32-bit pointers and time_t
 * on the device (the header's layout checks held to compile it). "sigpipe": with SIGPIPE at its
 * default action, as most programs leave it, the library's writes to a peer that has gone fail and
 * never raise the signal, which would kill the program. */
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "http_util.h"

#define F(name) (void (*)(void)) name
/* Not static: each entry stays a reference the linker must resolve. */
void (*const functions[])(void) = {F(http_open_debug), F(http_close_debug), F(http_set_options), F(http_util_init),
    F(http_util_strerr), F(http_create_util), F(http_free_util), F(random_number), F(http_create_url_param),
    F(http_util_parse_tlv), F(http_util_fd_write), F(http_util_fd_write_nonblock), F(http_util_fd_read),
    F(http_sock_ntop), F(http_create_socket), F(http_post_header), F(http_flush), F(http_read_http_response_head),
    F(http_getline), F(http_parse_resp_status), F(http_parse_http_response_head), F(http_parse_rsp_head),
    F(http_tag_cmp), F(parse_content_range), F(http_atotm), F(http_fd_read_body), F(http_fd_read_body_chunked),
    F(http_change_progess), F(http_post_loop), F(http_upload_param), F(http_upload_file), F(http_upload_file_tlv),
    F(http_mgnt_upload_file), F(http_util_generate_tmpname), F(http_download_file), F(http_download_file_tlv),
    F(http_download_file_ntry), F(http_download_file_ntry_tlv), F(http_download_file_progress),
    F(http_download_file_progress_tlv), F(http_mgnt_download_file_progress), F(http_mgnt_download_file_progress_byname),
    F(http_mgnt_download_file), F(http_mngt_download_file_ntry), F(touch), F(http_util_copy)};
const void *const data[] = {&g_http_opt, &g_http_util_zlog_level, &g_http_util_zlog_category, http_util_err_str};

/* The library's writes to a socket whose peer has gone, buffered and not. */
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
    printf("writes to a gone peer: %s, no signal\n", failed ? "FAILED: one succeeded" : "each failed");
    return failed;
}

int main(int argc, char **argv) {
    http_progress_ref ref;
    http_util *util;
    int ok;
    if (argc > 1 && strcmp(argv[1], "sigpipe") == 0) return gone_peer();
    if (argc > 1) {
        printf("sizeof(void *) %u, sizeof(time_t) %u\n", (unsigned)sizeof(void *), (unsigned)sizeof(time_t));
#if defined(__arm__)
        return sizeof(void *) == 4 && sizeof(time_t) == 4 ? 0 : 1;
#endif
        return 0;
    }
    memset(&ref, 0, sizeof ref);
    http_util_init();
    util = http_create_util();
    ok = g_http_util_zlog_category != NULL && util != NULL &&
         strcmp(http_util_strerr(HTTP_UTIL_ERR_NOT_HTTP), http_util_err_str[HTTP_UTIL_ERR_NOT_HTTP]) == 0 &&
         http_parse_http_response_head(util, &ref, "HTTP/1.1 404 Not Found\r\n\r\n") == HTTP_UTIL_ERR_NOT_FOUND &&
         http_download_file("ftp://127.0.0.1/f", "f") == HTTP_UTIL_ERR_NOT_HTTP;
    http_free_util(util);
    printf("%u functions and %u data exported; %s\n", (unsigned)(sizeof functions / sizeof *functions),
           (unsigned)(sizeof data / sizeof *data), ok ? "the calls from C answered" : "FAILED: a call from C");
    return !ok;
}
