// The device services as emulated on a stock Linux host.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "http_util_host.h"
#include "platform/device.h"

namespace {

using Clock = std::chrono::steady_clock;

TEST(HostResolver, LocalhostAnswersIPv4First) {
    unsigned char result[DNS_RESULT_SIZE];
    memset(result, 0xee, sizeof result);
    dns_time_limit limit = {5, 0};
    ASSERT_GE(dns_domain_to_ip_block_oob("localhost", 0, result, &limit, 0), 0);
    uint16_t family;
    memcpy(&family, result, sizeof family);
    ASSERT_EQ(family, AF_INET);
    char text[INET_ADDRSTRLEN];
    ASSERT_NE(inet_ntop(AF_INET, result + 4, text, sizeof text), nullptr);
    EXPECT_EQ(std::string(text), "127.0.0.1");
    EXPECT_EQ(result[DNS_RESULT_SIZE - 1], 0) << "the rest of the area is cleared";
}

TEST(HostResolver, UnknownNameFailsWithinItsTimeLimit) {
    unsigned char result[DNS_RESULT_SIZE];
    dns_time_limit limit = {1, 500000};
    auto t0 = Clock::now();
    EXPECT_LT(dns_domain_to_ip_block_oob("no-such-host.invalid", 0, result, &limit, 0), 0);
    auto elapsed = Clock::now() - t0;
    EXPECT_LT(elapsed, std::chrono::milliseconds(2500)) << "the time limit was not honoured";
}

// A limit is seconds plus microseconds, and the microseconds may exceed a
// second: they must carry into the deadline, not make it invalid.
TEST(HostResolver, MicrosecondsPastASecondAreCarried) {
    dns_time_limit limits[] = {{0, 3000000}, {1, 999999}, {0, 2147483647}};
    for (dns_time_limit &limit : limits) {
        unsigned char result[DNS_RESULT_SIZE];
        EXPECT_GE(dns_domain_to_ip_block_oob("localhost", 0, result, &limit, 0), 0)
            << limit.sec << " s " << limit.usec << " us";
    }
    unsigned char result[DNS_RESULT_SIZE];
    EXPECT_GE(dns_domain_to_ip_block_oob("localhost", 0, result, nullptr, 0), 0)
        << "no limit: the default one";
}

// With no time at all the caller leaves at once; the lookup thread then
// finishes alone and frees the shared state (the sanitizer build checks).
TEST(HostResolver, CallerGivingUpLeavesTheLookupToItsThread) {
    for (int i = 0; i < 20; ++i) {
        unsigned char result[DNS_RESULT_SIZE];
        dns_time_limit limit = {0, 0};
        auto t0 = Clock::now();
        (void)dns_domain_to_ip_block_oob("localhost", 0, result, &limit, 0);
        EXPECT_LT(Clock::now() - t0, std::chrono::milliseconds(500));
    }
    unsigned char result[DNS_RESULT_SIZE];
    dns_time_limit limit = {5, 0};
    EXPECT_GE(dns_domain_to_ip_block_oob("localhost", 0, result, &limit, 0), 0);
}

TEST(HostResolver, ManagementFlagStillResolves) {
    unsigned char result[DNS_RESULT_SIZE];
    dns_time_limit limit = {5, 0};
    EXPECT_GE(dns_domain_to_ip_block_oob("localhost", 0, result, &limit, 1), 0);
}

TEST(HostNameCheck, FollowsRfc1123) {
    struct Case {
        const char *name;
        int ok;
    } cases[] = {
        {"localhost", 1}, {"a", 1}, {"files.example.com", 1}, {"3com.net", 1},
        {"host-1.lan", 1}, {"example.com.", 1}, {"", 0}, {"-lead.example", 0},
        {"trail-.example", 0}, {"a..b", 0}, {".a", 0}, {"under_score", 0},
        {"sp ace", 0}, {"caf\xc3\xa9", 0},
    };
    for (const auto &c : cases) EXPECT_EQ(hostname_verify(c.name) != 0, c.ok != 0) << c.name;
    EXPECT_NE(hostname_verify(std::string(63, 'a').c_str()), 0);
    EXPECT_EQ(hostname_verify(std::string(64, 'a').c_str()), 0);
    std::string long_name;
    for (int i = 0; i < 64; ++i) long_name += "abc.";
    EXPECT_EQ(hostname_verify(long_name.c_str()), 0) << "over 253 characters";
    EXPECT_EQ(hostname_verify(nullptr), 0);
}

TEST(HostInterfaces, LoopbackIsInTheDefaultDomain) {
    int lo = lsm_if_get_index_by_name("lo");
    EXPECT_EQ(lo, static_cast<int>(if_nametoindex("lo")));
    EXPECT_GT(lo, 0);
    EXPECT_EQ(lsm_if_get_vrf(lo), 0);
    EXPECT_EQ(lsm_if_get_index_by_name("no-such-if0"), 0);
    EXPECT_LT(lsm_if_get_vrf(999999), 0);
    EXPECT_LT(lsm_vrf_name2index("lo"), 0) << "lo is no VRF";
    EXPECT_LT(lsm_vrf_name2index("___Mgmt_oob"), 0);
}

TEST(HostClock, CalendarTime) {
    time_t before = time(nullptr);
    time_t now = qz_time_get(2);
    EXPECT_GE(now, before);
    EXPECT_LE(now, time(nullptr));
}

TEST(HostTerminal, PrintGoesToTheChosenStream) {
    char buf[64] = "";
    FILE *mem = fmemopen(buf, sizeof buf, "w");
    ASSERT_NE(mem, nullptr);
    http_util_host_set_terminal_output(mem);
    cli_printf("Press Ctrl+C to quit\n");
    cli_printf("!");
    cli_flush();
    http_util_host_set_terminal_output(nullptr);
    fclose(mem);
    EXPECT_STREQ(buf, "Press Ctrl+C to quit\n!");
}

// Without a controlling terminal nothing is ever typed, and the poll does
// not wait.
TEST(HostTerminalDeathTest, NoTerminalMeansNothingTyped) {
    EXPECT_EXIT(
        {
            if (setsid() < 0) exit(2);
            auto t0 = Clock::now();
            int c = cli_getc_no_block();
            bool quick = Clock::now() - t0 < std::chrono::milliseconds(100);
            http_util_host_terminal_restore();
            exit(c == -1 && quick ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(HostLog, RecordsGoToTheChosenFile) {
    char path[] = "/tmp/http_util_host_logXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    ASSERT_EQ(http_util_host_set_log(path), 0);
    void *cat = qz_zlog_init("http_util");
    ASSERT_NE(cat, nullptr);
    std::string seen;  // the hook sees each record as well
    http_util_host_set_log_hook(
        [](void *ctx, const char *func, const char *text) {
            *static_cast<std::string *>(ctx) += std::string(func) + ": " + text;
        },
        &seen);
    qzdf_zlog(cat, "http_util", 9, "http_select_fd_and_more", 14, 12, 20, "%s",
              "epoll fd create fail.");
    http_util_host_set_log_hook(nullptr, nullptr);
    EXPECT_EQ(seen, "http_select_fd: epoll fd create fail.");
    ASSERT_EQ(http_util_host_set_log(nullptr), 0);
    FILE *f = fopen(path, "r");
    ASSERT_NE(f, nullptr);
    char line[512] = "";
    ASSERT_NE(fgets(line, sizeof line, f), nullptr);
    fclose(f);
    unlink(path);
    EXPECT_NE(strstr(line, "http_util"), nullptr) << line;
    EXPECT_NE(strstr(line, "http_select_fd:12 epoll fd create fail.\n"), nullptr) << line;
    EXPECT_EQ(http_util_host_set_log("/nonexistent-dir/x.log"), -1);
    http_util_host_set_log(nullptr);
}

TEST(HostFormat, BoundedLikeSnprintf) {
    char buf[8];
    EXPECT_EQ(at_snprintf(buf, sizeof buf, "%s", "0123456789"), 10);
    EXPECT_STREQ(buf, "0123456");
}

}  // namespace
