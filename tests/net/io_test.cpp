// Readiness wait and raw descriptor I/O: time limits, partial writes, the
// log records of a failed wait, and the address texts of log records.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "net/io.h"
#include "net_test_util.h"

namespace {

using http_util_internal::http_select_fd;
using http_util_internal::kWaitRead;
using http_util_internal::kWaitWrite;
using nettest::records;
using nettest::seconds_since;
using Clock = std::chrono::steady_clock;

// A non-blocking stream pair with small buffers, so that a peer that
// never reads fills it quickly.
struct Pair {
    int fd[2] = {-1, -1};
    Pair() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fd), 0);
        int size = 4096;
        setsockopt(fd[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        setsockopt(fd[1], SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    }
    ~Pair() {
        if (fd[0] >= 0) close(fd[0]);
        if (fd[1] >= 0) close(fd[1]);
    }
    void fill() {
        char block[4096] = {};
        while (write(fd[0], block, sizeof block) > 0) {
        }
    }
};

// A descriptor number that is certainly not open.
int closed_fd() {
    int fd = dup(0);
    close(fd);
    return fd;
}


TEST(RawIo, WriteOfNothingTouchesNoDescriptor) {
    EXPECT_EQ(http_util_fd_write(closed_fd(), "x", 0, 5), 0);
    EXPECT_EQ(http_util_fd_write(-1, "x", 0, 5), -1);
    EXPECT_EQ(http_util_fd_write(-1, "x", 1, 5), -1);
}

// SIGPIPE stays at its default: the write fails instead of killing us.
TEST(RawIo, WriteToAClosedPeerFails) {
    Pair p;
    close(p.fd[1]);
    p.fd[1] = -1;
    EXPECT_EQ(http_util_fd_write(p.fd[0], "x", 1, 5), -1);
    EXPECT_EQ(errno, EPIPE);
}

TEST(RawIo, NonblockingWriteMayTakeFewerBytes) {
    Pair p;
    std::vector<char> big(1 << 20);
    int n = http_util_fd_write_nonblock(p.fd[0], big.data(), static_cast<unsigned>(big.size()), 1);
    EXPECT_GT(n, 0);
    EXPECT_LT(n, static_cast<int>(big.size()));
}

TEST(RawIo, ReadReturnsWhatIsThereAndZeroAfterClose) {
    Pair p;
    ASSERT_EQ(write(p.fd[1], "abc", 3), 3);
    char buf[16];
    EXPECT_EQ(http_util_fd_read(p.fd[0], buf, sizeof buf, 1), 3);
    close(p.fd[1]);
    p.fd[1] = -1;
    EXPECT_EQ(http_util_fd_read(p.fd[0], buf, sizeof buf, 1), 0);
}

// Regression: a shared helper logged the failed wait under its own name.
TEST(RawIo, FailedWaitIsLoggedUnderTheCalledFunction) {
    int fd = closed_fd();
    char buf[4];
    EXPECT_EQ(http_util_fd_read(fd, buf, sizeof buf, 1), -1);
    EXPECT_EQ(http_util_fd_write_nonblock(fd, "x", 1, 1), -1);
    std::string ctl = "epoll add ctl fail, fd " + std::to_string(fd) + ".";
    std::vector<nettest::Record> want = {{"http_select_fd", ctl},
                                         {"http_util_fd_read", "select failed, return: -1"},
                                         {"http_select_fd", ctl},
                                         {"http_util_fd_write_nonblock", "select failed, return: -1"}};
    EXPECT_EQ(records(), want);
}

TEST(RawIo, SelectReportsReadinessAtOnce) {
    Pair p;
    auto t0 = Clock::now();
    EXPECT_GT(http_select_fd(p.fd[0], 3, kWaitWrite), 0);
    ASSERT_EQ(write(p.fd[1], "x", 1), 1);
    EXPECT_GT(http_select_fd(p.fd[0], 3, kWaitRead), 0);
    EXPECT_LT(seconds_since(t0), 0.5);
    EXPECT_EQ(http_select_fd(-1, 3, kWaitRead), -1);
    EXPECT_TRUE(fake::logged("epoll add ctl fail, fd -1."));
}

// ---- waits that last by design ----


struct Limit {
    int given;
    int waits;  // seconds
};

void PrintTo(const Limit &l, std::ostream *os) { *os << l.given << " s"; }

class RawIoSlowSelect : public testing::TestWithParam<Limit> {};

TEST_P(RawIoSlowSelect, WaitsItsLimit) {
    Pair p;
    auto t0 = Clock::now();
    EXPECT_EQ(http_select_fd(p.fd[0], GetParam().given, kWaitRead), 0);
    double s = seconds_since(t0);
    EXPECT_GE(s, GetParam().waits - 0.05);
    EXPECT_LT(s, GetParam().waits + 0.8);
}

// No limit (0) means five seconds.
INSTANTIATE_TEST_SUITE_P(Seconds, RawIoSlowSelect, testing::Values(Limit{0, 5}, Limit{3, 3}),
                         [](const testing::TestParamInfo<Limit> &info) {
                             return "given_" + std::to_string(info.param.given);
                         });

TEST(RawIoSlow, WriteGivesUpAfterFiveWaitsWhenThePeerNeverReads) {
    Pair p;
    std::vector<char> big(4 << 20);
    auto t0 = Clock::now();
    EXPECT_EQ(http_util_fd_write(p.fd[0], big.data(), static_cast<int>(big.size()), 30), -1);
    double s = seconds_since(t0);
    EXPECT_GE(s, 4.9);
    EXPECT_LT(s, 6.5);
}

TEST(RawIoSlow, ReadOfASilentSocketTimesOut) {
    Pair p;
    char buf[4];
    auto t0 = Clock::now();
    errno = 0;
    EXPECT_EQ(http_util_fd_read(p.fd[0], buf, sizeof buf, 1), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    double s = seconds_since(t0);
    EXPECT_GE(s, 0.95);
    EXPECT_LT(s, 1.8);
    EXPECT_EQ(fake::log_texts("http_util_fd_read"),
              std::vector<std::string>{"select failed, return: 0"});
}

TEST(RawIoSlow, NonblockingWriteToAFullSocketTimesOut) {
    Pair p;
    p.fill();
    errno = 0;
    EXPECT_EQ(http_util_fd_write_nonblock(p.fd[0], "x", 1, 1), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(fake::log_texts("http_util_fd_write_nonblock"),
              std::vector<std::string>{"select failed, return: 0"});
}

// ---- address texts ----

sockaddr_storage unix_address(const char *path) {
    sockaddr_storage ss{};
    auto *sun = reinterpret_cast<sockaddr_un *>(&ss);
    sun->sun_family = AF_UNIX;
    snprintf(sun->sun_path, sizeof sun->sun_path, "%s", path);
    return ss;
}

sockaddr_storage other_family(int family) {
    sockaddr_storage ss{};
    ss.ss_family = static_cast<sa_family_t>(family);
    return ss;
}

struct NtopCase {
    const char *name;
    sockaddr_storage addr;
    int len;
    const char *text;
};

TEST(SockNtop, EveryFamilyHasItsText) {
    const NtopCase cases[] = {
        {"ipv4 with port", fake::ipv4("127.0.0.1", 80), 16, "127.0.0.1 80"},
        {"ipv4 without port", fake::ipv4("127.0.0.1"), 16, "127.0.0.1"},
        {"ipv6 with port", fake::ipv6("::1", 81), 28, "::1 81"},
        {"ipv6 without port", fake::ipv6("fe80::1"), 28, "fe80::1"},
        {"unix path", unix_address("/run/x.sock"), 110, "/run/x.sock"},
        {"unix unnamed", unix_address(""), 2, "(no pathname bound)"},
        {"other family", other_family(AF_PACKET), 20, "sock_ntop: unknown AF_xxx: 17, len 20"},
    };
    for (const auto &c : cases)
        EXPECT_STREQ(http_sock_ntop(reinterpret_cast<const sockaddr *>(&c.addr), c.len), c.text)
            << c.name;
}

}  // namespace
