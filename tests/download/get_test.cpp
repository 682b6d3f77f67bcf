// The Host value in its four forms, from the URL record alone.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/socket.h>

#include <string>

#include "http/connection.h"
#include "http_util.h"

namespace {

TEST(HostValue, FourFormsByPortAndFamily) {
    struct Row {
        const char *host;
        int port;
        int family;
        const char *expected;
    };
    const Row rows[] = {
        {"10.1.2.3", 80, AF_INET, "10.1.2.3"},
        {"files.example", 80, AF_INET, "files.example"},
        {"10.1.2.3", 8080, AF_INET, "10.1.2.3:8080"},
        {"::1", 80, AF_INET6, "[::1]"},
        {"fe80::1", 8080, AF_INET6, "[fe80::1]:8080"},
        {"10.1.2.3", 65616, AF_INET, "10.1.2.3:65616"},  // the port as the URL gave it
    };
    for (const Row &r : rows) {
        http_url_param url;
        memset(&url, 0, sizeof url);
        snprintf(url.host, sizeof url.host, "%s", r.host);
        url.port = r.port;
        url.ip_addr.ss_family = static_cast<sa_family_t>(r.family);
        char buf[HTTP_UTIL_WORK_BUF_SIZE];
        http_util_internal::format_host_value(buf, sizeof buf, &url);
        EXPECT_STREQ(buf, r.expected);
    }
}

}  // namespace
