// The connection layer as callers, servers and the device see it: URLs, TLV blocks, sockets, I/O, request heads.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/un.h>
#include <unistd.h>
#include <chrono>
#include <set>
#include <vector>
#include "fake_device.h"
#include "interpose.h"
#include "net/io.h"
#include "scripted_server.h"
#include "temp_dir.h"

namespace {

std::string text_of(const sockaddr_storage &a) { return http_sock_ntop(reinterpret_cast<const sockaddr *>(&a), 128); }

// Accepted: "host port path filename @address"; refused: the result code and the record logged.
void check_url(const std::string &url, const std::string &want, uint32_t is_mgmt = 0) {
    fake::device().logs.clear();
    int err = 12345;  // written only on failure
    const http_util_param param = {};
    http_url_param *up = http_create_url_param(url.c_str(), &err, &param, is_mgmt, nullptr);
    EXPECT_EQ(up ? std::string(up->host) + " " + std::to_string(up->port) + " " + up->path + " " + up->filename + " @" +
                       text_of(up->ip_addr) + (err == 12345 ? "" : " and a result")
                 : std::to_string(err) + (fake::logged(want.substr(want.find(' ') + 1)) ? want.substr(want.find(' ')) : " -"),
              want) << url.substr(0, 60);
    free(up);
}

TEST(Url, LiteralsAreSplitOrRefused) {
    const std::string a(300, 'a'), ip = "http://127.0.0.1";
    for (const auto &[url, want] : std::initializer_list<std::pair<std::string, std::string>>{
             {"HTTP://127.0.0.1", "127.0.0.1 80 / index.html @127.0.0.1 80"}, {"http://[/a", "29 scan ipv6 address failed"},
             {"http:///127.0.0.1:81/dir/", "127.0.0.1 81 /dir/ index.html @127.0.0.1 81"}, {ip + ":x/a", "29 scan port failed"},
             {ip + ":8080/a/b.bin?x=1", "127.0.0.1 8080 /a/b.bin?x=1 b.bin @127.0.0.1 8080"},
             {ip + ":8080", "127.0.0.1 8080 / index.html @127.0.0.1 8080"},
             {ip + "/a/b.bin?x=/y", "127.0.0.1 80 /a/b.bin?x=/y y @127.0.0.1 80"}, {"http://[::1/a", "29 wrong ipv6 url format"},
             {"http://[FE80::a:1]:81/f", "FE80::a:1 81 /f f @fe80::a:1 81"}, {"http://[::1x]/", "29 wrong ipv6 url format"},
             {ip + ":65616/", "127.0.0.1 65616 / index.html @127.0.0.1 80"},  // the low 16 bits reach the address
             {ip + "/" + a, "127.0.0.1 80 /" + a.substr(0, 254) + " " + a.substr(0, 255) + " @127.0.0.1 80"},
             {"hTTps://127.0.0.1/", "6 Only HTTP protocol is supported! url:hTTps://127.0.0.1/"},
             {ip + "/a\rb", "29 control character 0x0d at 18 in the url"},
             {"http://127.0.0.\x7f/", "29 control character 0x7f at 15 in the url"},
             {"http://" + std::string(256, 'h') + "/f", "29 host too long, 256 characters"}})
        check_url(url, want);
    EXPECT_TRUE(fake::device().resolver_calls.empty() && fake::device().hostname_checks.empty());
}

// Names go through the device's host-name check (here refusing "bad") and resolver, told the management flag.
TEST(UrlOptionalServices, NamesGoThroughTheDeviceResolver) {
    auto &d = fake::device();
    d.dns = {{"files.lan", fake::ipv4("127.0.0.7")}, {"v6only.lan", fake::ipv6("::1")}};
    const std::string no = "3 dns_domain_to_ip_block_oob fail, is_mgmt ";
    for (const auto &[url, is_mgmt, want] : std::initializer_list<std::tuple<std::string, uint32_t, std::string>>{
             {"files.lan:8080/a", 0, "files.lan 8080 /a a @127.0.0.7 8080"}, {"bad.lan/a", 0, "3 http_tcp_gethost 2"},
             {"files.lan/a", 1, "files.lan 80 /a a @127.0.0.7 80"}, {"v6only.lan/a", 0, "3 http_tcp_gethost addr fail"},
             {"unknown.lan/a", 1, no + "1"}, {"300.1.1.1/a", 0, no + "0"}, {std::string(255, 'h') + ":8/f", 0, no + "0"}}) {
        d.hostname_ok = url.find("bad") == std::string::npos, d.resolver_calls.clear();
        check_url("http://" + url, &hostname_verify ? want : "3 http_tcp_gethost 1", is_mgmt);
        for (const auto &call : d.resolver_calls) EXPECT_EQ(call.is_mgmt, static_cast<int>(is_mgmt)) << url;
    }
}

// Options 1002, 1004 at the family's level carry the VRF (0: none); a failure logs and leaves no descriptor.
void check(bool v6, int vrf, int is_mgmt, const char *name, std::set<int> taken, int index, const std::string &failure,
           uint32_t src = 0, int nonblock = 1, int bind_errno = 0, const sockaddr_storage *to = nullptr) {
    auto &d = fake::device();
    d.logs.clear(), d.if_index_calls.clear(), d.vrf_name_calls.clear();
    d.ifindex = {{"mgmt0", 4}, {"mgmt1", 5}, {"mgmt2", 6}}, d.if_vrf = {{5, 9}, {6, 0}};
    scripted::Server srv(v6 ? scripted::Family::IPv6 : scripted::Family::IPv4);
    srv.start();
    interpose::sockopt_pretend_ok = taken, interpose::fail_bind_errno = bind_errno;
    const sockaddr_storage a = to ? *to : srv.address();
    const std::set<std::string> before = files::open_fds();
    const int fd = http_create_socket(reinterpret_cast<const sockaddr *>(&a), 128, nonblock, is_mgmt, src, name, vrf);
    EXPECT_TRUE(failure.empty() ? fd >= 0 : fake::logged(failure) && files::open_fds() == before) << failure;
    EXPECT_TRUE(fd < 0 || ((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0) == (nonblock == 1));
    sockaddr_storage local{};
    socklen_t len = sizeof local;
    getsockname(fd, reinterpret_cast<sockaddr *>(&local), &len);
    EXPECT_TRUE(fd < 0 || !src || text_of(local).rfind(v6 ? "::1 " : "127.0.0.2 ", 0) == 0) << text_of(local);
    std::vector<int> want = {v6 ? 41 : 0, 1002, index, v6 ? 41 : 0, 1004, index}, got;
    want.resize(index == 0 ? 0 : taken.count(1002) ? 6 : 3);
    for (const auto &c : interpose::sockopt_calls())
        if (c.name == 1002 || c.name == 1004) got.insert(got.end(), {c.level, c.name, c.value});
    EXPECT_EQ(got, want) << failure;
    EXPECT_TRUE((vrf <= 0 && is_mgmt) || (d.if_index_calls.empty() && d.vrf_name_calls.empty()));
    interpose::reset(), close(fd);
}

const std::string kVrfRefused = std::string("create_socket-->set vrf option error: ") + strerror(ENOPROTOOPT) + ".";

TEST(Socket, ConnectionsTheirVrfAndFailures) {
    const std::set<int> both = {1002, 1004};
    const uint32_t src = inet_addr("127.0.0.2");
    check(0, 7, 1, "mgmt0", {}, 7, kVrfRefused);  // an explicit VRF wins over the management port
    check(1, 7, 0, "", {}, 7, std::string("create_socket-->set ipv6 vrf option error: ") + strerror(ENOPROTOOPT) + ".");
    check(0, 7, 0, "", both, 7, "", src), check(1, 7, 0, "", both, 7, "", src), check(0, 7, 0, "", {1002}, 7, kVrfRefused);
    check(1, 0, 0, "mgmt1", {}, 0, "", 0, 0), check(0, 0, 1, "mgmt2", {}, 0, ""), check(0, 0, 1, "mgmt1", {}, 9, kVrfRefused);
    check(0, 0, 1, "mgmt0", {}, 0, "create_socket-->lsm_if_get_vrf ifx:4 error");
    check(0, 0, 1, "ghost", {}, 0, "create_socket-->lsm_if_get_index_by_name name:ghost error");
    check(0, 0, 0, "", {}, 0, "HTTP: bind source ip to socket error!, addr: 127.0.0.2 \r\n", src, 1, EADDRNOTAVAIL);
    sockaddr_storage refused = fake::ipv4("127.0.0.1", scripted::unused_port()), odd{};
    check(0, 0, 0, "", {}, 0, "create_socket-->connect errno Connection refused", 0, 1, 0, &refused);
    odd.ss_family = 255;
    check(0, 0, 0, "", {}, 0, std::string("create_socket-->errno:") + strerror(EAFNOSUPPORT), 0, 1, 0, &odd);
}

// The management VRF by name needs the device's VRF service.
TEST(SocketOptionalServices, ManagementVrfByName) {
    for (int answer : {3, 0, -5}) {
        fake::device().mgmt_vrf_index = answer;
        const std::string no = "lsm_vrf_name2index name:___Mgmt_oob error:-5";
        if (&lsm_vrf_name2index) check(0, 0, 1, "", {}, answer > 0 ? answer : 0, answer > 0 ? kVrfRefused : answer ? no : "");
        else check(0, 0, 1, "", {}, 0, "no suport lsm_vrf_name2index");
    }
}

struct Pair {  // a non-blocking stream pair
    int fd[2] = {-1, -1};
    Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fd), 0); }
    ~Pair() { close(fd[0]), close(fd[1]); }
    std::string take() {
        char b[1 << 16];
        return std::string(b, std::max<ssize_t>(read(fd[1], b, sizeof b), 0));
    }
};

TEST(RawIo, ResultsOfEachCallAndAddressTexts) {
    Pair p;
    char buf[16];
    const int gone = dup(0);  // a descriptor that is certainly not open
    close(gone);
    EXPECT_EQ(http_util_fd_write(gone, "x", 0, 5) + http_util_fd_write(-1, "x", 1, 5), -1) << "nothing to write: no call";
    EXPECT_TRUE(http_util_fd_write_nonblock(gone, "x", 1, 1) == -1 && http_util_fd_read(gone, buf, 4, 1) == -1 &&
                errno != ETIMEDOUT) << "a descriptor that cannot be watched is no time-out";
    std::vector<char> big(1 << 22);
    const int n = http_util_fd_write_nonblock(p.fd[0], big.data(), 1u << 22, 1);
    EXPECT_TRUE(n > 0 && n < 1 << 22) << "a non-blocking write takes what fits: " << n;
    for (bool waiting : {false, true}) {  // short reads on the fast path and the waiting one
        const files::NoStdin no_stdin;  // a wait's descriptor may then be 0
        interpose::force_waiting_path = waiting;
        EXPECT_EQ(http_util_fd_write(p.fd[1], "abcde", 5, 5), 0);
        EXPECT_EQ(http_util_internal::fast_read(p.fd[0], buf, 3, 1), 3);
        EXPECT_EQ(http_util_fd_read(p.fd[0], buf, 16, 1), 2);
    }
    EXPECT_EQ((shutdown(p.fd[1], SHUT_RDWR), http_util_fd_read(p.fd[0], buf, sizeof buf, 1)), 0) << "after the close";
    sockaddr_storage named{}, unnamed{}, other{};
    named.ss_family = unnamed.ss_family = AF_UNIX, other.ss_family = AF_PACKET;
    strcpy(reinterpret_cast<sockaddr_un *>(&named)->sun_path, "/run/x.sock");
    EXPECT_EQ(text_of(fake::ipv4("127.0.0.1")) + text_of(named) + text_of(unnamed) + text_of(other),
              "127.0.0.1/run/x.sock(no pathname bound)sock_ntop: unknown AF_xxx: 17, len 128");
}

// Full 1024-byte blocks leave at once, the rest with the flush; failed bytes are dropped; no line feeds leave.
TEST(Writer, BlocksFlushesAndFailures) {
    Pair p;
    http_util *u = http_create_util();
    u->socket = interpose::watch_write_fd = p.fd[0];
    for (const std::vector<int> &r : std::initializer_list<std::vector<int>>{
             {1000, 30, 1024}, {0, 1023}, {0, 3000, 1024, 1024}, {1000, 3000, 1024, 1024, 1024}}) {
        std::string wire;  // lines of r[0] and r[1] bytes, CR LF included; the writes the second makes
        auto line = [&](int n) {
            std::string text;
            for (int i = 0; i + 2 < n; ++i) text += static_cast<char>('a' + (wire.size() + i) % 26);
            return wire += n ? text + "\r\n" : "", n ? http_post_header(u, text.c_str(), nullptr) : 0;
        };
        ASSERT_EQ(line(r[0]), 0);
        interpose::writes.clear();
        EXPECT_EQ(line(r[1]), 0);
        EXPECT_EQ(interpose::writes, std::vector<size_t>(r.begin() + 2, r.end())) << r[0] << " + " << r[1];
        EXPECT_EQ(http_flush(u) + http_flush(u), 0);
        EXPECT_EQ(interpose::writes.size(), r.size() - 2 + (wire.size() % 1024 != 0)) << "nothing left, no write";
        EXPECT_EQ(p.take(), wire);
    }
    u->socket = -1;
    EXPECT_EQ(http_post_header(u, "Host", "v"), 0);
    EXPECT_EQ(http_flush(u), -1);
    EXPECT_EQ(http_flush(u), 0) << "never resent";
    EXPECT_EQ(http_post_header(u, std::string(1013, 'x').c_str(), nullptr), 0);
    EXPECT_EQ(http_post_header(u, "Host", "value"), -1) << "the value fills the buffer";
    u->flags = 0;
    EXPECT_EQ(http_post_header(u, "Host", "v"), -1);
    u->socket = p.fd[0], interpose::writes.clear();
    EXPECT_EQ(http_post_header(u, "Host", "v\nw"), 0);
    EXPECT_EQ(interpose::writes, (std::vector<size_t>{4, 2, 1, 1, 2}));
    EXPECT_EQ(p.take(), "Host: vw\r\n");
    u->socket = -1, http_free_util(u);
}

TEST(RawIoSlow, ABlockingWriteToAPeerThatNeverReadsGivesUpAfterFiveOneSecondWaits) {
    Pair p;
    std::vector<char> big(4 << 20);
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(http_util_fd_write(p.fd[0], big.data(), static_cast<int>(big.size()), 30), -1);
    EXPECT_NEAR(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 5.6, 0.7);
}

}  // namespace
