/* The reference loop: exactly the system calls that the written design
 * makes for every 1 KiB block of a body, and nothing else of the library.
 *
 *   design-loop get HOST PORT PATH FILE   download the body into FILE
 *   design-loop put FILE HOST PORT PATH   send FILE as a raw POST body
 *
 * Per block: a fresh epoll instance, its registration, the wait, the close
 * of the instance, one read of at most 1024 bytes and one write of it (the
 * flush after each block). HOST is an IPv4 literal. */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kBlock = 1024, kHeadMax = 4096 };

static void die(const char *what) {
    perror(what);
    exit(1);
}

static int connect_to(const char *host, const char *port) {
    struct sockaddr_in sa;
    memset(&sa, 0, sizeof sa);
    sa.sin_family = AF_INET;
    sa.sin_port = htons((unsigned short)atoi(port));
    if (inet_pton(AF_INET, host, &sa.sin_addr) != 1) {
        fprintf(stderr, "not an IPv4 literal: %s\n", host);
        exit(2);
    }
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) die("socket");
    if (connect(fd, (struct sockaddr *)&sa, sizeof sa) != 0) die("connect");
    /* Blocking connect, then non-blocking, as the design does. */
    if (fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK) != 0) die("fcntl");
    return fd;
}

/* The design's readiness wait: a fresh epoll instance for every call. */
static void wait_ready(int fd, unsigned events) {
    int ep = epoll_create(1);
    if (ep < 0) die("epoll_create");
    struct epoll_event ev;
    memset(&ev, 0, sizeof ev);
    ev.events = events;
    ev.data.fd = fd;
    if (epoll_ctl(ep, EPOLL_CTL_ADD, fd, &ev) != 0) die("epoll_ctl");
    struct epoll_event out;
    int n = epoll_wait(ep, &out, 1, 1000);
    close(ep);
    if (n <= 0) {
        fprintf(stderr, "readiness wait %s\n", n == 0 ? "timed out" : strerror(errno));
        exit(1);
    }
}

static void send_all(int fd, const char *p, size_t len) {
    while (len > 0) {
        wait_ready(fd, EPOLLOUT);
        ssize_t n = write(fd, p, len);
        if (n < 0 && errno == EAGAIN) continue;
        if (n <= 0) die("write");
        p += n;
        len -= (size_t)n;
    }
}

/* Takes the response head off the socket exactly (peek, then read up to the
 * blank line) and returns its Content-Length, or -1 when it has none. */
static long long read_head(int fd, int *status) {
    char head[kHeadMax + 1];
    for (;;) {
        wait_ready(fd, EPOLLIN);
        ssize_t n = recv(fd, head, kHeadMax, MSG_PEEK);
        if (n <= 0) die("peek");
        head[n] = '\0';
        char *end = strstr(head, "\r\n\r\n");
        if (end == NULL) {
            if (n == kHeadMax) die("head too long");
            continue;
        }
        size_t len = (size_t)(end + 4 - head);
        if (read(fd, head, len) != (ssize_t)len) die("read head");
        head[len] = '\0';
        break;
    }
    *status = atoi(head + 9);
    for (char *line = strstr(head, "\r\n"); line != NULL; line = strstr(line + 2, "\r\n"))
        if (strncasecmp(line + 2, "Content-Length:", 15) == 0) return atoll(line + 17);
    return -1;
}

static int get(const char *host, const char *port, const char *path, const char *file) {
    int fd = connect_to(host, port);
    char req[1024];
    int len = snprintf(req, sizeof req,
                       "GET %s HTTP/1.1\r\nHost: %s:%s\r\nAccept: */*\r\nConnection: close\r\n\r\n",
                       path, host, port);
    send_all(fd, req, (size_t)len);
    int status = 0;
    long long left = read_head(fd, &status);
    if (status != 200) {
        fprintf(stderr, "status %d\n", status);
        return 1;
    }
    int out = open(file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (out < 0) die(file);
    char block[kBlock];
    while (left != 0) {
        wait_ready(fd, EPOLLIN);
        size_t want = left < 0 || left > kBlock ? kBlock : (size_t)left;
        ssize_t n = read(fd, block, want);
        if (n < 0 && errno == EAGAIN) continue;
        if (n < 0) die("read");
        if (n == 0) break;
        if (write(out, block, (size_t)n) != n) die("write file");
        if (left > 0) left -= n;
    }
    close(out);
    close(fd);
    if (left > 0) {
        fprintf(stderr, "connection closed with %lld bytes missing\n", left);
        return 1;
    }
    return 0;
}

static int put(const char *file, const char *host, const char *port, const char *path) {
    int in = open(file, O_RDONLY | O_CLOEXEC);
    if (in < 0) die(file);
    struct stat st;
    if (fstat(in, &st) != 0) die("fstat");
    int fd = connect_to(host, port);
    char req[1024];
    int len = snprintf(req, sizeof req,
                       "POST %s HTTP/1.1\r\nHost: %s:%s\r\nContent-Type: application/octet-stream\r\n"
                       "Content-Length: %lld\r\nConnection: close\r\n\r\n",
                       path, host, port, (long long)st.st_size);
    send_all(fd, req, (size_t)len);
    char block[kBlock];
    for (;;) {
        ssize_t got = read(in, block, sizeof block);
        if (got < 0) die("read file");
        if (got == 0) break;
        const char *p = block;
        while (got > 0) {
            wait_ready(fd, EPOLLOUT);
            ssize_t n = write(fd, p, (size_t)got);
            if (n < 0 && errno == EAGAIN) continue;
            if (n <= 0) die("send");
            p += n;
            got -= n;
        }
    }
    close(in);
    int status = 0;
    (void)read_head(fd, &status);
    close(fd);
    if (status != 200) {
        fprintf(stderr, "status %d\n", status);
        return 1;
    }
    return 0;
}

int main(int argc, char **argv) {
    if (argc == 6 && strcmp(argv[1], "get") == 0) return get(argv[2], argv[3], argv[4], argv[5]);
    if (argc == 6 && strcmp(argv[1], "put") == 0) return put(argv[2], argv[3], argv[4], argv[5]);
    fprintf(stderr, "usage: %s get HOST PORT PATH FILE | put FILE HOST PORT PATH\n", argv[0]);
    return 2;
}
