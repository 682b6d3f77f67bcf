// Resolver and host-name check on the host.
//
// getaddrinfo has no time limit of its own, so the lookup runs on a
// detached thread and the caller waits for it at most the given limit;
// a late answer is dropped with the shared state.
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include "platform/device.h"

namespace {

struct Lookup {
    std::mutex m;
    std::condition_variable cv;
    bool done = false;
    bool found = false;
    sockaddr_storage addr{};
    socklen_t addrlen = 0;
    std::string host;
};

bool first_address(const std::string &host, int family, sockaddr_storage *out,
                   socklen_t *outlen) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *res = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &res) != 0 || res == nullptr) return false;
    memcpy(out, res->ai_addr, res->ai_addrlen);
    *outlen = res->ai_addrlen;
    freeaddrinfo(res);
    return true;
}

// IPv4 first: the library connects to IPv4 only. An IPv6-only name is
// answered as IPv6 so that the caller can refuse it for what it is.
void run_lookup(const std::shared_ptr<Lookup> &st) {
    sockaddr_storage addr{};
    socklen_t len = 0;
    bool found = first_address(st->host, AF_INET, &addr, &len) ||
                 first_address(st->host, AF_INET6, &addr, &len);
    std::lock_guard<std::mutex> lock(st->m);
    st->found = found;
    st->addr = addr;
    st->addrlen = len;
    st->done = true;
    st->cv.notify_all();
}

bool ldh(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
}

}  // namespace

extern "C" {

int dns_domain_to_ip_block_oob(const char *host, int /*flags*/, void *result,
                               dns_time_limit *limit, int /*is_mgmt: no management port here*/) {
    if (host == nullptr || result == nullptr) return -1;
    auto st = std::make_shared<Lookup>();
    st->host = host;
    try {
        std::thread([st] { run_lookup(st); }).detach();
    } catch (const std::system_error &) {
        return -1;
    }
    auto wait = std::chrono::seconds(5);
    std::chrono::microseconds usec(0);
    if (limit != nullptr) {
        wait = std::chrono::seconds(limit->sec > 0 ? limit->sec : 0);
        usec = std::chrono::microseconds(limit->usec > 0 ? limit->usec : 0);
    }
    std::unique_lock<std::mutex> lock(st->m);
    if (!st->cv.wait_for(lock, wait + usec, [&] { return st->done; })) return -1;
    if (!st->found) return -1;
    memset(result, 0, DNS_RESULT_SIZE);
    memcpy(result, &st->addr, st->addrlen < DNS_RESULT_SIZE ? st->addrlen : DNS_RESULT_SIZE);
    return 0;
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
