// Declarations of the layers below that are still on their way to main.
// Removed once the public header provides them.
#ifndef HTTP_UTIL_UPLOAD_PENDING_H
#define HTTP_UTIL_UPLOAD_PENDING_H

#include <stdio.h>

#include "http_util.h"

extern "C" {
http_url_param *http_create_url_param(const char *url, int *err, const http_util_param *param,
                                      uint32_t is_mgmt, const char *mgmt_name);
int http_util_parse_tlv(const void *tlv, http_util_param *param);
int http_create_socket(const struct sockaddr *addr, int addrlen, int nonblock, int is_mgmt,
                       uint32_t src_ip, const char *mgmt_name, int vrf);
int http_post_header(http_util *util, const char *name, const char *value);
int http_flush(http_util *util);
char *http_read_http_response_head(int fd, http_url_param *url, int *err);
int http_parse_http_response_head(http_util *util, http_progress_ref *ref, const char *head);
int http_fd_read_body(http_url_param *url, int fd, FILE *out, http_progress_ref *ref,
                      int32_t toread, uint32_t skip);
int http_fd_read_body_chunked(http_url_param *url, int fd, FILE *out, http_progress_ref *ref,
                              uint32_t skip);
int http_change_progess(uint32_t stage, http_progress_ref *ref, uint32_t count,
                        http_url_param *url);
}

#endif
