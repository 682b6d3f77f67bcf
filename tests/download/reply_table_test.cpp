// Replies written the ways real servers write them, played to a whole
// download. A case is the bytes the server sends after the request (it then
// closes), the result and the file expected; the request must be the plain
// GET. Each case is played with CR LF and with bare LF line ends, with and
// without the readiness fast path, whole and, from a given offset on, cut in
// two at every byte (the second part is sent once the first has been taken).
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "download_test_util.h"
#include "http_util.h"
#include "interpose.h"
#include "scripted_server.h"
#include "temp_dir.h"
#include "wire_util.h"

namespace {

using dltest::ok_head;

constexpr size_t kWhole = std::string::npos;
const std::string kNoFile = "(no file)";
const std::string kChunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

struct Case {
    const char *name;
    std::string reply;  // CR LF line ends, and no CR LF in the data
    int result;
    std::string file;
    size_t cut_from = kWhole;
};

std::vector<Case> cases() {
    const std::string ext = ";name=" + std::string(34, 'x');  // 40 characters
    std::string cookies;
    for (int i = 0; i < 4; ++i) cookies += "Set-Cookie: c" + std::to_string(i) + "=" + std::string(1000, 'c') + "\r\n";
    return {
        {"length", ok_head(5) + "hello", 0, "hello"},
        {"chunks", kChunked + "5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n", 0, "hello world", kChunked.size()},
        {"chunks, one with an extension of 40 characters",
         kChunked + "5" + ext + "\r\nhello\r\n6\r\n world\r\n0\r\n\r\n", 0, "hello world", kChunked.size()},
        {"two interim heads",
         "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: </s.css>; rel=preload\r\n\r\n" +
             ok_head(5) + "hello",
         0, "hello", 0},
        {"Set-Cookie of 600 characters", ok_head(5, "Set-Cookie: " + std::string(588, 'c') + "\r\n") + "hello", 0,
         "hello"},
        {"Location of 512 characters",
         "HTTP/1.1 302 Found\r\nLocation: /" + std::string(501, 'l') + "\r\nContent-Length: 0\r\n\r\n",
         HTTP_UTIL_ERR_RSP_FORMAT, kNoFile},
        {"head of more than 4095 bytes", ok_head(5, cookies) + "hello", HTTP_UTIL_ERR_HEAD_TOO_LONG, kNoFile},
        {"closed inside a size line", kChunked + "5\r\nhello\r\n1", HTTP_UTIL_ERR_RECV_DATA, "hello"},
    };
}

std::string bare_lf(std::string s) {
    for (size_t at; (at = s.find("\r\n")) != std::string::npos;) s.erase(at, 1);
    return s;
}

class ReplyTable : public dltest::WireTest {
protected:
    void TearDown() override {
        interpose::force_waiting_path = false;
        dltest::WireTest::TearDown();
    }

    // One download of reply, cut in two at cut unless it is kWhole.
    void play(const Case &c, const std::string &reply, size_t cut, bool fast) {
        SCOPED_TRACE(testing::Message() << c.name << (reply.find('\r') == std::string::npos ? ", LF" : ", CR LF")
                                        << (fast ? ", fast path" : ", waiting path") << ", cut at " << cut);
        unlink(file_.c_str());
        scripted::Server srv;
        srv.read_request();
        if (cut != kWhole) srv.send(reply.substr(0, cut)).taken();
        srv.send(cut == kWhole ? reply : reply.substr(cut)).close();
        srv.start();
        interpose::force_waiting_path = !fast;
        EXPECT_EQ(http_download_file_ntry(srv.url("/f.bin").c_str(), file_.c_str(), 0), c.result);
        interpose::force_waiting_path = false;
        EXPECT_EQ(dltest::exists(file_) ? dltest::read_file(file_) : kNoFile, c.file);
        ASSERT_TRUE(srv.wait());
        EXPECT_EQ(srv.request(), dltest::get_request("/f.bin", dltest::host_of(srv)));
    }

    TempDir dir_;
    std::string file_ = dir_.file("f.bin");
};

TEST_F(ReplyTable, EveryCaseWithEitherLineEndWholeAndCut) {
    for (const Case &c : cases())
        for (const std::string &reply : {c.reply, bare_lf(c.reply)})
            for (bool fast : {true, false}) {
                play(c, reply, kWhole, fast);
                const size_t from = c.cut_from == kWhole ? reply.size() : std::max<size_t>(c.cut_from, 1);
                for (size_t cut = from; cut < reply.size(); ++cut) play(c, reply, cut, fast);
            }
}

class ReplyTableSlow : public ReplyTable {};

// The size line's end must come within the 5 seconds that its first byte
// had; the wait for it sleeps.
TEST_F(ReplyTableSlow, ASizeLineThatNeverEndsGives25AfterFiveSeconds) {
    std::atomic<bool> done{false};
    scripted::Server srv;
    srv.read_request().send(kChunked + "5\r\nhello\r\n1").wait_until([&] { return done.load(); });
    srv.start();
    auto t0 = std::chrono::steady_clock::now();
    rusage cpu0, cpu1;
    getrusage(RUSAGE_THREAD, &cpu0);
    EXPECT_EQ(http_download_file_ntry(srv.url("/f.bin").c_str(), file_.c_str(), 3), HTTP_UTIL_ERR_RSP_FORMAT);
    getrusage(RUSAGE_THREAD, &cpu1);
    auto took = std::chrono::steady_clock::now() - t0;
    done = true;
    EXPECT_GE(took, std::chrono::milliseconds(4900));
    EXPECT_LE(took, std::chrono::milliseconds(6500));
    const auto us = [](const rusage &r) {
        return (r.ru_utime.tv_sec + r.ru_stime.tv_sec) * 1000000L + r.ru_utime.tv_usec + r.ru_stime.tv_usec;
    };
    EXPECT_LT(us(cpu1) - us(cpu0), 500000) << "CPU time used while waiting, in microseconds";
    EXPECT_EQ(dltest::read_file(file_), "hello");
    EXPECT_EQ(srv.connections(), 1u) << "not retried";
}

}  // namespace
