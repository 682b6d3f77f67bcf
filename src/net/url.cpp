// From a URL text to the URL record every later step of a transfer reads.
#include "net/url.h"

#include <arpa/inet.h>
#include <ctype.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <string_view>

#include "frame/log.h"
#include "frame/raii.h"

namespace {

using http_util_internal::from;
using http_util_internal::head;
using std::string_view;

constexpr string_view kScheme = "http://";
constexpr int kDefaultPort = 80;
constexpr size_t kHostMax = sizeof(http_url_param::host) - 1;

bool ipv6_char(char c) { return isxdigit(static_cast<unsigned char>(c)) || c == ':' || c == '.'; }

// On failure the caller's variable is the only report besides the log.
http_url_param *refuse(int *err, int code) {
    if (err != nullptr) *err = code;
    return nullptr;
}

}  // namespace

namespace http_util_internal {

int http_parse_url(const char *url, http_url_param *up) {
    // A control byte would reach the request line: a CR there ends the line
    // for some servers and proxies, which opens request splitting.
    for (size_t i = 0; url[i] != '\0'; ++i) {
        auto c = static_cast<unsigned char>(url[i]);
        if (c < 0x20 || c == 0x7f) {
            HTTP_LOG("control character 0x%02x at %d in the url", c, static_cast<int>(i));
            return -1;
        }
    }
    string_view rest = from(url, kScheme.size());
    size_t start = rest.find_first_not_of('/');
    rest = from(rest, start == string_view::npos ? rest.size() : start);

    size_t slash = rest.find('/');
    string_view hostpart = head(rest, slash);
    copy_bounded(up->path, slash == string_view::npos ? string_view("/") : from(rest, slash));

    string_view host;
    size_t after;  // position in hostpart after the host (and its brackets)
    if (!hostpart.empty() && hostpart[0] == '[') {
        size_t end = 1;
        while (end < hostpart.size() && ipv6_char(hostpart[end])) ++end;
        if (end == 1) {
            HTTP_LOG("scan ipv6 address failed");
            return -1;
        }
        if (end == hostpart.size() || hostpart[end] != ']') {
            HTTP_LOG("wrong ipv6 url format");
            return -1;
        }
        host = string_view(hostpart.data() + 1, end - 1);
        after = end + 1;
    } else {
        host = head(hostpart, hostpart.find(':'));
        after = host.size();
    }
    // Refused rather than cut: a shortened name could reach another server.
    if (host.size() > kHostMax) {
        HTTP_LOG("host too long, %d characters", static_cast<int>(host.size()));
        return -1;
    }
    copy_bounded(up->host, host);

    // The port and the file name are looked for up to the end of the URL.
    string_view tail = from(rest, after);
    up->port = kDefaultPort;
    if (!tail.empty() && tail[0] == ':') {
        size_t digits = 0;
        uint32_t value = 0;  // no range test: only the low 16 bits reach the address
        while (1 + digits < tail.size() && isdigit(static_cast<unsigned char>(tail[1 + digits]))) {
            value = value * 10 + static_cast<uint32_t>(tail[1 + digits] - '0');
            ++digits;
        }
        if (digits == 0) {
            HTTP_LOG("scan port failed");
            return -1;
        }
        up->port = static_cast<int32_t>(value);
        tail = from(tail, 1 + digits);
    }

    size_t last = tail.rfind('/');
    if (last == string_view::npos || last + 1 == tail.size()) {
        copy_bounded(up->filename, "index.html");
    } else {
        string_view name = head(from(tail, last + 1), sizeof up->filename - 1);
        copy_bounded(up->filename, head(name, name.find('?')));
    }
    up->url = url;
    return 0;
}

int http_tcp_gethost(const char *host, int port, uint32_t is_mgmt, sockaddr_storage *addr) {
    memset(addr, 0, sizeof *addr);
    auto *sin = reinterpret_cast<sockaddr_in *>(addr);
    auto *sin6 = reinterpret_cast<sockaddr_in6 *>(addr);
    const uint16_t net_port = htons(static_cast<uint16_t>(port));

    in_addr v4;
    if (inet_pton(AF_INET, host, &v4) == 1) {
        sin->sin_family = AF_INET;
        sin->sin_port = net_port;
        sin->sin_addr = v4;
        return 0;
    }
    in6_addr v6;
    if (inet_pton(AF_INET6, host, &v6) == 1) {
        sin6->sin6_family = AF_INET6;
        sin6->sin6_port = net_port;
        sin6->sin6_addr = v6;
        return 0;
    }

    if (&dns_domain_to_ip_block_oob == nullptr || &hostname_verify == nullptr) {
        HTTP_LOG("http_tcp_gethost 1");
        return -1;
    }
    if (hostname_verify(host) == 0) {
        HTTP_LOG("http_tcp_gethost 2");
        return -1;
    }
    alignas(sockaddr_storage) unsigned char result[DNS_RESULT_SIZE] = {};
    dns_time_limit limit = {5, 0};
    // A management-port transfer also resolves through the management port.
    if (dns_domain_to_ip_block_oob(host, 0, result, &limit, static_cast<int>(is_mgmt)) < 0) {
        HTTP_LOG("dns_domain_to_ip_block_oob fail, is_mgmt %d", static_cast<int>(is_mgmt));
        return -1;
    }
    uint16_t family;
    memcpy(&family, result, sizeof family);
    if (family != AF_INET) {
        HTTP_LOG("http_tcp_gethost addr fail");
        return -1;
    }
    sin->sin_family = AF_INET;
    sin->sin_port = net_port;
    memcpy(&sin->sin_addr, result + offsetof(sockaddr_in, sin_addr), sizeof sin->sin_addr);
    return 0;
}

}  // namespace http_util_internal

extern "C" {

HTTP_UTIL_API http_url_param *http_create_url_param(const char *url, int *err,
                                                    const http_util_param *param,
                                                    uint32_t is_mgmt, const char *mgmt_name) {
    using namespace http_util_internal;
    if (url == nullptr || param == nullptr) return refuse(err, HTTP_UTIL_ERR_PARAM);
    if (strncasecmp(url, kScheme.data(), kScheme.size()) != 0) {
        HTTP_LOG("Only HTTP protocol is supported! url:%s", url);
        return refuse(err, HTTP_UTIL_ERR_NOT_HTTP);
    }
    MallocPtr<http_url_param> up(static_cast<http_url_param *>(calloc(1, sizeof(http_url_param))));
    if (!up) {
        HTTP_LOG("malloc for url fail");
        return refuse(err, HTTP_UTIL_ERR_NOMEM);
    }
    if (http_parse_url(url, up.get()) != 0) {
        HTTP_LOG("parse url fail");
        return refuse(err, HTTP_UTIL_ERR_URL_FORMAT);
    }
    HTTP_LOG("host [%s] port [%d] path [%s] filename [%s]", up->host, up->port, up->path,
             up->filename);
    if (http_tcp_gethost(up->host, up->port, is_mgmt, &up->ip_addr) != 0) {
        HTTP_LOG("gethost to addr fail");
        return refuse(err, HTTP_UTIL_ERR_RESOLVE);
    }
    up->param = *param;
    up->is_post = param->post_file[0] != '\0';
    up->is_mgmt = static_cast<uint8_t>(is_mgmt);
    if (mgmt_name != nullptr) copy_bounded(up->mgmt_name, mgmt_name);
    HTTP_LOG("ip_addr [%s]",
             http_sock_ntop(reinterpret_cast<const sockaddr *>(&up->ip_addr), sizeof up->ip_addr));
    return up.release();
}

}  // extern "C"
