// The chunked body reader and its size lines.
#include <chrono>

#include "body_support.h"
#include "http/response.h"
#include "wire.h"

namespace {

using body::BodyTest;
using body::pattern;

class ChunkedBody : public BodyTest {
protected:
    int read_body(scripted::Server &srv, uint32_t skip = 0, http_url_param *url = nullptr) {
        return run(srv, [&](int fd) {
            return http_fd_read_body_chunked(url, fd, file_, &caller_.ref, skip);
        });
    }
    // Sends reply whole and holds the connection open until the reader returns.
    int read_reply(const std::string &reply, uint32_t skip = 0) {
        fclose(file_);
        file_ = tmpfile();
        done_ = false;
        if (fd_ >= 0) close(fd_);
        fake::reset();
        caller_.counts.clear();
        scripted::Server srv;
        srv.send(reply).wait_until(reader_done());
        return read_body(srv, skip);
    }
};

TEST_F(ChunkedBody, DeliversTheDataAndLeavesTheLastCrLf) {
    EXPECT_EQ(read_reply("5\r\nhello\r\n0\r\n\r\nNEXT BYTES"), HTTP_UTIL_OK);
    EXPECT_EQ(written(), "hello");
    EXPECT_EQ(wire::next_byte(fd_), '\r');
    EXPECT_EQ(wire::next_byte(fd_), '\n');
    EXPECT_EQ(wire::next_byte(fd_), 'N');
    EXPECT_EQ(fake::log_texts("http_fd_read_body_chunked").back(), "chunked end.");
    EXPECT_EQ(fake::log_texts("http_util_fd_read_chunk_len").front(), "peek chunk: 5\r\nhello\r\n0\r\n\r\nNEXT ")
        << "20 bytes peeked";
}

TEST_F(ChunkedBody, ReadsEverySpellingOfASizeLine) {
    for (const char *size : {"a", "A", "0a", "a;name=value", "A ; x", "0xa", "0XA", "  a", "+a",
                             "000000000000000a"}) {
        SCOPED_TRACE(size);
        // As the first chunk and as a later one.
        std::string reply = std::string(size) + "\r\n0123456789\r\n" + size + "\r\n9876543210\r\n0\r\n";
        EXPECT_EQ(read_reply(reply), HTTP_UTIL_OK);
        EXPECT_EQ(written(), "01234567899876543210");
    }
}

TEST_F(ChunkedBody, DeliversALargeChunkInBlocksOf1023) {
    caller_.count_progress();
    const std::string data = pattern(3000);
    EXPECT_EQ(read_reply("bb8\r\n" + data + "\r\n0\r\n\r\n"), HTTP_UTIL_OK);
    EXPECT_EQ(written(), data);
    EXPECT_EQ(caller_.counts, (std::vector<uint32_t>{1023, 1023, 954}));
}

struct SizeLineCase {
    const char *what;
    std::string reply;
    int result;
    const char *message;  // the last record of the size-line step
};

const SizeLineCase kSizeLineCases[] = {
    {"18 characters at the first chunk", std::string(17, '0') + "5\r\nhello\r\n0\r\n", 0, "chunked end."},
    {"19 characters at the first chunk", std::string(18, '0') + "5\r\nhello\r\n0\r\n", 25, "wrong chunk format."},
    {"16 characters at a later chunk", "1\r\nx\r\n" + std::string(15, '0') + "5\r\nhello\r\n0\r\n", 0, "chunked end."},
    {"17 characters at a later chunk", "1\r\nx\r\n" + std::string(16, '0') + "5\r\nhello\r\n0\r\n", 25, "wrong chunk format."},
    {"largest size", "7fffffff\r\nhello", 9, "[http_fd_read_body_chunked]socket closed by peer."},
    {"2^31", "80000000\r\nhello", 25, "wrong chunk length."},
    {"ffffffff", "ffffffff\r\nhello", 25, "wrong chunk length."},
    // Regression: read into 32 bits this size became 0, the end of the body.
    {"2^32 is refused, not taken as the end", "100000000\r\nhello", 25, "wrong chunk length."},
    {"a negative size", "-5\r\nhello", 25, "wrong chunk length."},
    {"no number", "xyz\r\nhello", 25, "scanf chunk length failed."},
    {"an empty size line", "\r\n\r\nhello", 25, "scanf chunk length failed."},
    {"no CR LF", "5\nhello\n0\n\n", 25, "wrong chunk format."},
    {"close before any size line", "", 25, "wrong chunk format."},
    {"close inside the data", "5\r\nhel", 9, "[http_fd_read_body_chunked]socket closed by peer."},
};

TEST_F(ChunkedBody, ChecksEachSizeLine) {
    for (const SizeLineCase &c : kSizeLineCases) {
        SCOPED_TRACE(c.what);
        fclose(file_);
        file_ = tmpfile();
        done_ = false;
        if (fd_ >= 0) close(fd_);
        fake::reset();
        scripted::Server srv;
        srv.send(c.reply).close();
        EXPECT_EQ(read_body(srv), c.result);
        std::vector<std::string> logs;
        for (const auto &r : fake::device().logs)
            if (r.func == "http_util_fd_read_chunk_len" || r.func == "http_fd_read_body_chunked")
                logs.push_back(r.text);
        ASSERT_FALSE(logs.empty());
        EXPECT_EQ(logs.back(), c.message);
    }
}

TEST_F(ChunkedBody, ASizeLinePartlyInTheSocketGives25) {
    // The rest of the size line never comes before the reader returns.
    EXPECT_EQ(read_reply("5\r\nhello\r\n1"), HTTP_UTIL_ERR_RSP_FORMAT);
    EXPECT_EQ(written(), "hello");
    EXPECT_TRUE(fake::logged("wrong chunk format."));
}

TEST_F(ChunkedBody, SkipsLeadingBytesAcrossChunks) {
    EXPECT_EQ(read_reply("4\r\nabcd\r\n8\r\nefghijkl\r\n0\r\n\r\n", 10), HTTP_UTIL_OK);
    EXPECT_EQ(written(), "kl");
}

TEST_F(ChunkedBody, ASinkFailureGives23) {
    caller_.take_data();
    caller_.fail_data_at = 1;
    EXPECT_EQ(read_reply("5\r\nhello\r\n0\r\n\r\n"), HTTP_UTIL_ERR_SAVE_FILE);
    EXPECT_EQ(body::join(caller_.blocks), "hello");
    EXPECT_TRUE(fake::logged("proc data fail"));
}

TEST_F(ChunkedBody, CancellingAfterABlockKeepsThatBlock) {
    caller_.count_progress();
    caller_.cancel_at = 1;
    EXPECT_EQ(read_reply("5\r\nhello\r\n5\r\nworld\r\n0\r\n\r\n"), HTTP_UTIL_ERR_CANCELED);
    EXPECT_EQ(written(), "hello");
    EXPECT_EQ(fake::log_texts("http_fd_read_body_chunked").back(), "cancle by user.");
}

TEST_F(ChunkedBody, AFileErrorGives23) {
    fclose(file_);
    file_ = fopen("/dev/full", "w");
    ASSERT_NE(file_, nullptr);
    scripted::Server srv;
    srv.send("5\r\nhello\r\n0\r\n\r\n").wait_until(reader_done());
    EXPECT_EQ(read_body(srv), HTTP_UTIL_ERR_SAVE_FILE);
    EXPECT_TRUE(fake::logged("write_data fail"));
}

// ---- waits by design ----

class ChunkedBodySlow : public ChunkedBody {};

TEST_F(ChunkedBodySlow, AStalledSizeLineGives9AfterFiveSeconds) {
    scripted::Server srv;
    srv.send("5\r\nhello").wait_until(reader_done());
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(read_body(srv), HTTP_UTIL_ERR_RECV_DATA);
    auto took = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(took, std::chrono::milliseconds(4900));
    EXPECT_LE(took, std::chrono::milliseconds(6500));
    EXPECT_EQ(written(), "hello");
    EXPECT_EQ(fake::log_texts("http_util_fd_read_chunk_len").back(),
              "peek chunk length failed(Connection timed out).");
}

TEST_F(ChunkedBodySlow, APauseInsideTheDataIsSatOut) {
    caller_.count_progress();
    scripted::Server srv;
    srv.send("a\r\n01234").pause(std::chrono::milliseconds(2500)).send("56789\r\n0\r\n\r\n");
    EXPECT_EQ(read_body(srv), HTTP_UTIL_OK);
    EXPECT_EQ(written(), "0123456789");
    ASSERT_GE(caller_.counts.size(), 3u);
    EXPECT_EQ(caller_.counts.front(), 5u);
    EXPECT_EQ(caller_.counts.back(), 5u);
    for (size_t i = 1; i + 1 < caller_.counts.size(); ++i)
        EXPECT_EQ(caller_.counts[i], 0u) << "a time-out reports 0";
}

}  // namespace
