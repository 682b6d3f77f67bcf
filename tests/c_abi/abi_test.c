/* A host program in plain C99: includes only the public header, links only the shared library
 * and the host's device services, and takes every exported name, so that it links only if each
 * resolves. With an argument it checks the data widths the records were laid out for instead:
 * 32-bit pointers and time_t on the device (the header's layout checks held to compile it). */
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "http_util.h"

typedef void (*fn)(void);
/* Not static: each entry stays a reference the linker must resolve. */
const fn functions[] = {(fn)http_open_debug, (fn)http_close_debug, (fn)http_set_options, (fn)http_util_init,
    (fn)http_util_strerr, (fn)http_create_util, (fn)http_free_util, (fn)random_number, (fn)http_create_url_param,
    (fn)http_util_parse_tlv, (fn)http_util_fd_write, (fn)http_util_fd_write_nonblock, (fn)http_util_fd_read,
    (fn)http_sock_ntop, (fn)http_create_socket, (fn)http_post_header, (fn)http_flush, (fn)http_read_http_response_head,
    (fn)http_getline, (fn)http_parse_resp_status, (fn)http_parse_http_response_head, (fn)http_parse_rsp_head,
    (fn)http_tag_cmp, (fn)parse_content_range, (fn)http_atotm, (fn)http_fd_read_body, (fn)http_fd_read_body_chunked,
    (fn)http_change_progess, (fn)http_post_loop, (fn)http_upload_param, (fn)http_upload_file, (fn)http_upload_file_tlv,
    (fn)http_mgnt_upload_file, (fn)http_util_generate_tmpname, (fn)http_download_file, (fn)http_download_file_tlv,
    (fn)http_download_file_ntry, (fn)http_download_file_ntry_tlv, (fn)http_download_file_progress,
    (fn)http_download_file_progress_tlv, (fn)http_mgnt_download_file_progress,
    (fn)http_mgnt_download_file_progress_byname, (fn)http_mgnt_download_file, (fn)http_mngt_download_file_ntry,
    (fn)touch, (fn)http_util_copy};
const void *const data[] = {&g_http_opt, &g_http_util_zlog_level, &g_http_util_zlog_category, http_util_err_str};

int main(int argc, char **argv) {
    http_util *util;
    http_progress_ref ref;
    int ok;
    (void)argv;
    if (argc > 1) {
        printf("sizeof(void *) %u, sizeof(time_t) %u, http_util_param %u, http_rsp %u, http_url_param %u\n",
               (unsigned)sizeof(void *), (unsigned)sizeof(time_t), (unsigned)sizeof(http_util_param),
               (unsigned)sizeof(http_rsp), (unsigned)sizeof(http_url_param));
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
    return ok ? 0 : 1;
}
