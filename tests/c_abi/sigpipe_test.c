/* A host program that leaves SIGPIPE at its default action, as most do: the library's writes
 * to a peer that has gone must fail with their code, never raise the signal, which would kill
 * this process. */
#define _POSIX_C_SOURCE 200809L
#include <arpa/inet.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "http_util.h"

/* Takes each request head off byte by byte and closes the connection right after it, while the
 * upload still sends its body. */
static void *close_after_head(void *listener) {
    int fd;
    while ((fd = accept(*(int *)listener, NULL, NULL)) >= 0) {
        char c, seen[4] = {0};
        while (memcmp(seen, "\r\n\r\n", 4) != 0 && read(fd, &c, 1) == 1) memmove(seen, seen + 1, 3), seen[3] = c;
        close(fd);
    }
    return NULL;
}

int main(void) {
    struct sockaddr_in addr;
    socklen_t len = sizeof addr;
    int sv[2], listener = socket(AF_INET, SOCK_STREAM, 0), failed = 0, i;
    char url[64], file[] = "sigpipe_test.bin";
    FILE *f;
    http_util *util = http_create_util();
    pthread_t server;

    /* Straight to a socket whose peer has closed: buffered and unbuffered. */
    if (util == NULL || socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0 || close(sv[1]) != 0) return 1;
    util->socket = sv[0];
    failed |= http_util_fd_write(sv[0], "x", 1, 5) != -1 || http_util_fd_write_nonblock(sv[0], "x", 1, 1) != -1;
    failed |= http_post_header(util, "Host", "x") != 0 || http_flush(util) != -1;
    util->flags = 0;
    failed |= http_post_header(util, "Host", "x") != -1;
    http_free_util(util);

    /* Uploads of 4 MiB to a server that closes after the head. */
    memset(&addr, 0, sizeof addr);
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, (struct sockaddr *)&addr, len) != 0 || listen(listener, 8) != 0 ||
        getsockname(listener, (struct sockaddr *)&addr, &len) != 0 || (f = fopen(file, "wb")) == NULL ||
        fseek(f, (4 << 20) - 1, SEEK_SET) != 0 || fputc(0, f) != 0 || fclose(f) != 0 || pthread_create(&server, NULL, close_after_head, &listener) != 0)
        return 1;
    snprintf(url, sizeof url, "http://127.0.0.1:%d/up", ntohs(addr.sin_port));
    for (i = 0; i < 50; i++) failed |= http_upload_file(url, file) == HTTP_UTIL_OK;
    shutdown(listener, SHUT_RDWR); /* ends the server's accept */
    pthread_join(server, NULL);
    close(listener);
    remove(file);
    printf("writes to a gone peer: %s, no signal\n", failed ? "FAILED: a wrong result" : "each failed with its code");
    return failed;
}
