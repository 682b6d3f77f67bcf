// The request writer: head lines into the send buffer, 1024-byte blocks
// out of it, LF removed, buffering off, and a head on the wire.
#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "interpose.h"
#include "net/request_writer.h"
#include "net_test_util.h"
#include "scripted_server.h"

namespace {

using http_util_internal::http_buffered_send;

// A handle on one end of a socket pair; the writes to it are recorded.
class Writer : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, sv_), 0);
        util_ = http_create_util();
        ASSERT_NE(util_, nullptr);
        util_->socket = sv_[0];
        interpose::watch_write_fd = sv_[0];
    }
    void TearDown() override {
        http_free_util(util_);
        close(sv_[1]);
    }
    std::string buffered() const { return std::string(util_->send_buf, util_->send_len); }
    std::string received() {
        std::string out;
        char buf[4096];
        ssize_t n;
        while ((n = read(sv_[1], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
        return out;
    }
    http_util *util_ = nullptr;
    int sv_[2] = {-1, -1};
};

struct Line {
    const char *name;
    const char *value;
    const char *bytes;
};

TEST_F(Writer, HeadLinesStayInTheBuffer) {
    const Line cases[] = {
        {"Host", "v", "Host: v\r\n"},
        {nullptr, nullptr, "\r\n"},
        {nullptr, "ignored", "\r\n"},
        {"GET /a.bin HTTP/1.1", nullptr, "GET /a.bin HTTP/1.1\r\n"},
        {"X", "a\nb\rc\n", "X: ab\rc\r\n"},
        {"Na\nme", "", "Name: \r\n"},
        {"X", "\n\n", "X: \r\n"},
    };
    for (const auto &c : cases) {
        util_->send_len = 0;
        EXPECT_EQ(http_post_header(util_, c.name, c.value), 0);
        EXPECT_EQ(buffered(), c.bytes) << (c.name ? c.name : "(null)");
    }
    EXPECT_TRUE(interpose::writes.empty());
}

struct Fill {
    int before;  // bytes already buffered
    int count;   // bytes of one send
    std::vector<size_t> writes;
    int left;
};

TEST_F(Writer, FullBlocksLeaveAtOnce) {
    const Fill cases[] = {
        {1000, 30, {1024}, 6},
        {1000, 24, {1024}, 0},
        {0, 1023, {}, 1023},
        {0, 1024, {1024}, 0},
        {0, 3000, {1024, 1024}, 952},
        {1000, 3000, {1024, 1024, 1024}, 928},
    };
    for (const auto &c : cases) {
        std::string all;
        for (int i = 0; i < c.before + c.count; ++i) all += static_cast<char>('a' + i % 26);
        util_->send_len = 0;
        ASSERT_EQ(http_buffered_send(util_, all.data(), c.before), 0);
        interpose::writes.clear();
        EXPECT_EQ(http_buffered_send(util_, all.data() + c.before, c.count), 0);
        std::string ctx = std::to_string(c.before) + " + " + std::to_string(c.count);
        EXPECT_EQ(interpose::writes, c.writes) << ctx;
        EXPECT_EQ(util_->send_len, c.left) << ctx;
        size_t sent = all.size() - static_cast<size_t>(c.left);
        EXPECT_EQ(received(), all.substr(0, sent)) << ctx;
        EXPECT_EQ(buffered(), all.substr(sent)) << ctx;
    }
}

TEST_F(Writer, FlushOfAnEmptyBufferMakesNoSystemCall) {
    close(sv_[0]);  // any write would now fail
    interpose::watch_write_fd = sv_[0];
    EXPECT_EQ(http_flush(util_), 0);
    EXPECT_TRUE(interpose::writes.empty());
    util_->socket = -1;
}

TEST_F(Writer, FlushWritesEverythingOnce) {
    ASSERT_EQ(http_post_header(util_, "GET / HTTP/1.1", nullptr), 0);
    ASSERT_EQ(http_post_header(util_, "Host", "127.0.0.1"), 0);
    ASSERT_EQ(http_post_header(util_, nullptr, nullptr), 0);
    EXPECT_EQ(http_flush(util_), 0);
    EXPECT_EQ(interpose::writes, std::vector<size_t>{35});
    EXPECT_EQ(received(), "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    EXPECT_EQ(util_->send_len, 0);
}

TEST_F(Writer, FailedWriteIsReportedAndDropsTheBytes) {
    close(sv_[0]);  // the handle no longer owns it
    util_->socket = -1;
    ASSERT_EQ(http_post_header(util_, "Host", "v"), 0);
    EXPECT_EQ(http_flush(util_), -1);
    EXPECT_EQ(util_->send_len, 0);

    // A failure in the middle of a line: the value fills the buffer.
    util_->send_len = 1015;
    EXPECT_EQ(http_post_header(util_, "Host", "value"), -1);
    EXPECT_EQ(util_->last_err, -1);
    util_->send_len = 1023;
    EXPECT_EQ(http_post_header(util_, nullptr, nullptr), -1) << "the end of the head fills it";
}

TEST_F(Writer, UnbufferedPiecesGoOutAsTheyCome) {
    util_->flags = 0;
    EXPECT_EQ(http_post_header(util_, "Host", "v\nw"), 0);
    EXPECT_EQ(interpose::writes, (std::vector<size_t>{4, 2, 1, 1, 2}));
    EXPECT_EQ(received(), "Host: vw\r\n");
    EXPECT_EQ(util_->send_len, 0);
    close(sv_[0]);  // the handle no longer owns it
    util_->socket = -1;
    EXPECT_EQ(http_post_header(util_, "Host", "v"), -1);
    EXPECT_EQ(util_->last_err, -1);
}

// ---- on the wire ----


TEST(RequestOnTheWire, HeadArrivesByteForByte) {
    scripted::Server srv;
    srv.read_request().close();
    srv.start();
    sockaddr_storage addr = srv.address();
    http_util *util = http_create_util();
    ASSERT_NE(util, nullptr);
    util->socket = http_create_socket(reinterpret_cast<sockaddr *>(&addr), sizeof addr, 1, 0, 0, "", 0);
    ASSERT_GE(util->socket, 0);
    std::string query(1500, 'q');  // the head crosses a block boundary
    std::string line = "GET /f?" + query + " HTTP/1.1";
    EXPECT_EQ(http_post_header(util, line.c_str(), nullptr), 0);
    EXPECT_EQ(http_post_header(util, "Host", "127.0.0.1"), 0);
    EXPECT_EQ(http_post_header(util, "Range", "bytes=10-"), 0);
    EXPECT_EQ(http_post_header(util, nullptr, nullptr), 0);
    EXPECT_EQ(http_flush(util), 0);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.request(), line + "\r\nHost: 127.0.0.1\r\nRange: bytes=10-\r\n\r\n");
    http_free_util(util);
}

}  // namespace
