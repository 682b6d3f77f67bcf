/* A host program that leaves SIGPIPE at its default action, as most do:
 * every write of the library to a peer that has gone must fail with EPIPE
 * (or end the upload with its code) and never raise the signal, which would
 * kill this process. */
#define _POSIX_C_SOURCE 200809L
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "http_util.h"

enum { kUploads = 50, kFileSize = 4 << 20 };

static int failures;

static void check(int ok, const char *what) {
    if (!ok) {
        fprintf(stderr, "FAILED: %s (errno %d)\n", what, errno);
        failures++;
    }
}

static void writes_to_a_closed_peer(void) {
    int sv[2];
    http_util *util = http_create_util();
    check(util != NULL && socketpair(AF_UNIX, SOCK_STREAM, 0, sv) == 0, "a socket pair");
    close(sv[1]);
    util->socket = sv[0];
    errno = 0;
    check(http_util_fd_write(sv[0], "x", 1, 5) == -1 && errno == EPIPE, "http_util_fd_write");
    errno = 0;
    check(http_util_fd_write_nonblock(sv[0], "x", 1, 1) == -1 && errno == EPIPE,
          "http_util_fd_write_nonblock");
    errno = 0;
    check(http_post_header(util, "Host", "x") == 0 && http_flush(util) == -1 && errno == EPIPE,
          "http_flush");
    util->flags = 0; /* unbuffered: the line goes straight to the socket */
    errno = 0;
    check(http_post_header(util, "Host", "x") == -1 && errno == EPIPE, "http_post_header");
    http_free_util(util);
}

/* Reads each request head byte by byte and closes right after it, while the
 * upload is still sending its body. */
static void *close_after_head(void *arg) {
    int listener = *(int *)arg;
    for (;;) {
        char seen[4] = {0};
        char c;
        int fd = accept(listener, NULL, NULL);
        if (fd < 0) return NULL;
        while (memcmp(seen, "\r\n\r\n", 4) != 0 && read(fd, &c, 1) == 1) {
            memmove(seen, seen + 1, 3);
            seen[3] = c;
        }
        close(fd);
    }
}

int main(void) {
    struct sockaddr_in addr;
    socklen_t len = sizeof addr;
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    pthread_t server;
    const char *tmp = getenv("TMPDIR");
    char dir[4096], file[4200], url[64];
    char *data = calloc(1, kFileSize);
    int codes[HTTP_UTIL_ERR_UNKNOWN + 1] = {0};
    int i;
    FILE *f;

    writes_to_a_closed_peer();

    memset(&addr, 0, sizeof addr);
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    check(bind(listener, (struct sockaddr *)&addr, sizeof addr) == 0 && listen(listener, 8) == 0 &&
              getsockname(listener, (struct sockaddr *)&addr, &len) == 0,
          "a listening socket");
    snprintf(url, sizeof url, "http://127.0.0.1:%d/up", ntohs(addr.sin_port));
    pthread_create(&server, NULL, close_after_head, &listener);

    snprintf(dir, sizeof dir, "%s/sigpipe.XXXXXX", tmp != NULL && *tmp != '\0' ? tmp : "/tmp");
    check(mkdtemp(dir) != NULL, "a temporary folder");
    snprintf(file, sizeof file, "%s/up.bin", dir);
    f = fopen(file, "wb");
    check(f != NULL && data != NULL && fwrite(data, 1, kFileSize, f) == kFileSize, "the file");
    if (f != NULL) fclose(f);
    free(data);

    for (i = 0; i < kUploads; i++) {
        int rc = http_upload_file(url, file);
        check(rc > 0 && rc < HTTP_UTIL_ERR_UNKNOWN, "the upload fails with a code");
        if (rc >= 0 && rc <= HTTP_UTIL_ERR_UNKNOWN) codes[rc]++;
    }
    shutdown(listener, SHUT_RDWR); /* ends the server's accept */
    pthread_join(server, NULL);
    close(listener);
    unlink(file);
    rmdir(dir);

    printf("%d uploads to a server that closes after the head ended with:", kUploads);
    for (i = 0; i <= HTTP_UTIL_ERR_UNKNOWN; i++)
        if (codes[i] != 0) printf(" code %d x %d", i, codes[i]);
    printf("; no signal\n");
    return failures == 0 ? 0 : 1;
}
