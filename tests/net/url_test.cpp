// The URL record: splitting, address literals, resolution through the
// device resolver, the refusals with their log records, and the fields
// copied from the caller.
#include <arpa/inet.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "interpose.h"
#include "net/url.h"
#include "net_test_util.h"

namespace {

using nettest::Record;
using nettest::records;

constexpr int kUntouched = 12345;
constexpr const char *kCreate = "http_create_url_param";
constexpr const char *kParse = "http_parse_url";
constexpr const char *kGethost = "http_tcp_gethost";

struct Made {
    http_url_param *up;
    int err = kUntouched;
    ~Made() { free(up); }
};

class Url : public testing::Test {
protected:
    // The record of url, made with a zeroed parameter record.
    static void make(Made &m, const char *url, uint32_t is_mgmt = 0,
                     const char *mgmt_name = nullptr) {
        http_util_param param = {};
        m.up = http_create_url_param(url, &m.err, &param, is_mgmt, mgmt_name);
    }
    static std::string addr_text(const http_url_param *up) {
        return http_sock_ntop(reinterpret_cast<const sockaddr *>(&up->ip_addr), sizeof up->ip_addr);
    }
    static std::string split_log(const char *host, int port, const char *path, const char *file) {
        return std::string("host [") + host + "] port [" + std::to_string(port) + "] path [" +
               path + "] filename [" + file + "]";
    }
};

// ---- URLs of address literals: the same in both test binaries ----

struct Accepted {
    const char *name;
    std::string url;
    std::string host;
    int port;
    std::string path;
    std::string filename;
    std::string address;  // ip_addr as the log records show it
};

const std::string kLong(300, 'a');

TEST_F(Url, LiteralHostsAreSplitWithoutTheResolver) {
    const Accepted cases[] = {
        {"upper-case scheme", "HTTP://127.0.0.1/a.bin", "127.0.0.1", 80, "/a.bin", "a.bin", "127.0.0.1 80"},
        {"mixed-case scheme", "hTtP://127.0.0.1/a.bin", "127.0.0.1", 80, "/a.bin", "a.bin", "127.0.0.1 80"},
        {"host only", "http://127.0.0.1", "127.0.0.1", 80, "/", "index.html", "127.0.0.1 80"},
        {"three slashes", "http:///127.0.0.1/dir/", "127.0.0.1", 80, "/dir/", "index.html", "127.0.0.1 80"},
        {"port and query", "http://127.0.0.1:8080/a/b.bin?x=1", "127.0.0.1", 8080, "/a/b.bin?x=1", "b.bin", "127.0.0.1 8080"},
        {"slash inside the query", "http://127.0.0.1/a/b.bin?x=/y", "127.0.0.1", 80, "/a/b.bin?x=/y", "y", "127.0.0.1 80"},
        {"port without path", "http://127.0.0.1:81", "127.0.0.1", 81, "/", "index.html", "127.0.0.1 81"},
        {"bracketed IPv6 with port", "http://[::1]:81/f.txt", "::1", 81, "/f.txt", "f.txt", "::1 81"},
        {"bracketed IPv6 without port", "http://[FE80::a:1]/", "FE80::a:1", 80, "/", "index.html", "fe80::a:1 80"},
        {"port beyond 16 bits keeps its low bits", "http://127.0.0.1:65616/", "127.0.0.1", 65616, "/", "index.html", "127.0.0.1 80"},
        {"long path cut to 255", "http://127.0.0.1/" + kLong, "127.0.0.1", 80, "/" + kLong.substr(0, 254), kLong.substr(0, 255), "127.0.0.1 80"},
    };
    for (const auto &c : cases) {
        fake::device().logs.clear();
        Made m;
        make(m, c.url.c_str());
        ASSERT_NE(m.up, nullptr) << c.name;
        EXPECT_EQ(m.err, kUntouched) << c.name << ": result variable written on success";
        EXPECT_EQ(m.up->url, c.url.c_str()) << c.name;
        EXPECT_EQ(m.up->host, c.host) << c.name;
        EXPECT_EQ(m.up->port, c.port) << c.name;
        EXPECT_EQ(m.up->path, c.path) << c.name;
        EXPECT_EQ(m.up->filename, c.filename) << c.name;
        EXPECT_EQ(m.up->ip_addr.ss_family, c.host.find(':') == std::string::npos ? AF_INET : AF_INET6)
            << c.name;
        EXPECT_EQ(addr_text(m.up), c.address) << c.name;
        std::vector<Record> want = {
            {kCreate, split_log(c.host.c_str(), c.port, c.path.c_str(), c.filename.c_str())},
            {kCreate, "ip_addr [" + c.address + "]"}};
        EXPECT_EQ(records(), want) << c.name;
    }
    EXPECT_TRUE(fake::device().resolver_calls.empty());
    EXPECT_TRUE(fake::device().hostname_checks.empty());
}

struct Refused {
    const char *name;
    const char *url;
    int err;
    std::vector<Record> logs;
};

TEST_F(Url, RefusedUrlsGiveTheirCodeAndLogRecords) {
    const std::string long_name = "http://" + std::string(256, 'h') + "/f";
    const std::string long_v6 = "http://[" + std::string(256, 'a') + "]/f";
    const std::vector<Record> parse_fail_tail = {{kCreate, "parse url fail"}};
    auto parse_fail = [&](const char *text) {
        std::vector<Record> r = {{kParse, text}};
        r.insert(r.end(), parse_fail_tail.begin(), parse_fail_tail.end());
        return r;
    };
    const Refused cases[] = {
        {"no url", nullptr, HTTP_UTIL_ERR_PARAM, {}},
        {"https", "https://127.0.0.1/", HTTP_UTIL_ERR_NOT_HTTP,
         {{kCreate, "Only HTTP protocol is supported! url:https://127.0.0.1/"}}},
        {"one slash", "http:/127.0.0.1/", HTTP_UTIL_ERR_NOT_HTTP,
         {{kCreate, "Only HTTP protocol is supported! url:http:/127.0.0.1/"}}},
        {"nothing after the bracket", "http://[/a", HTTP_UTIL_ERR_URL_FORMAT, parse_fail("scan ipv6 address failed")},
        {"empty brackets", "http://[]:80/a", HTTP_UTIL_ERR_URL_FORMAT, parse_fail("scan ipv6 address failed")},
        {"missing bracket", "http://[::1/a", HTTP_UTIL_ERR_URL_FORMAT, parse_fail("wrong ipv6 url format")},
        {"missing bracket at the end", "http://[::1", HTTP_UTIL_ERR_URL_FORMAT, parse_fail("wrong ipv6 url format")},
        {"letter inside the brackets", "http://[::1x]/", HTTP_UTIL_ERR_URL_FORMAT, parse_fail("wrong ipv6 url format")},
        {"letter after the colon", "http://127.0.0.1:x/a", HTTP_UTIL_ERR_URL_FORMAT, parse_fail("scan port failed")},
        {"nothing after the colon", "http://127.0.0.1:/a", HTTP_UTIL_ERR_URL_FORMAT, parse_fail("scan port failed")},
        {"IPv6 port not a number", "http://[::1]:http/", HTTP_UTIL_ERR_URL_FORMAT, parse_fail("scan port failed")},
        {"host of 256 characters", long_name.c_str(), HTTP_UTIL_ERR_URL_FORMAT, parse_fail("host too long, 256 characters")},
        {"IPv6 address of 256 characters", long_v6.c_str(), HTTP_UTIL_ERR_URL_FORMAT, parse_fail("host too long, 256 characters")},
        {"CR in the path", "http://127.0.0.1/a\rb", HTTP_UTIL_ERR_URL_FORMAT, parse_fail("control character 0x0d at 18 in the url")},
        {"DEL in the host", "http://127.0.0.\x7f/", HTTP_UTIL_ERR_URL_FORMAT, parse_fail("control character 0x7f at 15 in the url")},
    };
    for (const auto &c : cases) {
        fake::device().logs.clear();
        Made m;
        make(m, c.url);
        EXPECT_EQ(m.up, nullptr) << c.name;
        EXPECT_EQ(m.err, c.err) << c.name;
        EXPECT_EQ(records(), c.logs) << c.name;
    }
}

TEST_F(Url, FailedAllocationIsReported) {
    interpose::fail_calloc_bytes = sizeof(http_url_param);
    Made m;
    make(m, "http://127.0.0.1/");
    EXPECT_EQ(m.up, nullptr);
    EXPECT_EQ(m.err, HTTP_UTIL_ERR_NOMEM);
    EXPECT_EQ(records(), (std::vector<Record>{{kCreate, "malloc for url fail"}}));
}

TEST_F(Url, RecordCarriesTheCallersChoices) {
    http_util_param param = {};
    param.vrf = 3;
    snprintf(param.post_file, sizeof param.post_file, "/tmp/up.bin");
    param.max_redirect = 5;
    param.ntry = 4;
    param.show_progress = 1;
    param.src_ip = inet_addr("127.0.0.2");
    const char *url = "http://127.0.0.1:8080/x";
    int err = kUntouched;
    http_url_param *up = http_create_url_param(url, &err, &param, 0x101, "0123456789abcdefXYZ");
    ASSERT_NE(up, nullptr);
    EXPECT_EQ(memcmp(&up->param, &param, sizeof param), 0);
    EXPECT_EQ(up->is_post, 1);
    EXPECT_EQ(up->is_mgmt, 1) << "the low byte of the flag";
    EXPECT_STREQ(up->mgmt_name, "0123456789abcde");
    EXPECT_EQ(up->multipart, 0);
    EXPECT_EQ(up->last_tick[0], 0);
    EXPECT_EQ(up->last_tick[1], 0);
    const auto *tail = reinterpret_cast<const unsigned char *>(&up->ip_addr) + sizeof(sockaddr_in);
    for (size_t i = 0; i < sizeof up->ip_addr - sizeof(sockaddr_in); ++i)
        ASSERT_EQ(tail[i], 0) << "address area byte " << i + sizeof(sockaddr_in);
    free(up);

    param.post_file[0] = '\0';
    up = http_create_url_param(url, &err, &param, 0, nullptr);
    ASSERT_NE(up, nullptr);
    EXPECT_EQ(up->is_post, 0);
    EXPECT_EQ(up->is_mgmt, 0);
    EXPECT_STREQ(up->mgmt_name, "");
    EXPECT_EQ(err, kUntouched);
    free(up);
}

TEST_F(Url, HostOf255CharactersFitsItsField) {
    for (std::string host : {std::string(255, 'h'), "[" + std::string(255, 'a') + "]"}) {
        std::string url = "http://" + host + ":81/f";
        http_url_param up = {};
        memset(up.host, 'x', sizeof up.host);
        ASSERT_EQ(http_util_internal::http_parse_url(url.c_str(), &up), 0) << host;
        EXPECT_EQ(strlen(up.host), 255u);
        EXPECT_EQ(up.port, 81);
        EXPECT_STREQ(up.path, "/f");
    }
}

// ---- names: the device resolver and host-name check ----

#ifdef FAKE_OPTIONAL_SERVICES

struct Named {
    const char *name;
    const char *url;
    uint32_t is_mgmt;
    int hostname_ok;
    int err;                 // 0: accepted
    const char *address;     // accepted: ip_addr as logged
    const char *gethost_log; // refused: the record of http_tcp_gethost
    bool resolver_called;
};

TEST_F(Url, NamesGoThroughTheDeviceResolver) {
    const Named cases[] = {
        {"resolved name", "http://files.lan:8080/a", 0, 1, 0, "127.0.0.7 8080", nullptr, true},
        {"management port", "http://files.lan/a", 1, 1, 0, "127.0.0.7 80", nullptr, true},
        {"IPv6-only name", "http://v6only.lan/a", 0, 1, HTTP_UTIL_ERR_RESOLVE, nullptr,
         "http_tcp_gethost addr fail", true},
        {"name the check rejects", "http://files.lan/a", 0, 0, HTTP_UTIL_ERR_RESOLVE, nullptr,
         "http_tcp_gethost 2", false},
        {"resolver fails", "http://unknown.lan/a", 1, 1, HTTP_UTIL_ERR_RESOLVE, nullptr,
         "dns_domain_to_ip_block_oob fail, is_mgmt 1", true},
        {"dotted quad out of range is a name", "http://300.1.1.1/a", 0, 1, HTTP_UTIL_ERR_RESOLVE,
         nullptr, "dns_domain_to_ip_block_oob fail, is_mgmt 0", true},
    };
    for (const auto &c : cases) {
        fake::reset();
        auto &d = fake::device();
        d.dns["files.lan"] = fake::ipv4("127.0.0.7");
        d.dns["v6only.lan"] = fake::ipv6("::1");
        d.hostname_ok = c.hostname_ok;
        Made m;
        make(m, c.url, c.is_mgmt);
        std::string host(c.url + 7, strcspn(c.url + 7, ":/"));
        ASSERT_EQ(d.hostname_checks, std::vector<std::string>{host}) << c.name;
        ASSERT_EQ(d.resolver_calls.size(), c.resolver_called ? 1u : 0u) << c.name;
        if (c.resolver_called) {
            const auto &call = d.resolver_calls[0];
            EXPECT_EQ(call.host, host) << c.name;
            EXPECT_EQ(call.flags, 0) << c.name;
            EXPECT_EQ(call.limit.sec, 5) << c.name;
            EXPECT_EQ(call.limit.usec, 0) << c.name;
            EXPECT_EQ(call.is_mgmt, static_cast<int>(c.is_mgmt)) << c.name;
        }
        auto logs = records();
        ASSERT_FALSE(logs.empty()) << c.name;
        logs.erase(logs.begin());  // the split, checked with the literals
        if (c.err == 0) {
            ASSERT_NE(m.up, nullptr) << c.name;
            EXPECT_EQ(m.err, kUntouched) << c.name;
            EXPECT_EQ(m.up->is_mgmt, c.is_mgmt) << c.name;
            EXPECT_EQ(m.up->ip_addr.ss_family, AF_INET) << c.name;
            EXPECT_EQ(addr_text(m.up), c.address) << c.name;
            EXPECT_EQ(logs, (std::vector<Record>{{kCreate, std::string("ip_addr [") + c.address + "]"}}))
                << c.name;
        } else {
            EXPECT_EQ(m.up, nullptr) << c.name;
            EXPECT_EQ(m.err, c.err) << c.name;
            EXPECT_EQ(logs, (std::vector<Record>{{kGethost, c.gethost_log},
                                                 {kCreate, "gethost to addr fail"}}))
                << c.name;
        }
    }
}

#else

TEST_F(Url, NamesNeedTheResolverAndTheHostNameCheck) {
    Made m;
    make(m, "http://files.lan/a", 1);
    EXPECT_EQ(m.up, nullptr);
    EXPECT_EQ(m.err, HTTP_UTIL_ERR_RESOLVE);
    auto logs = records();
    ASSERT_EQ(logs.size(), 3u);
    EXPECT_EQ(logs[1], Record(kGethost, "http_tcp_gethost 1"));
    EXPECT_EQ(logs[2], Record(kCreate, "gethost to addr fail"));
}

#endif

}  // namespace
