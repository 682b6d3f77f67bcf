// The head reader over a loopback connection: exactly the head comes off
// the socket, within its size and time limits.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "fake_device.h"
#include "http/response.h"
#include "http_util.h"
#include "scripted_server.h"
#include "wire.h"

namespace {

using std::chrono::milliseconds;

constexpr int kUntouched = 12345;

const std::string kHead =
    "HTTP/1.1 200 OK\r\n"
    "Content-Length: 4\r\n"
    "X-A: b\r\n"
    "\r\n";
const std::string kBody = "BODY";

// One reader call against a scripted server; the script gets the client
// socket and the "reader done" flag for its wait_until steps.
class HeadReader : public testing::Test {
protected:
    void TearDown() override {
        if (fd_ >= 0) close(fd_);
    }

    // Runs the reader; head_ is the text or "(null)".
    void read_head(scripted::Server &srv, http_url_param *url = nullptr) {
        srv.start();
        fd_ = srv.connect_client();
        ASSERT_GE(fd_, 0);
        client_ = fd_;
        err_ = kUntouched;
        char *head = http_read_http_response_head(fd_, url, &err_);
        done_ = true;
        head_ = head ? head : "(null)";
        free(head);
    }

    // Ready once the reader has taken n bytes off, or has returned.
    std::function<bool()> taken(size_t n) {
        return [this, n] { return done_ || (client_ >= 0 && wire::taken_off(client_, n)); };
    }
    std::function<bool()> reader_done() {
        return [this] { return done_.load(); };
    }

    std::vector<std::string> peeks() const {
        std::vector<std::string> out;
        for (const auto &t : fake::log_texts("http_fd_read_hunk"))
            if (t.rfind("peek length:", 0) == 0) out.push_back(t);
        return out;
    }

    int fd_ = -1;
    std::atomic<int> client_{-1};
    std::atomic<bool> done_{false};
    int err_ = kUntouched;
    std::string head_;
};

TEST_F(HeadReader, ReturnsExactlyTheHeadAndLeavesTheBody) {
    scripted::Server srv;
    srv.send(kHead + kBody);
    read_head(srv);
    EXPECT_EQ(head_, kHead);
    EXPECT_EQ(err_, kUntouched) << "success leaves the result code alone";
    EXPECT_EQ(wire::rest(fd_), kBody);
    const std::string peeked = std::to_string(kHead.size() + kBody.size());
    const std::string taken = std::to_string(kHead.size());
    EXPECT_EQ(fake::log_texts("http_fd_read_hunk"),
              (std::vector<std::string>{"peek length: " + peeked + ", tail: 0, bufsize: 2048.",
                                        "rdlen: " + taken + ", tail: " + taken}));
}

TEST_F(HeadReader, AReplyNotStartingWithHttpConsumesNothing) {
    scripted::Server srv;
    srv.send("ICY 200 OK\r\n\r\nxyz");
    read_head(srv);
    EXPECT_EQ(head_, "");
    EXPECT_EQ(err_, kUntouched);
    EXPECT_EQ(wire::rest(fd_), "ICY 200 OK\r\n\r\nxyz");
    EXPECT_TRUE(fake::logged("the first line is not HTTP STATUS"));
}

TEST_F(HeadReader, AShortFirstPeekIsComparedOnTheBytesPresent) {
    for (const char *first : {"HT", "HX"}) {
        SCOPED_TRACE(first);
        fake::reset();
        done_ = false;
        client_ = -1;
        if (fd_ >= 0) close(fd_);
        scripted::Server srv;
        srv.send(first).wait_until(taken(2)).send("TP/1.1 200 OK\r\n\r\n").wait_until(reader_done());
        read_head(srv);
        if (first[1] == 'T') {
            EXPECT_EQ(head_, "HTTP/1.1 200 OK\r\n\r\n");
            EXPECT_EQ(peeks().front(), "peek length: 2, tail: 0, bufsize: 2048.");
        } else {
            EXPECT_EQ(head_, "");
            EXPECT_EQ(wire::next_byte(fd_), 'H') << "nothing consumed";
        }
    }
}

TEST_F(HeadReader, LfLfEndsAHead) {
    scripted::Server srv;
    srv.send("HTTP/1.1 200 OK\nA: b\n\nBODY");
    read_head(srv);
    EXPECT_EQ(head_, "HTTP/1.1 200 OK\nA: b\n\n");
    EXPECT_EQ(wire::rest(fd_), "BODY");
}

TEST_F(HeadReader, FindsAnEndSplitAcrossTwoPeeks) {
    struct {
        std::string first, second;
    } cases[] = {
        {"HTTP/1.1 200 OK\r\nA: b\r\n\r", "\nBODY"},
        {"HTTP/1.1 200 OK\r\nA: b\r\n", "\r\nBODY"},
        {"HTTP/1.1 200 OK\r\nA: b\r", "\n\r\nBODY"},
        {"HTTP/1.1 200 OK\nA: b\n", "\nBODY"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.first);
        fake::reset();
        done_ = false;
        client_ = -1;
        if (fd_ >= 0) close(fd_);
        scripted::Server srv;
        srv.send(c.first).wait_until(taken(c.first.size())).send(c.second);
        read_head(srv);
        EXPECT_EQ(head_, c.first + c.second.substr(0, c.second.size() - 4));
        EXPECT_EQ(wire::rest(fd_), "BODY");
        EXPECT_EQ(peeks().size(), 2u) << "each part was peeked on its own";
    }
}

// Every way the good reply can arrive gives the same head and leaves the
// same body; the script holds each part back until the reader has taken
// the previous one, so every split is really seen.
TEST_F(HeadReader, GivesTheSameHeadHoweverTheReplyIsSplit) {
    const std::string reply = kHead + kBody;
    std::vector<std::vector<std::string>> ways = {{reply}};
    std::vector<std::string> bytes;
    for (char c : reply) bytes.emplace_back(1, c);
    ways.push_back(bytes);
    for (size_t off = 1; off < reply.size(); ++off)
        ways.push_back({reply.substr(0, off), reply.substr(off)});

    for (const auto &parts : ways) {
        SCOPED_TRACE(testing::Message() << parts.size() << " parts, first " << parts[0].size());
        fake::reset();
        done_ = false;
        client_ = -1;
        if (fd_ >= 0) close(fd_);
        scripted::Server srv;
        size_t sent = 0;
        for (const auto &part : parts) {
            sent += part.size();
            srv.send(part).wait_until(taken(sent));
        }
        read_head(srv);
        EXPECT_EQ(head_, kHead);
        EXPECT_EQ(err_, kUntouched);
        EXPECT_EQ(wire::rest(fd_), kBody);
        // Parts that hold head bytes are peeked one by one.
        size_t head_parts = 0;
        for (size_t at = 0, i = 0; at < kHead.size(); at += parts[i++].size()) ++head_parts;
        EXPECT_EQ(peeks().size(), head_parts);
    }
}

TEST_F(HeadReader, ACloseBeforeTheEndOfTheHeadGives7) {
    for (const char *sent : {"", "HTTP/1.1 200 OK\r\nA: b\r\n"}) {
        SCOPED_TRACE(sent);
        fake::reset();
        done_ = false;
        if (fd_ >= 0) close(fd_);
        scripted::Server srv;
        srv.send(sent).close();
        read_head(srv);
        EXPECT_EQ(head_, "(null)");
        EXPECT_EQ(err_, HTTP_UTIL_ERR_RECV_RSP);
    }
}

TEST_F(HeadReader, AResetGives7) {
    scripted::Server srv;
    srv.send("HTTP/1.1 200 OK\r\n").reset();
    read_head(srv);
    EXPECT_EQ(head_, "(null)");
    EXPECT_EQ(err_, HTTP_UTIL_ERR_RECV_RSP);
}

// A head of exactly size bytes: status line, one long field, empty line.
std::string head_of(size_t size) {
    std::string start = "HTTP/1.1 200 OK\r\nX-Fill: ";
    return start + std::string(size - start.size() - 4, 'f') + "\r\n\r\n";
}

TEST_F(HeadReader, TakesAHeadOf4095Bytes) {
    const std::string head = head_of(4095);
    scripted::Server srv;
    srv.send(head + kBody);
    read_head(srv);
    EXPECT_EQ(head_, head);
    EXPECT_EQ(wire::rest(fd_), kBody);
    EXPECT_EQ(peeks().back(), "peek length: 2048, tail: 2047, bufsize: 4096.");
}

TEST_F(HeadReader, RefusesAHeadLongerThan4095Bytes) {
    for (const std::string &reply : {head_of(4096) + kBody, "HTTP/1.1 200 OK\r\n" + std::string(6000, 'x')}) {
        fake::reset();
        done_ = false;
        if (fd_ >= 0) close(fd_);
        scripted::Server srv;
        srv.send(reply).wait_until(reader_done());
        read_head(srv);
        EXPECT_EQ(head_, "(null)");
        EXPECT_EQ(err_, HTTP_UTIL_ERR_HEAD_TOO_LONG);
        EXPECT_EQ(fake::log_texts("http_fd_read_hunk").back(), "reached maxsize, bufsize: 4096.");
        EXPECT_EQ(peeks().size(), 2u) << "2047 bytes, then the buffer doubled once";
    }
}

TEST_F(HeadReader, CtrlCAfterAPeekCancels) {
    http_url_param url{};
    url.param.show_progress = 1;
    fake::device().keys = {3};
    scripted::Server srv;
    srv.send("HTTP/1.1 200 OK\r\n").wait_until(reader_done());
    read_head(srv, &url);
    EXPECT_EQ(head_, "(null)");
    EXPECT_EQ(err_, HTTP_UTIL_ERR_CANCELED);
    EXPECT_EQ(fake::log_texts("http_fd_read_hunk").back(), "cancle by user.");
    EXPECT_EQ(wire::next_byte(fd_), 'H') << "a cancelled peek consumes nothing";
}

TEST_F(HeadReader, ReportsEachPeekToTheProgressFunction) {
    http_url_param url{};
    url.param.show_progress = 1;
    scripted::Server srv;
    srv.send("HTTP/1.1 200 OK\r\n").wait_until(taken(17)).send("\r\n");
    read_head(srv, &url);
    EXPECT_EQ(head_, "HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(fake::device().polls, 2) << "one progress call per peek";
    EXPECT_EQ(fake::log_texts("http_change_progess").front(), "translation: 17.");
}

// ---- waits by design ----

class HeadReaderSlow : public HeadReader {};

TEST_F(HeadReaderSlow, ASilentServerGives26AfterThirtySeconds) {
    http_url_param url{};
    url.param.show_progress = 1;
    scripted::Server srv;
    srv.wait_until(reader_done());
    auto t0 = std::chrono::steady_clock::now();
    read_head(srv, &url);
    auto took = std::chrono::steady_clock::now() - t0;
    EXPECT_EQ(head_, "(null)");
    EXPECT_EQ(err_, HTTP_UTIL_ERR_RSP_TIMEOUT);
    EXPECT_EQ(fake::log_texts("http_fd_read_hunk").back(), "wait response timeout.");
    EXPECT_GE(took, std::chrono::seconds(29));
    EXPECT_LE(took, std::chrono::seconds(32));
    // One progress call per timed-out 1-second peek, each with count 0.
    int calls = fake::device().polls;
    EXPECT_GE(calls, 28);
    EXPECT_LE(calls, 31);
    const std::string &shown = fake::device().terminal;
    EXPECT_EQ(shown, std::string(shown.size(), '.'));
    EXPECT_GE(shown.size(), 28u);
    for (const auto &t : fake::log_texts("http_change_progess")) EXPECT_EQ(t, "translation: 0.");
}

TEST_F(HeadReaderSlow, CtrlCDuringTheWaitCancels) {
    http_url_param url{};
    url.param.show_progress = 1;
    fake::device().keys = {'x', 3};
    scripted::Server srv;
    srv.wait_until(reader_done());
    read_head(srv, &url);
    EXPECT_EQ(err_, HTTP_UTIL_ERR_CANCELED);
    EXPECT_EQ(fake::device().polls, 2);
    EXPECT_EQ(fake::device().terminal, "..");
}

// ---- the end-of-head test on its own ----

TEST(HeadTerminator, FindsTheFirstEndInTheBytesSeen) {
    struct {
        std::string before, peeked;
        int end;  // offset from the buffer start; -1 = not yet, 0 = not HTTP
    } cases[] = {
        {"", "HTTP/1.1 200 OK\r\n\r\n", 19},
        {"", "HTTP/1.1 200 OK\n\nxx", 17},
        {"", "HTTP/1.1 200 OK\r\n\r\n\r\n\r\n", 19},
        {"", "HTTP/1.1 200 OK\r\n", -1},
        {"", "H", -1},
        {"", "X", 0},
        {"", "HTTX", 0},
        {"HTTP/1.1 200 OK\r\n\r", "\n", 19},
        {"HTTP/1.1 200 OK\r\n", "\r\n", 19},
        {"HTTP/1.1 200 OK\n", "\n", 17},
        {"HTTP/1.1 200 OK\r", "\n\r\nab", 19},
        {"HTTP/1.1 200 OK\r\n\r\n", "more", -1},  // an end before the peek is not looked at again
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.before + "|" + c.peeked);
        char buf[64] = {};
        std::string all = c.before + c.peeked;
        memcpy(buf, all.data(), all.size());
        const char *end = http_util_internal::http_response_head_terminator(
            buf, buf + c.before.size(), static_cast<int>(c.peeked.size()));
        if (c.end < 0)
            EXPECT_EQ(end, nullptr);
        else
            EXPECT_EQ(end, buf + c.end);
    }
}

}  // namespace
