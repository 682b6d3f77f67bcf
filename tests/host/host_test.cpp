// The device services as emulated on a stock Linux host.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "http_util_host.h"
#include "platform/device.h"

namespace {

using Clock = std::chrono::steady_clock;

// IPv4 first, within the time limit, whose microseconds may pass a second;
// a caller with no time at all leaves at once, and the look-up thread
// finishes alone (the sanitizer build checks that it frees its state).
TEST(HostServices, ResolverAnswersWithinItsTimeLimit) {
    struct Case {
        const char *name;
        dns_time_limit limit;
        int is_mgmt, want_ms;  // the time limit
        bool resolves;
    } cases[] = {{"localhost", {5, 0}, 0, 5000, true}, {"localhost", {0, 3000000}, 1, 3000, true},
                 {"localhost", {1, 999999}, 0, 2000, true}, {"localhost", {0, 2147483647}, 0, 5000, true},
                 {"no-such-host.invalid", {1, 500000}, 0, 2500, false}, {"localhost", {0, 0}, 0, 500, false}};
    for (auto &c : cases) {
        unsigned char result[DNS_RESULT_SIZE];
        memset(result, 0xee, sizeof result);
        const auto t0 = Clock::now();
        const int rc = dns_domain_to_ip_block_oob(c.name, 0, result, &c.limit, c.is_mgmt);
        EXPECT_LT(Clock::now() - t0, std::chrono::milliseconds(c.want_ms)) << c.name << " " << c.limit.usec;
        if (c.limit.sec == 0 && c.limit.usec == 0) continue;  // either answer
        EXPECT_EQ(rc >= 0, c.resolves) << c.name << " " << c.limit.usec;
        if (rc < 0) continue;
        char text[INET_ADDRSTRLEN] = "";
        EXPECT_EQ(result[0] | result[1] << 8, AF_INET);
        EXPECT_STREQ(inet_ntop(AF_INET, result + 4, text, sizeof text), "127.0.0.1");
        EXPECT_EQ(result[DNS_RESULT_SIZE - 1], 0) << "the rest of the area is cleared";
    }
    unsigned char result[DNS_RESULT_SIZE];
    EXPECT_GE(dns_domain_to_ip_block_oob("localhost", 0, result, nullptr, 0), 0) << "no limit: the default";
}

TEST(HostServices, HostNamesFollowRfc1123) {
    std::string over_253;
    for (int i = 0; i < 64; ++i) over_253 += "abc.";
    const std::string ok[] = {"localhost", "a", "files.example.com", "3com.net", "host-1.lan", "example.com.",
                              std::string(63, 'a')};
    const std::string bad[] = {"", "-lead.example", "trail-.example", "a..b", ".a", "under_score", "sp ace",
                               "caf\xc3\xa9", std::string(64, 'a'), over_253};
    for (const auto &name : ok) EXPECT_NE(hostname_verify(name.c_str()), 0) << name;
    for (const auto &name : bad) EXPECT_EQ(hostname_verify(name.c_str()), 0) << name;
    EXPECT_EQ(hostname_verify(nullptr), 0);
}

TEST(HostServices, InterfacesClockAndFormatting) {
    const int lo = lsm_if_get_index_by_name("lo");
    EXPECT_EQ(lo, static_cast<int>(if_nametoindex("lo")));
    EXPECT_EQ(lsm_if_get_vrf(lo), 0) << "loopback is in the default domain";
    EXPECT_EQ(lsm_if_get_index_by_name("no-such-if0"), 0);
    EXPECT_LT(lsm_if_get_vrf(999999), 0);
    EXPECT_LT(lsm_vrf_name2index("lo"), 0) << "lo is no VRF";
    const time_t before = time(nullptr), now = qz_time_get(2);
    EXPECT_TRUE(now >= before && now <= time(nullptr)) << "calendar time";
    char buf[8];
    EXPECT_EQ(at_snprintf(buf, sizeof buf, "%s", "0123456789"), 10);
    EXPECT_STREQ(buf, "0123456");
}

TEST(HostServices, TerminalOutputGoesToTheChosenStream) {
    char buf[64] = "";
    FILE *mem = fmemopen(buf, sizeof buf, "w");
    http_util_host_set_terminal_output(mem);
    cli_printf("Press Ctrl+C to quit\n");
    cli_printf("!");
    cli_flush();
    http_util_host_set_terminal_output(nullptr);
    fclose(mem);
    EXPECT_STREQ(buf, "Press Ctrl+C to quit\n!");
}

// Without a controlling terminal nothing is ever typed, and the poll does not wait.
TEST(HostServicesDeathTest, NoTerminalMeansNothingTyped) {
    EXPECT_EXIT(
        {
            const auto t0 = Clock::now();
            const int c = setsid() < 0 ? 0 : cli_getc_no_block();
            http_util_host_terminal_restore();
            exit(c == -1 && Clock::now() - t0 < std::chrono::milliseconds(100) ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// Records go to the chosen file under the function's name, and to the hook.
TEST(HostServices, LogRecordsGoToTheChosenFile) {
    const std::string path = testing::TempDir() + "http_util_host_test.log";
    ASSERT_EQ(http_util_host_set_log(path.c_str()), 0);
    std::string seen;
    http_util_host_set_log_hook([](void *ctx, const char *func, const char *text) {
        *static_cast<std::string *>(ctx) += std::string(func) + ": " + text;
    }, &seen);
    qzdf_zlog(qz_zlog_init("http_util"), "http_util", 9, "http_select_fd_and_more", 14, 12, 20, "%s",
              "epoll fd create fail.");
    http_util_host_set_log_hook(nullptr, nullptr);
    ASSERT_EQ(http_util_host_set_log(nullptr), 0);
    EXPECT_EQ(seen, "http_select_fd: epoll fd create fail.");
    char line[512] = "";
    FILE *f = fopen(path.c_str(), "r");
    EXPECT_TRUE(f != nullptr && fgets(line, sizeof line, f) != nullptr && fclose(f) == 0);
    unlink(path.c_str());
    EXPECT_TRUE(strstr(line, "http_util") != nullptr && strstr(line, "http_select_fd:12 epoll fd create fail.\n"))
        << line;
    EXPECT_EQ(http_util_host_set_log("/nonexistent-dir/x.log"), -1);
}

}  // namespace
