// The transfer handle, its response reset and the random source.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <set>

#include "frame/handle.h"
#include "http_util.h"
#include "interpose.h"

namespace {

bool all_zero(const void *p, size_t n) {
    const auto *b = static_cast<const unsigned char *>(p);
    for (size_t i = 0; i < n; ++i)
        if (b[i] != 0) return false;
    return true;
}

TEST(Handle, NewHandleHasItsDefaults) {
    http_util *u = http_create_util();
    ASSERT_NE(u, nullptr);
    EXPECT_EQ(u->socket, -1);
    EXPECT_EQ(u->send_len, 0);
    EXPECT_EQ(u->flags, 1u);
    EXPECT_EQ(u->timeout, 5);
    EXPECT_EQ(u->last_err, 0);
    EXPECT_TRUE(all_zero(u->send_buf, sizeof u->send_buf));
    EXPECT_TRUE(all_zero(u->work_buf, sizeof u->work_buf));
    EXPECT_TRUE(all_zero(&u->rsp, sizeof u->rsp));
    http_free_util(u);
}

TEST(Handle, FreeNullDoesNothing) { http_free_util(nullptr); }

TEST(Handle, FreeClosesTheSocket) {
    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    http_util *u = http_create_util();
    ASSERT_NE(u, nullptr);
    u->socket = sv[0];
    http_free_util(u);
    EXPECT_EQ(fcntl(sv[0], F_GETFD), -1) << "descriptor still open";
    EXPECT_EQ(errno, EBADF);
    char c;
    EXPECT_EQ(read(sv[1], &c, 1), 0) << "peer does not see the close";
    close(sv[1]);
}

TEST(Handle, FreeWithoutSocketClosesNothing) {
    int fd = dup(0);
    ASSERT_GE(fd, 0);
    http_util *u = http_create_util();
    ASSERT_NE(u, nullptr);
    http_free_util(u);
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    close(fd);
}

TEST(ResponseRecord, ResetLeavesNothingOfTheLastResponse) {
    http_rsp rsp;
    memset(&rsp, 0x5a, sizeof rsp);
    http_util_internal::http_rsp_reset(&rsp);
    EXPECT_EQ(rsp.content_len, -1);
    EXPECT_EQ(rsp.mtime, -1);
    http_rsp expected;
    memset(&expected, 0, sizeof expected);
    expected.content_len = -1;
    expected.mtime = -1;
    EXPECT_EQ(memcmp(&rsp, &expected, sizeof rsp), 0);
}

class RandomTest : public testing::Test {
protected:
    void TearDown() override { interpose::reset(); }
};

TEST_F(RandomTest, StaysBelowItsBound) {
    for (int i = 0; i < 200; ++i) EXPECT_EQ(random_number(1), 0u);
    std::set<uint32_t> seen;
    for (int i = 0; i < 2000; ++i) {
        uint32_t v = random_number(62);
        ASSERT_LT(v, 62u);
        seen.insert(v);
    }
    EXPECT_GT(seen.size(), 50u) << "draws should spread over the range";
    for (int i = 0; i < 200; ++i) EXPECT_LT(random_number(10000), 10000u);
}

TEST_F(RandomTest, FallsBackToTheClockWithoutTheRandomDevice) {
    interpose::fail_open_path = "/dev/urandom";
    std::set<uint32_t> seen;
    for (int i = 0; i < 200; ++i) {
        uint32_t v = random_number(62);
        ASSERT_LT(v, 62u);
        seen.insert(v);
    }
    EXPECT_EQ(interpose::open_failures, 200) << "every draw opens the device anew";
    EXPECT_GT(seen.size(), 1u) << "the clock fallback should still vary";
}

}  // namespace
