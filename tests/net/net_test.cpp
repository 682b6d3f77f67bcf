// The connection layer as callers, servers and the device see it: URL records and refusals, TLV blocks, sockets
// and their VRF options, raw I/O, and the request writer's bytes and writes on the wire.
#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <set>
#include <string>
#include <vector>

#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"
#include "net/io.h"
#include "platform/device.h"
#include "scripted_server.h"

namespace {

int open_fds() {
    int n = 0;
    DIR *d = opendir("/proc/self/fd");
    while (readdir(d) != nullptr) ++n;
    return closedir(d), n;
}

std::string text_of(const sockaddr_storage &a) { return http_sock_ntop(reinterpret_cast<const sockaddr *>(&a), sizeof a); }

struct UrlRow {
    std::string url;
    int err;           // 0: accepted
    std::string want;  // accepted: "host port path filename @address"; refused: a record logged
    uint32_t is_mgmt = 0;
};

void check(const UrlRow &r) {
    fake::device().logs.clear();
    int err = 12345;  // written only on failure
    http_util_param param = {};
    http_url_param *up = http_create_url_param(r.url.c_str(), &err, &param, r.is_mgmt, nullptr);
    EXPECT_EQ(up ? 0 : err, r.err) << r.url.substr(0, 60);
    EXPECT_TRUE(up ? err == 12345 : r.want.empty() || fake::logged(r.want)) << r.url.substr(0, 60) << ": " << r.want;
    EXPECT_EQ(up ? std::string(up->host) + " " + std::to_string(up->port) + " " + up->path + " " + up->filename +
                       " @" + text_of(up->ip_addr) : r.want, r.want);
    free(up);
}

TEST(Url, LiteralsAreSplitOrRefused) {
    const std::string a(300, 'a');
    const int F = HTTP_UTIL_ERR_URL_FORMAT;
    const UrlRow rows[] = {
        {"HTTP://127.0.0.1/a.bin", 0, "127.0.0.1 80 /a.bin a.bin @127.0.0.1 80"},
        {"hTtP://127.0.0.1", 0, "127.0.0.1 80 / index.html @127.0.0.1 80"},
        {"http:///127.0.0.1:81/dir/", 0, "127.0.0.1 81 /dir/ index.html @127.0.0.1 81"},
        {"http://127.0.0.1:8080/a/b.bin?x=1", 0, "127.0.0.1 8080 /a/b.bin?x=1 b.bin @127.0.0.1 8080"},
        {"http://127.0.0.1/a/b.bin?x=/y", 0, "127.0.0.1 80 /a/b.bin?x=/y y @127.0.0.1 80"},
        {"http://[FE80::a:1]:81/f", 0, "FE80::a:1 81 /f f @fe80::a:1 81"},
        {"http://127.0.0.1:65616/", 0, "127.0.0.1 65616 / index.html @127.0.0.1 80"},  // the low 16 bits
        {"http://127.0.0.1/" + a, 0, "127.0.0.1 80 /" + a.substr(0, 254) + " " + a.substr(0, 255) + " @127.0.0.1 80"},
        {"https://127.0.0.1/", HTTP_UTIL_ERR_NOT_HTTP, "Only HTTP protocol is supported! url:https://127.0.0.1/"},
        {"http:/127.0.0.1/", HTTP_UTIL_ERR_NOT_HTTP, ""},
        {"http://[/a", F, "scan ipv6 address failed"}, {"http://[]:80/a", F, "scan ipv6 address failed"},
        {"http://[::1/a", F, "wrong ipv6 url format"}, {"http://[::1x]/", F, "wrong ipv6 url format"},
        {"http://[::1", F, "wrong ipv6 url format"}, {"http://127.0.0.1:x/a", F, "scan port failed"},
        {"http://127.0.0.1:/a", F, "scan port failed"}, {"http://[::1]:http/", F, "scan port failed"},
        {"http://" + std::string(256, 'h') + "/f", F, "host too long, 256 characters"},
        {"http://[" + std::string(256, 'a') + "]/f", F, "host too long, 256 characters"},
        {"http://127.0.0.1/a\rb", F, "control character 0x0d at 18 in the url"},
        {"http://127.0.0.\x7f/", F, "control character 0x7f at 15 in the url"},
    };
    for (const UrlRow &r : rows) check(r);
    EXPECT_TRUE(fake::device().resolver_calls.empty() && fake::device().hostname_checks.empty());
    int err = 0;
    http_util_param param = {};
    EXPECT_EQ(http_create_url_param(nullptr, &err, &param, 0, nullptr) ? 0 : err, HTTP_UTIL_ERR_PARAM);
}

// Names go through the device's host-name check (here it refuses names with "bad" in them) and resolver, asked
// with the management flag; without those services only literals work.
TEST(UrlOptionalServices, NamesGoThroughTheDeviceResolver) {
    auto &d = fake::device();
    d.dns = {{"files.lan", fake::ipv4("127.0.0.7")}, {"v6only.lan", fake::ipv6("::1")}};
    const int R = HTTP_UTIL_ERR_RESOLVE;
    const UrlRow rows[] = {
        {"http://files.lan:8080/a", 0, "files.lan 8080 /a a @127.0.0.7 8080"},
        {"http://files.lan/a", 0, "files.lan 80 /a a @127.0.0.7 80", 1},
        {"http://v6only.lan/a", R, "http_tcp_gethost addr fail"}, {"http://bad.lan/a", R, "http_tcp_gethost 2"},
        {"http://unknown.lan/a", R, "dns_domain_to_ip_block_oob fail, is_mgmt 1", 1},
        {"http://300.1.1.1/a", R, "dns_domain_to_ip_block_oob fail, is_mgmt 0"},
        {"http://" + std::string(255, 'h') + ":81/f", R, "dns_domain_to_ip_block_oob fail, is_mgmt 0"},
    };
    for (UrlRow r : rows) {
        if (&hostname_verify == nullptr) r = {r.url, R, "http_tcp_gethost 1"};
        d.hostname_ok = r.url.find("bad") == std::string::npos;
        d.resolver_calls.clear();
        check(r);
        for (const auto &call : d.resolver_calls) EXPECT_EQ(call.is_mgmt, static_cast<int>(r.is_mgmt)) << r.url;
    }
}

// Blocks as host programs build them: native 32-bit words, aligned or not.
TEST(Tlv, BlocksGiveTheirResultAndSourceAddress) {
    const uint32_t a = inet_addr("127.0.0.2"), b = inet_addr("127.0.0.3"), P = HTTP_UTIL_ERR_PARAM;
    const std::vector<uint32_t> rows[] = {  // result, source address, then the block
        {0, 0, 0, 0}, {0, a, 1, 4, a, 0, 99}, {0, b, 1, 4, a, 1, 4, b, 0, 0}, {P, 0, 1, 8, a, a, 0, 0},
        {P, 0, 2, 4, a, 0, 0}, {P, a, 1, 4, a, 7, 4, b, 0, 0}};
    for (const auto &r : rows)
        for (size_t offset : {0, 1}) {
            std::vector<unsigned char> block(offset + 4 * r.size());
            memcpy(block.data() + offset, r.data() + 2, 4 * (r.size() - 2));
            http_util_param param = {};
            EXPECT_EQ(http_util_parse_tlv(block.data() + offset, &param), static_cast<int>(r[0])) << r[2] << r[3];
            EXPECT_EQ(param.src_ip, r[1]) << r[2] << r[3];
        }
    http_util_param param = {};
    EXPECT_EQ(http_util_parse_tlv(nullptr, &param) + param.src_ip, 0u);
}

struct SocketRow {
    bool v6;
    int vrf, is_mgmt;
    const char *mgmt_name;
    std::set<int> taken;  // the VRF options the kernel takes
    int index;            // the VRF the options carry; 0: none set
    std::string failure;  // its record; empty: it connects
    uint32_t src = 0;
    int nonblock = 1;
    int bind_errno = 0;
};

// Options 1002 then 1004 at the family's level; only an IPv4 socket is bound to the source address.
void check(const SocketRow &r, const sockaddr_storage *to = nullptr) {
    auto &d = fake::device();
    d.logs.clear(), d.if_index_calls.clear(), d.vrf_name_calls.clear();
    d.ifindex = {{"mgmt0", 4}, {"mgmt1", 5}, {"mgmt2", 6}};
    d.if_vrf = {{5, 9}, {6, 0}};
    interpose::sockopt_pretend_ok = r.taken;
    scripted::Server srv(r.v6 ? scripted::Family::IPv6 : scripted::Family::IPv4);
    srv.start();
    interpose::fail_bind_errno = r.bind_errno;
    const sockaddr_storage a = to ? *to : srv.address();
    const int before = open_fds();
    int fd = http_create_socket(reinterpret_cast<const sockaddr *>(&a), sizeof a, r.nonblock, r.is_mgmt, r.src,
                                r.mgmt_name, r.vrf);
    EXPECT_EQ(fd >= 0 ? "" : r.failure, r.failure);
    EXPECT_TRUE(r.failure.empty() ? fd >= 0 : fake::logged(r.failure) && open_fds() == before) << r.failure;
    sockaddr_storage local{};
    socklen_t len = sizeof local;
    EXPECT_TRUE(fd < 0 || ((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0) == (r.nonblock == 1));
    if (fd >= 0 && r.src && getsockname(fd, reinterpret_cast<sockaddr *>(&local), &len) == 0) {
        EXPECT_EQ(text_of(local).substr(0, text_of(local).find(' ')), r.v6 ? "::1" : "127.0.0.2");
    }
    if (fd >= 0) close(fd);
    std::vector<int> want, got;
    if (r.index != 0) want = {r.v6 ? 41 : 0, 1002, r.index};
    if (r.index != 0 && r.taken.count(1002)) want.insert(want.end(), {want[0], 1004, r.index});
    for (const auto &c : interpose::sockopt_calls())
        if (c.name == 1002 || c.name == 1004) got.insert(got.end(), {c.level, c.name, c.value});
    interpose::reset();
    EXPECT_EQ(got, want) << r.failure;
    EXPECT_TRUE((r.vrf <= 0 && r.is_mgmt) || (d.if_index_calls.empty() && d.vrf_name_calls.empty()));
}

const std::string kVrfRefused = std::string("create_socket-->set vrf option error: ") + strerror(ENOPROTOOPT) + ".";

TEST(Socket, ConnectionsTheirVrfAndFailures) {
    const std::set<int> both = {1002, 1004};
    const uint32_t src = inet_addr("127.0.0.2");
    const SocketRow rows[] = {
        {0, 7, 1, "mgmt0", {}, 7, kVrfRefused},  // an explicit VRF wins over the management port
        {1, 7, 0, "", {}, 7, std::string("create_socket-->set ipv6 vrf option error: ") + strerror(ENOPROTOOPT) + "."},
        {0, 7, 0, "", both, 7, "", src}, {1, 7, 0, "", both, 7, "", src}, {0, 7, 0, "", {1002}, 7, kVrfRefused},
        {0, 0, 0, "mgmt1", {}, 0, ""}, {1, 0, 0, "", {}, 0, "", 0, 0}, {0, 0, 1, "mgmt1", {}, 9, kVrfRefused},
        {0, 0, 1, "ghost", {}, 0, "create_socket-->lsm_if_get_index_by_name name:ghost error"},
        {0, 0, 1, "mgmt0", {}, 0, "create_socket-->lsm_if_get_vrf ifx:4 error"}, {0, 0, 1, "mgmt2", {}, 0, ""},
    };
    for (const SocketRow &r : rows) check(r);
    const sockaddr_storage refused = fake::ipv4("127.0.0.1", scripted::unused_port());
    check({0, 0, 0, "", {}, 0, "create_socket-->connect errno Connection refused"}, &refused);
    sockaddr_storage odd{};
    odd.ss_family = 255;
    check({0, 0, 0, "", {}, 0, std::string("create_socket-->errno:") + strerror(EAFNOSUPPORT)}, &odd);
    check({0, 0, 0, "", {}, 0, "HTTP: bind source ip to socket error!, addr: 127.0.0.2 \r\n", src, 1, EADDRNOTAVAIL});
}

// The management VRF by name needs the device's VRF service.
TEST(SocketOptionalServices, ManagementVrfByName) {
    for (int answer : {3, 0, -5}) {
        SocketRow r = {0, 0, 1, "", {}, answer > 0 ? answer : 0,
                       answer > 0 ? kVrfRefused : answer == 0 ? "" : "lsm_vrf_name2index name:___Mgmt_oob error:-5"};
        if (&lsm_vrf_name2index == nullptr) r.index = 0, r.failure = "no suport lsm_vrf_name2index";
        fake::device().mgmt_vrf_index = answer;
        check(r);
    }
}

// A non-blocking stream pair.
struct Pair {
    int fd[2] = {-1, -1};
    Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fd), 0); }
    ~Pair() { close(fd[0]), close(fd[1]); }
    std::string take() {
        std::string out;
        char buf[4096];
        for (ssize_t n; (n = read(fd[1], buf, sizeof buf)) > 0;) out.append(buf, static_cast<size_t>(n));
        return out;
    }
};

TEST(RawIo, ResultsOfEachCallAndAddressTexts) {
    Pair p;
    char buf[16];
    const int gone = dup(0);
    close(gone);
    EXPECT_EQ(http_util_fd_write(gone, "x", 0, 5), 0) << "nothing to write touches nothing";
    EXPECT_EQ(http_util_fd_write(-1, "x", 1, 5) + http_util_fd_read(gone, buf, 4, 1), -2);
    EXPECT_EQ(http_util_fd_write_nonblock(gone, "x", 1, 1), -1);
    std::vector<char> big(1 << 22);
    const int n = http_util_fd_write_nonblock(p.fd[0], big.data(), static_cast<unsigned>(big.size()), 1);
    EXPECT_TRUE(n > 0 && n < static_cast<int>(big.size())) << n;
    EXPECT_EQ(p.take().size(), static_cast<size_t>(n));
    for (bool waiting : {false, true}) {  // short reads, on the fast path and the waiting one
        interpose::force_waiting_path = waiting;
        EXPECT_EQ(http_util_fd_write(p.fd[1], "abcde", 5, 5), 0);
        EXPECT_EQ(http_util_internal::fast_read(p.fd[0], buf, 3, 1) + http_util_fd_read(p.fd[0], buf, 16, 1), 5);
    }
    shutdown(p.fd[1], SHUT_RDWR);
    EXPECT_EQ(http_util_fd_read(p.fd[0], buf, sizeof buf, 1), 0);
    EXPECT_EQ(http_util_fd_write(p.fd[0], "x", 1, 5), -1) << "and no SIGPIPE";
    EXPECT_EQ(errno, EPIPE);
    sockaddr_storage named{}, unnamed{}, other{};
    named.ss_family = unnamed.ss_family = AF_UNIX, other.ss_family = AF_PACKET;
    strcpy(reinterpret_cast<sockaddr_un *>(&named)->sun_path, "/run/x.sock");
    EXPECT_EQ(text_of(fake::ipv4("127.0.0.1")) + text_of(named) + text_of(unnamed) + text_of(other),
              "127.0.0.1/run/x.sock(no pathname bound)sock_ntop: unknown AF_xxx: 17, len 128");
}

// A handle on one end of a pair; its writes are recorded.
class Writer : public testing::Test {
protected:
    void SetUp() override { u_->socket = interpose::watch_write_fd = p_.fd[0]; }
    void TearDown() override { u_->socket = -1, http_free_util(u_); }
    Pair p_;
    http_util *u_ = http_create_util();
};

TEST_F(Writer, AHeadLeavesInOneWriteWithoutItsLineFeeds) {
    const char *lines[][2] = {{"GET /a HTTP/1.1", nullptr}, {"Host", "v"}, {"X", "a\nb\rc\n"}, {"Na\nme", ""},
                              {"X", "\n\n"}, {nullptr, "ignored"}};
    for (const auto &l : lines) EXPECT_EQ(http_post_header(u_, l[0], l[1]), 0);
    EXPECT_TRUE(interpose::writes.empty()) << "a head waits for the flush";
    EXPECT_EQ(http_flush(u_), 0);
    const std::string head = "GET /a HTTP/1.1\r\nHost: v\r\nX: ab\rc\r\nName: \r\nX: \r\n\r\n";
    EXPECT_EQ(interpose::writes, std::vector<size_t>{head.size()});
    EXPECT_EQ(p_.take(), head);
    EXPECT_EQ(http_flush(u_), 0);
    EXPECT_EQ(interpose::writes.size(), 1u) << "an empty buffer is not written";
}

TEST_F(Writer, FullBlocksLeaveAtOnce) {
    const std::vector<int> rows[] = {  // bytes already held, bytes of one more line, the writes that line makes
        {1000, 30, 1024}, {1000, 24, 1024}, {0, 1023}, {0, 1024, 1024}, {0, 3000, 1024, 1024}, {1000, 3000, 1024, 1024, 1024}};
    for (const auto &r : rows) {
        std::string wire;
        auto line = [&](int n) {  // n bytes, CR LF included
            std::string text;
            for (int i = 0; i + 2 < n; ++i) text += static_cast<char>('a' + (wire.size() + i) % 26);
            wire += n ? text + "\r\n" : "";
            return n ? http_post_header(u_, text.c_str(), nullptr) : 0;
        };
        ASSERT_EQ(line(r[0]), 0);
        interpose::writes.clear();
        EXPECT_EQ(line(r[1]), 0);
        EXPECT_EQ(interpose::writes, std::vector<size_t>(r.begin() + 2, r.end())) << r[0] << " + " << r[1];
        EXPECT_EQ(http_flush(u_), 0);
        EXPECT_EQ(p_.take(), wire);
    }
}

TEST_F(Writer, AFailedWriteFailsTheCallAndDropsTheBytes) {
    u_->socket = -1;
    EXPECT_EQ(http_post_header(u_, "Host", "v"), 0);
    EXPECT_EQ(http_flush(u_), -1);
    EXPECT_EQ(http_flush(u_), 0) << "dropped bytes are never resent";
    EXPECT_EQ(http_post_header(u_, std::string(1013, 'x').c_str(), nullptr), 0);
    EXPECT_EQ(http_post_header(u_, "Host", "value"), -1) << "the value fills the buffer";
    EXPECT_EQ(http_post_header(u_, std::string(1020, 'x').c_str(), nullptr), 0);
    EXPECT_EQ(http_post_header(u_, nullptr, nullptr), -1) << "the end of the head fills it";
    u_->flags = 0;
    EXPECT_EQ(http_post_header(u_, "Host", "v"), -1);
    u_->socket = p_.fd[0];
    EXPECT_EQ(http_post_header(u_, "Host", "v\nw"), 0);
    EXPECT_EQ(interpose::writes, (std::vector<size_t>{4, 2, 1, 1, 2})) << "unbuffered pieces leave as they come";
    EXPECT_EQ(p_.take(), "Host: vw\r\n");
}

TEST(RawIoSlow, TimeLimitsOfAReadAndOfAWriteToAPeerThatNeverReads) {
    Pair p;
    char buf[4];
    std::vector<char> big(4 << 20);
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(http_util_fd_read(p.fd[0], buf, sizeof buf, 1), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    const auto t1 = std::chrono::steady_clock::now();
    EXPECT_EQ(http_util_fd_write(p.fd[0], big.data(), static_cast<int>(big.size()), 30), -1);
    const auto t2 = std::chrono::steady_clock::now();
    EXPECT_NEAR(std::chrono::duration<double>(t1 - t0).count(), 1.3, 0.35);
    EXPECT_NEAR(std::chrono::duration<double>(t2 - t1).count(), 5.6, 0.7) << "five one-second waits";
}

}  // namespace
