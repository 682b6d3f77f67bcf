// The chunked body reader and its size lines.
#include <chrono>

#include "body_support.h"
#include "wire.h"

namespace {

using body::pattern;

class ChunkedBody : public body::BodyTest {
protected:
    int read_body(uint32_t skip = 0) {
        return run([&](int fd) { return http_fd_read_body_chunked(nullptr, fd, file_, &ref_, skip); });
    }
    // Sends reply whole and holds the connection open until the reader returns.
    int read_reply(const std::string &reply, uint32_t skip = 0) {
        server().send(reply).wait_until(reader_done());
        return read_body(skip);
    }
    // The last record of the size-line step or the reader.
    std::string last_log() {
        std::string last;
        for (const auto &r : fake::device().logs)
            if (r.func == "http_util_fd_read_chunk_len" || r.func == "http_fd_read_body_chunked") last = r.text;
        return last;
    }
};

TEST_F(ChunkedBody, DeliversTheDataAndLeavesTheLastCrLf) {
    EXPECT_EQ(read_reply("5\r\nhello\r\n0\r\n\r\nNEXT BYTES"), HTTP_UTIL_OK);
    EXPECT_EQ(written(), "hello");
    EXPECT_EQ(wire::next_byte(fd_), '\r');
    EXPECT_EQ(wire::next_byte(fd_), '\n');
    EXPECT_EQ(last_log(), "chunked end.");
    EXPECT_EQ(fake::log_texts("http_util_fd_read_chunk_len").front(),
              "peek chunk: 5\r\nhello\r\n0\r\n\r\nNEXT ") << "20 bytes peeked";
}

TEST_F(ChunkedBody, ReadsEverySpellingOfASizeLine) {
    for (const char *size : {"a", "A", "a;name=value", "0xa", "0XA", "  a", "000000000000000a"}) {
        // As the first chunk and as a later one.
        std::string reply = std::string(size) + "\r\n0123456789\r\n" + size + "\r\n9876543210\r\n0\r\n";
        EXPECT_EQ(read_reply(reply), HTTP_UTIL_OK) << size;
        EXPECT_EQ(written(), "01234567899876543210") << size;
    }
}

TEST_F(ChunkedBody, DeliversALargeChunkInBlocksOf1023) {
    count_progress();
    const std::string data = pattern(3000);
    EXPECT_EQ(read_reply("bb8\r\n" + data + "\r\n0\r\n\r\n"), HTTP_UTIL_OK);
    EXPECT_EQ(written(), data);
    EXPECT_EQ(counts_, (std::vector<uint32_t>{1023, 1023, 954}));
}

TEST_F(ChunkedBody, ChecksEachSizeLine) {
    const std::string zeros(253, '0');  // size lines of up to 256 bytes, line end included
    const struct {
        std::string reply;  // sent whole, then the connection is closed
        int result;
        const char *message;
    } cases[] = {
        {zeros + "5\r\nhello\r\n0\r\n", 0, "chunked end."},
        {zeros + "05\r\nhello\r\n0\r\n", 25, "wrong chunk format."},
        {"1\r\nx\r\n" + zeros + "5\r\nhello\r\n0\r\n", 0, "chunked end."},
        {"1\r\nx\r\n" + zeros + "05\r\nhello\r\n0\r\n", 25, "wrong chunk format."},
        {"1\r\nx\r\n" + zeros + "005", 25, "wrong chunk format."},  // too long before it ends
        {"7fffffff\r\nhello", 9, "[http_fd_read_body_chunked]socket closed by peer."},
        {"80000000\r\nhello", 25, "wrong chunk length."},
        // Regression: read into 32 bits this size became 0, the end of the body.
        {"100000000\r\nhello", 25, "wrong chunk length."},
        {"xyz\r\nhello", 25, "scanf chunk length failed."},
        {"5\nhello\n0\n\n", 0, "chunked end."},
        // A close before the size line is whole cuts the body like any other.
        {"", 9, "[http_fd_read_body_chunked]socket closed by peer."},
        {"5\r\nhello\r\n1", 9, "[http_fd_read_body_chunked]socket closed by peer."},
        {"5\r\nhello\r", 9, "[http_fd_read_body_chunked]socket closed by peer."},
        {"5\r\nhel", 9, "[http_fd_read_body_chunked]socket closed by peer."},
    };
    for (const auto &c : cases) {
        server().send(c.reply).close();
        EXPECT_EQ(read_body(), c.result) << c.reply;
        EXPECT_EQ(last_log(), c.message) << c.reply;
    }
}

TEST_F(ChunkedBody, SkipsLeadingBytesAcrossChunks) {
    EXPECT_EQ(read_reply("4\r\nabcd\r\n8\r\nefghijkl\r\n0\r\n\r\n", 10), HTTP_UTIL_OK);
    EXPECT_EQ(written(), "kl");
}

TEST_F(ChunkedBody, CancellingAfterABlockKeepsThatBlock) {
    count_progress(1);
    EXPECT_EQ(read_reply("5\r\nhello\r\n5\r\nworld\r\n0\r\n\r\n"), HTTP_UTIL_ERR_CANCELED);
    EXPECT_EQ(written(), "hello");
    EXPECT_EQ(last_log(), "cancle by user.");
}

class ChunkedBodySlow : public ChunkedBody {};

TEST_F(ChunkedBodySlow, AStalledSizeLineGives9AfterFiveSeconds) {
    server().send("5\r\nhello").wait_until(reader_done());
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(read_body(), HTTP_UTIL_ERR_RECV_DATA);
    auto took = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(took, std::chrono::milliseconds(4900));
    EXPECT_LE(took, std::chrono::milliseconds(6500));
    EXPECT_EQ(written(), "hello");
    EXPECT_EQ(last_log(), "peek chunk length failed(Connection timed out).");
}

}  // namespace
