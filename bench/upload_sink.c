/* Upload sink for the benchmark: accepts one connection at a time on
 * 127.0.0.1:PORT, reads a request head and its Content-Length bytes of body
 * (or everything up to the close when there is none), discards them, and
 * answers 200. Answers "Expect: 100-continue" at once so that no client
 * waits for it.
 *
 *   upload-sink PORT    prints "ready" once listening; runs until killed */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

enum { kBuf = 256 * 1024 };
static char buf[kBuf + 1];

static const char *find_field(const char *head, const char *name) {
    size_t len = strlen(name);
    for (const char *line = strstr(head, "\r\n"); line != NULL; line = strstr(line + 2, "\r\n"))
        if (strncasecmp(line + 2, name, len) == 0) return line + 2 + len;
    return NULL;
}

static void serve(int fd) {
    size_t have = 0;
    char *end = NULL;
    while (end == NULL) {
        if (have == kBuf) return;
        ssize_t n = recv(fd, buf + have, kBuf - have, 0);
        if (n <= 0) return;
        have += (size_t)n;
        buf[have] = '\0';
        end = strstr(buf, "\r\n\r\n");
    }
    *end = '\0';
    const char *expect = find_field(buf, "Expect:");
    if (expect != NULL && strstr(expect, "100-continue") != NULL) {
        static const char cont[] = "HTTP/1.1 100 Continue\r\n\r\n";
        if (send(fd, cont, sizeof cont - 1, MSG_NOSIGNAL) < 0) return;
    }
    const char *length = find_field(buf, "Content-Length:");
    long long left = length != NULL ? atoll(length) : -1;
    if (left > 0) left -= (long long)(have - (size_t)(end + 4 - buf));
    while (left != 0) {
        ssize_t n = recv(fd, buf, kBuf, 0);
        if (n < 0) return;
        if (n == 0) break;
        if (left > 0) left -= n;
    }
    static const char ok[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    (void)send(fd, ok, sizeof ok - 1, MSG_NOSIGNAL);
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s PORT\n", argv[0]);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    int ls = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int on = 1;
    (void)setsockopt(ls, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    struct sockaddr_in sa;
    memset(&sa, 0, sizeof sa);
    sa.sin_family = AF_INET;
    sa.sin_port = htons((unsigned short)atoi(argv[1]));
    sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (ls < 0 || bind(ls, (struct sockaddr *)&sa, sizeof sa) != 0 || listen(ls, 16) != 0) {
        perror("upload-sink");
        return 1;
    }
    printf("ready\n");
    fflush(stdout);
    for (;;) {
        int fd = accept4(ls, NULL, NULL, SOCK_CLOEXEC);
        if (fd < 0) continue;
        serve(fd);
        close(fd);
    }
}
