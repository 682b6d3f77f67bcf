// The device services emulated on a Linux host (the tool's tests see its terminal, log and log hook).
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <chrono>
#include <string>

#include "platform/device.h"

namespace {

using namespace std::chrono;

// IPv4 first, within the time limit, whose microseconds may pass a second; with no time at all the
// caller leaves at once and the look-up thread finishes alone (the sanitizer build checks it frees).
TEST(HostServices, ResolverAnswersWithinItsTimeLimit) {
    struct Case {
        const char *name;
        dns_time_limit limit;
        int is_mgmt, within_ms;
    } cases[] = {{"localhost", {5, 0}, 0, 5000}, {"localhost", {0, 3000000}, 1, 3000},
                 {"localhost", {1, 999999}, 0, 2000}, {"localhost", {0, 2147483647}, 0, 5000},
                 {"no-such-host.invalid", {1, 500000}, 0, 2500}, {"localhost", {0, 0}, 0, 500}};
    for (auto &c : cases) {
        unsigned char result[DNS_RESULT_SIZE] = {0xee};
        char text[INET_ADDRSTRLEN] = "";
        const auto t0 = steady_clock::now();
        const int rc = dns_domain_to_ip_block_oob(c.name, 0, result, &c.limit, c.is_mgmt);
        EXPECT_LT(steady_clock::now() - t0, milliseconds(c.within_ms)) << c.name << " " << c.limit.usec;
        if (c.within_ms == 500) continue;  // either answer
        EXPECT_EQ(rc >= 0, strcmp(c.name, "localhost") == 0) << c.name << " " << c.limit.usec;
        if (rc < 0) continue;
        EXPECT_EQ(result[0] + 256 * result[1], AF_INET);
        EXPECT_STREQ(inet_ntop(AF_INET, result + 4, text, sizeof text), "127.0.0.1");
    }
    unsigned char no_limit_result[DNS_RESULT_SIZE];  // no limit: the default one
    EXPECT_GE(dns_domain_to_ip_block_oob("localhost", 0, no_limit_result, nullptr, 0), 0);
}

TEST(HostServices, HostNamesFollowRfc1123InterfacesAndClock) {
    for (std::string name : {"localhost", "a", "files.example.com", "3com.net", "host-1.lan", "example.com."})
        EXPECT_NE(hostname_verify(name.c_str()), 0) << name;
    for (std::string name : {"", "-lead.example", "trail-.example", "a..b", ".a", "under_score", "sp ace", "\xc3\xa9"})
        EXPECT_EQ(hostname_verify(name.c_str()), 0) << name;
    EXPECT_TRUE(hostname_verify(std::string(63, 'a').c_str()) && !hostname_verify(std::string(64, 'a').c_str()));
    std::string over_253;  // in labels of 63
    for (int i = 0; i < 4; ++i) over_253 += std::string(63, 'a') + (i < 3 ? "." : "");
    EXPECT_TRUE(!hostname_verify(over_253.c_str()) && !hostname_verify(nullptr));
    const int lo = lsm_if_get_index_by_name("lo");
    EXPECT_TRUE(lo == static_cast<int>(if_nametoindex("lo")) && lsm_if_get_vrf(lo) == 0) << "lo, default domain";
    EXPECT_TRUE(lsm_if_get_index_by_name("no-such-if0") == 0 && lsm_if_get_vrf(999999) < 0 && lsm_vrf_name2index("lo") < 0);
    const time_t before = time(nullptr), now = qz_time_get(2);
    EXPECT_TRUE(now >= before && now <= time(nullptr)) << "calendar time";
}

}  // namespace
