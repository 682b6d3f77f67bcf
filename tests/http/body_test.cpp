// The identity body reader and the block writer it shares with the
// chunked reader.
#include <chrono>

#include "body_support.h"
#include "interpose.h"
#include "wire.h"

namespace {

using body::pattern;

class IdentityBody : public body::BodyTest {
protected:
    int read_body(int32_t toread, uint32_t skip = 0, FILE *out = nullptr) {
        return run([&](int fd) {
            return http_fd_read_body(nullptr, fd, out ? out : file_, &ref_, toread, skip);
        });
    }
};

TEST_F(IdentityBody, ReadsTheLengthInBlocksAndLeavesTheRest) {
    count_progress();
    const std::string data = pattern(2500);
    server().send(data + "NEXT").wait_until(reader_done());
    EXPECT_EQ(read_body(2500), HTTP_UTIL_OK);
    EXPECT_EQ(written(), data);
    EXPECT_EQ(counts_, (std::vector<uint32_t>{1024, 1024, 452}));
    EXPECT_EQ(record_.done, 2500u);
    EXPECT_EQ(wire::next_byte(fd_), 'N') << "nothing past the length is read";

    server().send("NEXT").wait_until(reader_done());
    EXPECT_EQ(read_body(0), HTTP_UTIL_OK);
    EXPECT_EQ(wire::next_byte(fd_), 'N') << "a length of 0 reads nothing";
}

TEST_F(IdentityBody, WithoutALengthReadsToTheClose) {
    const std::string data = pattern(3000);
    server().send(data).close();
    EXPECT_EQ(read_body(-1), HTTP_UTIL_OK);
    EXPECT_EQ(written(), data);
    EXPECT_TRUE(fake::logged("content length not given."));
}

TEST_F(IdentityBody, AnEarlyCloseGives9AndKeepsTheBytes) {
    server().send(pattern(100)).close();
    EXPECT_EQ(read_body(2500), HTTP_UTIL_ERR_RECV_DATA);
    EXPECT_EQ(written(), pattern(100));
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "[http_fd_read_body]socket closed by peer.");
    server().send("abc").reset();
    EXPECT_EQ(read_body(2500), HTTP_UTIL_ERR_RECV_DATA);
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "aborting (Connection reset by peer).");
}

TEST_F(IdentityBody, SkipsTheBytesTheFileAlreadyHolds) {
    const std::string data = pattern(2500);
    for (uint32_t skip : {1500u, 1024u, 2500u, 9000u}) {
        server().send(data).wait_until(reader_done());
        EXPECT_EQ(read_body(2500, skip), HTTP_UTIL_OK);
        EXPECT_EQ(written(), skip < 2500 ? data.substr(skip) : "") << "skip " << skip;
    }
}

TEST_F(IdentityBody, ADataSinkTakesEveryBlockInsteadOfTheFile) {
    take_data();
    const std::string data = pattern(2000);
    server().send(data).wait_until(reader_done());
    EXPECT_EQ(read_body(2000, 1500), HTTP_UTIL_OK);
    EXPECT_EQ(taken_, data) << "skip does not apply to the sink";
    EXPECT_EQ(written(), "");
    server().send("hello").wait_until(reader_done());
    EXPECT_EQ(run([&](int fd) { return http_fd_read_body(nullptr, fd, nullptr, &ref_, 5, 0); }),
              HTTP_UTIL_OK) << "no stream needed";
    EXPECT_EQ(taken_, data + "hello");
}

TEST_F(IdentityBody, AFailedSinkOrFileGives23) {
    take_data(2);
    server().send(pattern(2500)).wait_until(reader_done());
    EXPECT_EQ(read_body(2500), HTTP_UTIL_ERR_SAVE_FILE);
    EXPECT_EQ(taken_.size(), 2048u);
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "proc data fail");

    record_.on_data = nullptr;
    FILE *full = fopen("/dev/full", "w");
    server().send(pattern(100)).wait_until(reader_done());
    EXPECT_EQ(read_body(100, 0, full), HTTP_UTIL_ERR_SAVE_FILE);
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "write_data fail");
    fclose(full);
}

TEST_F(IdentityBody, CancellingAfterABlockKeepsThatBlock) {
    count_progress(1);
    const std::string data = pattern(2500);
    server().send(data).wait_until(reader_done());
    EXPECT_EQ(read_body(2500), HTTP_UTIL_ERR_CANCELED);
    EXPECT_EQ(written(), data.substr(0, 1024));
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "cancle by user.");
}

TEST_F(IdentityBody, NoMemoryGives1InBothReaders) {
    server().send("5\r\nhello\r\n0\r\n\r\n").wait_until(reader_done());
    interpose::fail_calloc_bytes = 1024;
    EXPECT_EQ(read_body(100), HTTP_UTIL_ERR_NOMEM);
    EXPECT_EQ(http_fd_read_body_chunked(nullptr, fd_, file_, &ref_, 0), HTTP_UTIL_ERR_NOMEM);
    EXPECT_EQ(fake::log_texts("http_fd_read_body"), std::vector<std::string>{"malloc for temp buffer failed."});
    EXPECT_EQ(fake::log_texts("http_fd_read_body_chunked"),
              std::vector<std::string>{"malloc for temp buffer failed."});
    EXPECT_EQ(wire::next_byte(fd_), '5') << "nothing read";
}

class IdentityBodySlow : public IdentityBody {};

TEST_F(IdentityBodySlow, AStalledServerGives9AfterThe31stTimeOut) {
    count_progress();
    server().send("0123456789").wait_until(reader_done());
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(read_body(100), HTTP_UTIL_ERR_RECV_DATA);
    auto took = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(took, std::chrono::seconds(30));
    EXPECT_LE(took, std::chrono::seconds(33));
    std::vector<uint32_t> expected(31, 0);
    expected[0] = 10;
    EXPECT_EQ(counts_, expected) << "a progress call after each of the first 30 time-outs";
    EXPECT_EQ(written(), "0123456789");
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "aborting (Connection timed out).");
}

}  // namespace
