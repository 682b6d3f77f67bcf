// The identity body reader and the block writer it shares with the
// chunked reader.
#include <chrono>

#include "body_support.h"
#include "http/response.h"
#include "wire.h"

namespace {

using body::BodyTest;
using body::contents;
using body::pattern;
using std::chrono::milliseconds;

TEST(WriteData, DropsTheBytesToSkipAndWritesTheRest) {
    struct {
        uint32_t skip;
        const char *block;
        const char *written;
        uint32_t skip_after;
    } cases[] = {
        {0, "abcd", "abcd", 0},
        {10, "abcd", "", 6},  // whole block dropped
        {4, "abcd", "", 0},   // exactly used up: nothing is left to write
        {3, "abcd", "d", 0},
    };
    for (const auto &c : cases) {
        FILE *f = tmpfile();
        uint32_t skip = c.skip;
        EXPECT_EQ(http_util_internal::write_data(f, c.block, 4, &skip), 1);
        EXPECT_EQ(contents(f), c.written) << "skip " << c.skip;
        EXPECT_EQ(skip, c.skip_after);
        fclose(f);
    }
    uint32_t skip = 2;
    EXPECT_EQ(http_util_internal::write_data(nullptr, "abcd", 4, &skip), 1) << "no stream";
    EXPECT_EQ(skip, 2u);
}

TEST(WriteData, ReportsAStreamError) {
    FILE *full = fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    uint32_t skip = 0;
    EXPECT_EQ(http_util_internal::write_data(full, "abcd", 4, &skip), 0);
    fclose(full);
}

class IdentityBody : public BodyTest {
protected:
    int read_body(scripted::Server &srv, int32_t toread, uint32_t skip = 0, FILE *out = nullptr,
                  http_progress_ref *ref = nullptr) {
        if (out == nullptr) out = file_;
        if (ref == nullptr) ref = &caller_.ref;
        return run(srv, [&](int fd) { return http_fd_read_body(nullptr, fd, out, ref, toread, skip); });
    }
};

TEST_F(IdentityBody, ReadsTheLengthInBlocksAndLeavesTheRest) {
    caller_.count_progress();
    const std::string data = pattern(2500);
    scripted::Server srv;
    srv.send(data + "NEXT").wait_until(reader_done());
    EXPECT_EQ(read_body(srv, 2500), HTTP_UTIL_OK);
    EXPECT_EQ(written(), data);
    EXPECT_EQ(caller_.counts, (std::vector<uint32_t>{1024, 1024, 452}));
    EXPECT_EQ(caller_.record.done, 2500u);
    EXPECT_EQ(wire::next_byte(fd_), 'N') << "nothing past the length is read";
}

TEST_F(IdentityBody, ALengthOfZeroReadsNothing) {
    scripted::Server srv;
    srv.send("NEXT").wait_until(reader_done());
    EXPECT_EQ(read_body(srv, 0), HTTP_UTIL_OK);
    EXPECT_EQ(written(), "");
    EXPECT_EQ(wire::next_byte(fd_), 'N');
}

TEST_F(IdentityBody, WithoutALengthReadsToTheClose) {
    const std::string data = pattern(3000);
    scripted::Server srv;
    srv.send(data).close();
    EXPECT_EQ(read_body(srv, -1), HTTP_UTIL_OK);
    EXPECT_EQ(written(), data);
    EXPECT_TRUE(fake::logged("content length not given."));
}

TEST_F(IdentityBody, AnEarlyCloseGives9AndKeepsTheBytes) {
    const std::string data = pattern(100);
    scripted::Server srv;
    srv.send(data).close();
    EXPECT_EQ(read_body(srv, 2500), HTTP_UTIL_ERR_RECV_DATA);
    EXPECT_EQ(written(), data);
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "[http_fd_read_body]socket closed by peer.");
}

TEST_F(IdentityBody, AResetGives9) {
    scripted::Server srv;
    srv.send("abc").reset();
    EXPECT_EQ(read_body(srv, 2500), HTTP_UTIL_ERR_RECV_DATA);
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "aborting (Connection reset by peer).");
}

TEST_F(IdentityBody, SkipsTheBytesTheFileAlreadyHolds) {
    const std::string data = pattern(2500);
    for (uint32_t skip : {1500u, 2500u, 9000u}) {
        SCOPED_TRACE(skip);
        fclose(file_);
        file_ = tmpfile();
        done_ = false;
        if (fd_ >= 0) close(fd_);
        scripted::Server srv;
        srv.send(data).wait_until(reader_done());
        EXPECT_EQ(read_body(srv, 2500, skip), HTTP_UTIL_OK);
        EXPECT_EQ(written(), skip < 2500 ? data.substr(skip) : "");
    }
}

TEST_F(IdentityBody, ADataSinkTakesEveryBlockInsteadOfTheFile) {
    caller_.take_data();
    caller_.count_progress();
    const std::string data = pattern(2000);
    scripted::Server srv;
    srv.send(data).wait_until(reader_done());
    EXPECT_EQ(read_body(srv, 2000, 1500), HTTP_UTIL_OK) << "skip does not apply to the sink";
    EXPECT_EQ(body::join(caller_.blocks), data);
    EXPECT_EQ(written(), "");
    EXPECT_EQ(caller_.counts, (std::vector<uint32_t>{1024, 976}));
}

TEST_F(IdentityBody, ASinkWithoutAStreamIsEnough) {
    caller_.take_data();
    scripted::Server srv;
    srv.send("hello").wait_until(reader_done());
    srv.start();
    fd_ = srv.connect_client();
    EXPECT_EQ(http_fd_read_body(nullptr, fd_, nullptr, &caller_.ref, 5, 0), HTTP_UTIL_OK);
    done_ = true;
    EXPECT_EQ(body::join(caller_.blocks), "hello");
}

TEST_F(IdentityBody, NoStreamAndNoSinkStillReadsTheBody) {
    scripted::Server srv;
    srv.send("helloNEXT").wait_until(reader_done());
    srv.start();
    fd_ = srv.connect_client();
    EXPECT_EQ(http_fd_read_body(nullptr, fd_, nullptr, nullptr, 5, 0), HTTP_UTIL_OK);
    done_ = true;
    EXPECT_EQ(wire::next_byte(fd_), 'N');
}

TEST_F(IdentityBody, ASinkFailureGives23) {
    caller_.take_data();
    caller_.fail_data_at = 2;
    scripted::Server srv;
    srv.send(pattern(2500)).wait_until(reader_done());
    EXPECT_EQ(read_body(srv, 2500), HTTP_UTIL_ERR_SAVE_FILE);
    EXPECT_EQ(caller_.blocks.size(), 2u);
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "proc data fail");
}

TEST_F(IdentityBody, AFileErrorGives23) {
    FILE *full = fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    scripted::Server srv;
    srv.send(pattern(100)).wait_until(reader_done());
    EXPECT_EQ(read_body(srv, 100, 0, full), HTTP_UTIL_ERR_SAVE_FILE);
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "write_data fail");
    fclose(full);
}

TEST_F(IdentityBody, CancellingAfterABlockKeepsThatBlock) {
    caller_.count_progress();
    caller_.cancel_at = 1;
    const std::string data = pattern(2500);
    scripted::Server srv;
    srv.send(data).wait_until(reader_done());
    EXPECT_EQ(read_body(srv, 2500), HTTP_UTIL_ERR_CANCELED);
    EXPECT_EQ(written(), data.substr(0, 1024));
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "cancle by user.");
}

TEST_F(IdentityBody, CtrlCAfterABlockCancels) {
    http_url_param url{};
    url.param.show_progress = 1;
    fake::device().keys = {3};
    scripted::Server srv;
    srv.send(pattern(2500)).wait_until(reader_done());
    srv.start();
    fd_ = srv.connect_client();
    EXPECT_EQ(http_fd_read_body(&url, fd_, file_, nullptr, 2500, 0), HTTP_UTIL_ERR_CANCELED);
    done_ = true;
    EXPECT_EQ(written().size(), 1024u);
    EXPECT_EQ(fake::device().terminal, "!");
}

// ---- waits by design ----

class IdentityBodySlow : public IdentityBody {};

TEST_F(IdentityBodySlow, AStalledServerGives9AfterThe31stTimeOut) {
    caller_.count_progress();
    scripted::Server srv;
    srv.send("0123456789").wait_until(reader_done());
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(read_body(srv, 100), HTTP_UTIL_ERR_RECV_DATA);
    auto took = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(took, std::chrono::seconds(30));
    EXPECT_LE(took, std::chrono::seconds(33));
    std::vector<uint32_t> expected(31, 0);
    expected[0] = 10;
    EXPECT_EQ(caller_.counts, expected) << "a progress call after each of the first 30 time-outs";
    EXPECT_EQ(written(), "0123456789");
    EXPECT_EQ(fake::log_texts("http_fd_read_body").back(), "aborting (Connection timed out).");
}

TEST_F(IdentityBodySlow, CancellingDuringATimeOutGives16) {
    caller_.count_progress();
    caller_.cancel_at = 2;
    scripted::Server srv;
    srv.send("0123456789").wait_until(reader_done());
    EXPECT_EQ(read_body(srv, 100), HTTP_UTIL_ERR_CANCELED);
    EXPECT_EQ(caller_.counts, (std::vector<uint32_t>{10, 0}));
}

}  // namespace
