// Resolver and host-name check on the host.
//
// getaddrinfo has no time limit of its own, so the lookup runs on a
// detached thread and the caller waits for it at most the given limit.
// Caller and thread share the lookup state by a count of references; a
// caller that gives up leaves it to the thread, and a late answer is
// dropped with it.
#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

#include "host_lock.h"
#include "platform/device.h"

namespace {

using http_util_host_internal::MutexLock;

struct Lookup {
    pthread_mutex_t m;
    pthread_cond_t cv;  // on CLOCK_MONOTONIC: a clock step moves no deadline
    int refs;           // guarded by m; the last one out frees the state
    bool done;
    bool found;
    sockaddr_storage addr;
    socklen_t addrlen;
    char *host;
};

void destroy(Lookup *st) {
    pthread_cond_destroy(&st->cv);
    pthread_mutex_destroy(&st->m);
    free(st->host);
    free(st);
}

void release(Lookup *st) {
    bool last;
    {
        MutexLock lock(&st->m);
        last = --st->refs == 0;
    }
    if (last) destroy(st);
}

// A condition on the monotonic clock.
bool init_monotonic_cond(pthread_cond_t *cv) {
    pthread_condattr_t attr;
    if (pthread_condattr_init(&attr) != 0) return false;
    bool ok = pthread_condattr_setclock(&attr, CLOCK_MONOTONIC) == 0 &&
              pthread_cond_init(cv, &attr) == 0;
    pthread_condattr_destroy(&attr);
    return ok;
}

// The state with the caller's reference; nullptr when memory or a thread
// primitive cannot be had.
Lookup *create(const char *host) {
    Lookup *st = static_cast<Lookup *>(calloc(1, sizeof(Lookup)));
    if (st == nullptr) return nullptr;
    st->host = strdup(host);
    if (st->host != nullptr && init_monotonic_cond(&st->cv)) {
        if (pthread_mutex_init(&st->m, nullptr) == 0) {
            st->refs = 1;
            return st;
        }
        pthread_cond_destroy(&st->cv);
    }
    free(st->host);
    free(st);
    return nullptr;
}

bool first_address(const char *host, int family, sockaddr_storage *out, socklen_t *outlen) {
    addrinfo hints;
    memset(&hints, 0, sizeof hints);
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *res = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &res) != 0 || res == nullptr) return false;
    memcpy(out, res->ai_addr, res->ai_addrlen);
    *outlen = res->ai_addrlen;
    freeaddrinfo(res);
    return true;
}

// IPv4 first: the library connects to IPv4 only. An IPv6-only name is
// answered as IPv6 so that the caller can refuse it for what it is.
void *run_lookup(void *arg) {
    Lookup *st = static_cast<Lookup *>(arg);
    sockaddr_storage addr;
    memset(&addr, 0, sizeof addr);
    socklen_t len = 0;
    bool found = first_address(st->host, AF_INET, &addr, &len) ||
                 first_address(st->host, AF_INET6, &addr, &len);
    {
        MutexLock lock(&st->m);
        st->found = found;
        st->addr = addr;
        st->addrlen = len;
        st->done = true;
        pthread_cond_broadcast(&st->cv);
    }
    release(st);
    return nullptr;
}

bool start_lookup(Lookup *st) {
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) return false;
    bool started = pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED) == 0;
    if (started) {
        st->refs = 2;  // no thread yet: no lock needed
        pthread_t tid;
        started = pthread_create(&tid, &attr, run_lookup, st) == 0;
        if (!started) st->refs = 1;
    }
    pthread_attr_destroy(&attr);
    return started;
}

// Now on the monotonic clock plus the limit (5 s without one).
timespec deadline_after(const dns_time_limit *limit) {
    long long sec = 5;
    long long usec = 0;
    if (limit != nullptr) {
        sec = limit->sec > 0 ? limit->sec : 0;
        usec = limit->usec > 0 ? limit->usec : 0;
    }
    timespec now = {0, 0};
    clock_gettime(CLOCK_MONOTONIC, &now);
    long long nsec = now.tv_nsec + (usec % 1000000) * 1000;
    timespec at;
    at.tv_sec = static_cast<time_t>(now.tv_sec + sec + usec / 1000000 + nsec / 1000000000);
    at.tv_nsec = static_cast<long>(nsec % 1000000000);
    return at;
}

bool ldh(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
}

}  // namespace

extern "C" {

int dns_domain_to_ip_block_oob(const char *host, int /*flags*/, void *result,
                               dns_time_limit *limit, int /*is_mgmt: no management port here*/) {
    if (host == nullptr || result == nullptr) return -1;
    Lookup *st = create(host);
    if (st == nullptr) return -1;
    if (!start_lookup(st)) {
        release(st);
        return -1;
    }
    const timespec at = deadline_after(limit);
    int rc = -1;
    {
        MutexLock lock(&st->m);
        while (!st->done)
            if (pthread_cond_timedwait(&st->cv, &st->m, &at) != 0) break;  // time is up
        if (st->done && st->found) {
            memset(result, 0, DNS_RESULT_SIZE);
            memcpy(result, &st->addr,
                   st->addrlen < DNS_RESULT_SIZE ? st->addrlen : DNS_RESULT_SIZE);
            rc = 0;
        }
    }
    release(st);
    return rc;
}

// Host names after RFC 1123: labels of letters, digits and hyphens, 1 to 63
// characters, not beginning or ending with a hyphen; 253 characters in all.
int hostname_verify(const char *host) {
    if (host == nullptr) return 0;
    size_t len = strlen(host);
    if (len == 0 || len > 253) return 0;
    size_t label = 0;
    for (size_t i = 0; i <= len; ++i) {
        char c = host[i];
        if (c == '.' || c == '\0') {
            if (c == '\0' && label == 0 && i > 0 && host[i - 1] == '.') return 1;  // root dot
            if (label == 0 || label > 63) return 0;
            if (host[i - 1] == '-') return 0;
            label = 0;
            continue;
        }
        if (!ldh(c)) return 0;
        if (label == 0 && c == '-') return 0;
        ++label;
    }
    return 1;
}

}  // extern "C"
