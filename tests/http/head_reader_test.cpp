// The head reader over a loopback connection: exactly the head comes off
// the socket, within its size and time limits.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"
#include "scripted_server.h"
#include "wire.h"

namespace {

constexpr int kUntouched = 12345;
const std::string kHead = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\nX-A: b\r\n\r\n";
const std::string kBody = "BODY";

// A head of exactly size bytes: status line, one long field, empty line.
std::string head_of(size_t size) {
    std::string start = "HTTP/1.1 200 OK\r\nX-Fill: ";
    return start + std::string(size - start.size() - 4, 'f') + "\r\n\r\n";
}

// One reader call against a fresh scripted server per case. The script's
// wait_until steps see the client socket and whether the reader returned.
class HeadReader : public testing::Test {
protected:
    void TearDown() override { close_client(); }

    scripted::Server &server() {
        close_client();
        fake::reset();
        done_ = false;
        srv_ = std::make_unique<scripted::Server>();
        return *srv_;
    }
    // Ready once the reader has taken n bytes off, or has returned.
    std::function<bool()> taken(size_t n) {
        return [this, n] { return done_ || (client_ >= 0 && wire::taken_off(client_, n)); };
    }
    std::function<bool()> reader_done() {
        return [this] { return done_.load(); };
    }
    // Runs the reader; the head text, or "(null)".
    std::string read_head(http_url_param *url = nullptr) {
        srv_->start();
        fd_ = srv_->connect_client();
        client_ = fd_;
        err_ = kUntouched;
        char *head = http_read_http_response_head(fd_, url, &err_);
        done_ = true;
        std::string text = head ? head : "(null)";
        free(head);
        return text;
    }
    std::vector<std::string> peeks() const {
        std::vector<std::string> out;
        for (const auto &t : fake::log_texts("http_fd_read_hunk"))
            if (t.rfind("peek length:", 0) == 0) out.push_back(t);
        return out;
    }
    void close_client() {
        srv_.reset();
        client_ = -1;
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }

    std::unique_ptr<scripted::Server> srv_;
    int fd_ = -1;
    std::atomic<int> client_{-1};
    std::atomic<bool> done_{false};
    int err_ = kUntouched;
};

TEST_F(HeadReader, ReturnsExactlyTheHeadAndLeavesTheBody) {
    server().send(kHead + kBody);
    EXPECT_EQ(read_head(), kHead);
    EXPECT_EQ(err_, kUntouched) << "success leaves the result code alone";
    EXPECT_EQ(wire::rest(fd_), kBody);
    const std::string n = std::to_string(kHead.size());
    EXPECT_EQ(fake::log_texts("http_fd_read_hunk"),
              (std::vector<std::string>{
                  "peek length: " + std::to_string(kHead.size() + 4) + ", tail: 0, bufsize: 2048.",
                  "rdlen: " + n + ", tail: " + n}));
}

TEST_F(HeadReader, AReplyNotStartingWithHttpConsumesNothing) {
    server().send("ICY 200 OK\r\n\r\nxyz");
    EXPECT_EQ(read_head(), "");
    EXPECT_EQ(err_, kUntouched);
    EXPECT_EQ(wire::rest(fd_), "ICY 200 OK\r\n\r\nxyz");
    EXPECT_TRUE(fake::logged("the first line is not HTTP STATUS"));
}

// A short first peek is compared on the bytes present only.
TEST_F(HeadReader, AFirstPeekOfHTPasses) {
    server().send("HT").wait_until(taken(2)).send("TP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(read_head(), "HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(peeks().front(), "peek length: 2, tail: 0, bufsize: 2048.");
    server().send("HX").wait_until(reader_done());
    EXPECT_EQ(read_head(), "");
}

TEST_F(HeadReader, FindsAnEndSplitAcrossTwoPeeks) {
    const struct {
        std::string first, second;
    } cases[] = {
        {"HTTP/1.1 200 OK\r\nA: b\r\n\r", "\nBODY"},
        {"HTTP/1.1 200 OK\r\nA: b\r", "\n\r\nBODY"},
        {"HTTP/1.1 200 OK\nA: b\n", "\nBODY"},  // LF LF ends a head too
        {"HTTP/1.1 200 OK\nA: b", "\n\nBODY"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.first);
        server().send(c.first).wait_until(taken(c.first.size())).send(c.second);
        EXPECT_EQ(read_head(), c.first + c.second.substr(0, c.second.size() - 4));
        EXPECT_EQ(wire::rest(fd_), "BODY");
        EXPECT_EQ(peeks().size(), 2u) << "each part was peeked on its own";
    }
}

// Whole, byte by byte, and cut at every offset: each part is held back
// until the reader has taken the one before, so every split is seen.
TEST_F(HeadReader, GivesTheSameHeadHoweverTheReplyIsSplit) {
    const std::string reply = kHead + kBody;
    std::vector<std::vector<std::string>> ways = {{reply}, {}};
    for (char c : reply) ways[1].emplace_back(1, c);
    for (size_t off = 1; off < reply.size(); ++off) ways.push_back({reply.substr(0, off), reply.substr(off)});

    for (const auto &parts : ways) {
        SCOPED_TRACE(testing::Message() << parts.size() << " parts, first " << parts[0].size());
        scripted::Server &srv = server();
        size_t sent = 0, head_parts = 0;
        for (const auto &part : parts) {
            if (sent < kHead.size()) ++head_parts;
            sent += part.size();
            srv.send(part).wait_until(taken(sent));
        }
        EXPECT_EQ(read_head(), kHead);
        EXPECT_EQ(err_, kUntouched);
        EXPECT_EQ(wire::rest(fd_), kBody);
        EXPECT_EQ(peeks().size(), head_parts);
    }
}

TEST_F(HeadReader, ACloseOrResetBeforeTheEndGives7) {
    for (const char *sent : {"", "HTTP/1.1 200 OK\r\nA: b\r\n"}) {
        server().send(sent).close();
        EXPECT_EQ(read_head(), "(null)") << sent;
        EXPECT_EQ(err_, HTTP_UTIL_ERR_RECV_RSP);
    }
    server().send("HTTP/1.1 200 OK\r\n").reset();
    EXPECT_EQ(read_head(), "(null)");
    EXPECT_EQ(err_, HTTP_UTIL_ERR_RECV_RSP);
}

TEST_F(HeadReader, TakesAHeadOf4095Bytes) {
    const std::string head = head_of(4095);
    server().send(head + kBody);
    EXPECT_EQ(read_head(), head);
    EXPECT_EQ(wire::rest(fd_), kBody);
    EXPECT_EQ(peeks().back(), "peek length: 2048, tail: 2047, bufsize: 4096.");
}

TEST_F(HeadReader, RefusesAHeadLongerThan4095Bytes) {
    for (const std::string &reply : {head_of(4096) + kBody, "HTTP/1.1 200 OK\r\n" + std::string(6000, 'x')}) {
        server().send(reply).wait_until(reader_done());
        EXPECT_EQ(read_head(), "(null)");
        EXPECT_EQ(err_, HTTP_UTIL_ERR_HEAD_TOO_LONG);
        EXPECT_EQ(fake::log_texts("http_fd_read_hunk").back(), "reached maxsize, bufsize: 4096.");
        EXPECT_EQ(peeks().size(), 2u) << "2047 bytes, then the buffer doubled once";
    }
}

TEST_F(HeadReader, CtrlCCancels) {
    http_url_param url{};
    url.param.show_progress = 1;
    server().send("HTTP/1.1 200 OK\r\n").wait_until(reader_done());
    fake::device().keys = {3};
    EXPECT_EQ(read_head(&url), "(null)");
    EXPECT_EQ(err_, HTTP_UTIL_ERR_CANCELED);
    EXPECT_EQ(fake::log_texts("http_fd_read_hunk").back(), "cancle by user.");
    EXPECT_EQ(fake::log_texts("http_change_progess").back(), "translation: 17.");
    EXPECT_EQ(wire::next_byte(fd_), 'H') << "a cancelled peek consumes nothing";
}

TEST_F(HeadReader, NoMemoryGives1) {
    server().send(kHead);
    interpose::fail_calloc_bytes = 2048;
    EXPECT_EQ(read_head(), "(null)");
    EXPECT_EQ(err_, HTTP_UTIL_ERR_NOMEM);
    EXPECT_EQ(fake::log_texts("http_fd_read_hunk"), std::vector<std::string>{"malloc error, bufsize: 2048."});
}

class HeadReaderSlow : public HeadReader {};

TEST_F(HeadReaderSlow, ASilentServerGives26AfterThirtySeconds) {
    http_url_param url{};
    url.param.show_progress = 1;
    server().wait_until(reader_done());
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(read_head(&url), "(null)");
    auto took = std::chrono::steady_clock::now() - t0;
    EXPECT_EQ(err_, HTTP_UTIL_ERR_RSP_TIMEOUT);
    EXPECT_EQ(fake::log_texts("http_fd_read_hunk").back(), "wait response timeout.");
    EXPECT_GE(took, std::chrono::seconds(29));
    EXPECT_LE(took, std::chrono::seconds(32));
    // A progress call, with count 0, after each timed-out 1-second peek.
    EXPECT_GE(fake::device().polls, 28);
    EXPECT_LE(fake::device().polls, 31);
    auto logs = fake::log_texts("http_change_progess");
    EXPECT_EQ(logs, std::vector<std::string>(logs.size(), "translation: 0."));
    EXPECT_EQ(fake::device().terminal, std::string(logs.size(), '.'));
    EXPECT_GE(logs.size(), 28u);
}

}  // namespace
