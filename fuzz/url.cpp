// http_create_url_param with address literals: the stub platform has no
// resolver, so every host name is refused before any look-up.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <string.h>
#include <strings.h>

#include "fuzz_support.h"

namespace {

bool terminated(const char *field, size_t size) { return memchr(field, '\0', size) != nullptr; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // The first byte picks the management flag and whether a (too long)
    // management interface name comes along; the rest is the URL.
    const uint32_t flags = fuzz::take(data, size, 1);
    const std::string url = fuzz::text(data, size);
    http_util_param param = {};
    param.ntry = 3;
    if (flags & 2) strcpy(param.post_file, "/tmp/post.bin");
    const char *mgmt_name = (flags & 4) ? "management-port-0" : nullptr;

    int err = -12345;
    http_url_param *up = http_create_url_param(url.c_str(), &err, &param, flags & 1, mgmt_name);
    if (up == nullptr) {
        FUZZ_CHECK(err == HTTP_UTIL_ERR_NOT_HTTP || err == HTTP_UTIL_ERR_URL_FORMAT ||
                   err == HTTP_UTIL_ERR_RESOLVE);
        if (err == HTTP_UTIL_ERR_NOT_HTTP) FUZZ_CHECK(strncasecmp(url.c_str(), "http://", 7) != 0);
        return 0;
    }
    // Control bytes never get into a record, and so never onto the wire.
    for (const char *p = url.c_str(); *p != '\0'; ++p)
        FUZZ_CHECK(static_cast<unsigned char>(*p) >= 0x20 && *p != 0x7f);
    FUZZ_CHECK(err == -12345);  // not written on success
    FUZZ_CHECK(up->url == url.c_str());
    FUZZ_CHECK(strncasecmp(url.c_str(), "http://", 7) == 0);
    FUZZ_CHECK(terminated(up->host, sizeof up->host));
    FUZZ_CHECK(terminated(up->path, sizeof up->path));
    FUZZ_CHECK(terminated(up->filename, sizeof up->filename));
    FUZZ_CHECK(terminated(up->mgmt_name, sizeof up->mgmt_name));
    FUZZ_CHECK(up->path[0] == '/');
    // A last segment that starts with "?" leaves the file name empty.
    FUZZ_CHECK(strchr(up->filename, '/') == nullptr && strchr(up->filename, '?') == nullptr);
    // Only an address literal gets this far, and it is the record's address.
    const auto *sin = reinterpret_cast<const sockaddr_in *>(&up->ip_addr);
    const auto *sin6 = reinterpret_cast<const sockaddr_in6 *>(&up->ip_addr);
    unsigned char addr[16];
    if (up->ip_addr.ss_family == AF_INET) {
        FUZZ_CHECK(inet_pton(AF_INET, up->host, addr) == 1);
        FUZZ_CHECK(memcmp(addr, &sin->sin_addr, 4) == 0);
        FUZZ_CHECK(sin->sin_port == htons(static_cast<uint16_t>(up->port)));
    } else {
        FUZZ_CHECK(up->ip_addr.ss_family == AF_INET6);
        FUZZ_CHECK(inet_pton(AF_INET6, up->host, addr) == 1);
        FUZZ_CHECK(memcmp(addr, &sin6->sin6_addr, 16) == 0);
        FUZZ_CHECK(sin6->sin6_port == htons(static_cast<uint16_t>(up->port)));
    }
    FUZZ_CHECK(up->is_mgmt == (flags & 1));
    FUZZ_CHECK(up->is_post == ((flags & 2) ? 1 : 0));
    FUZZ_CHECK(up->multipart == 0);
    // The interface name is cut to 15 characters.
    FUZZ_CHECK(strcmp(up->mgmt_name, mgmt_name ? std::string(mgmt_name, 15).c_str() : "") == 0);
    FUZZ_CHECK(memcmp(&up->param, &param, sizeof param) == 0);
    FUZZ_CHECK(up->last_tick[0] == 0 && up->last_tick[1] == 0);
    free(up);
    return 0;
}
