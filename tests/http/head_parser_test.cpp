// From the head text to the response record and its result code.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fake_device.h"
#include "frame/handle.h"
#include "http_util.h"

namespace {

TEST(GetLine, SplitsAtCrLfWithinTheDestination) {
    const struct {
        const char *text;
        int size;
        int rest;          // offset of the result in text; -1 = NULL
        const char *line;  // what dst holds afterwards
    } cases[] = {
        {"abc\r\ndef", 16, 5, "abc"},
        {"\r\ndef", 16, 2, ""},
        {"a\nb\r\n", 16, 2, "a"},  // a bare LF ends a line too
        {"abc\n\n", 16, 4, "abc"},
        {"\ndef", 16, 1, ""},
        {"a\rb\r\r\n", 16, 6, "a\rb\r"},  // a CR only before the LF
        {"abc", 16, -1, "untouched"},
        {"", 16, -1, "untouched"},
        {"abcdefghijklmno\r\n", 16, 17, "abcdefghijklmno"},  // 15 characters fit in 16
        {"abcdefghijklmnop\r\n", 16, -1, "untouched"},
        {"abcdefghijklmnop\n", 16, -1, "untouched"},
    };
    for (const auto &c : cases) {
        char dst[32] = "untouched";
        const char *rest = http_getline(c.text, dst, c.size);
        EXPECT_EQ(rest, c.rest < 0 ? nullptr : c.text + c.rest) << c.text;
        EXPECT_STREQ(dst, c.line) << c.text;
    }
}

TEST(StatusLine, ParsesAsTheTableSays) {
    const struct {
        const char *line;
        int result;
        int32_t status;
        bool invalid_logged;
    } cases[] = {
        {"HTTP/1.1 200 OK", 0, 200, false},
        {"HTTP/1.0 404 Not Found", 0, 404, false},
        {"HTTP/2 301 Moved", 0, 301, false},
        {"HTTP 200 OK", 0, 200, false},
        {"HTTP200", 0, 200, false},
        {"HTTP/1.1\t302", 0, 302, false},
        {"HTTP/1.1 20", -1, 0, false},  // two digits: no "invalid status line"
        {"HTTP/1.1 2x0 OK", -1, 0, false},
        {"HTTP/1.1 2000 OK", -1, 200, true},  // four digits: the code is kept, then refused
        {"HTTP/1.1 200OK", -1, 200, true},
        {"http/1.1 200 OK", -1, 0, false},
        {"HTT", -1, 0, false},
    };
    for (const auto &c : cases) {
        fake::reset();
        http_rsp rsp{};
        EXPECT_EQ(http_parse_resp_status(&rsp, c.line), c.result) << c.line;
        EXPECT_EQ(rsp.status, c.status) << c.line;
        EXPECT_EQ(fake::logged("invalid status line"), c.invalid_logged) << c.line;
    }
    http_rsp rsp{};
    http_parse_resp_status(&rsp, "HTTP/1.1 301   Moved  Permanently");
    EXPECT_TRUE(fake::logged("rsp->status:301 status message: [Moved  Permanently]"));
}

class ResponseHead : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(util_, nullptr); }
    void TearDown() override { http_free_util(util_); }

    int parse(const std::string &head, int32_t start = 0) {
        ref_.start = start;
        return http_parse_http_response_head(util_, &ref_, head.c_str());
    }

    http_util *util_ = http_create_util();
    http_progress_ref ref_{};
};

const std::string kCrlf = "parse response header error because the packet have't CRLF";
const std::string kCrlfCrlf = kCrlf + "CRLF";
const std::string kOk = "HTTP/1.1 200 OK\r\n";

TEST_F(ResponseHead, RejectsMalformedHeads) {
    const struct {
        std::string head;
        int result;
        std::string message;  // the last record of http_parse_http_response_head
    } cases[] = {
        {kOk + "Content-Length: 5\r\n\r\nbody", 0, "HTTP header: Content-Length: 5"},
        {"HTTP/1.1 200 OK\nContent-Length: 5\n\n", 0, "HTTP header: Content-Length: 5"},  // bare LF
        {"HTTP/1.1 200 OK", 25, kCrlf},
        {kOk + "Content-Length: 5\r\n", 25, kCrlfCrlf},         // no empty line
        {"FTP 200 OK\r\n\r\n", 25, "http_parse_resp_status error"},
        {"HTTP/1.1 2000 OK\r\n\r\n", 25, "http_parse_resp_status error"},
        {kOk + "X: " + std::string(508, 'v') + "\r\n\r\n", 0, "HTTP header: X: " + std::string(508, 'v')},
        // A line of 512 characters or more is skipped unless the parser uses its field.
        {kOk + "X: " + std::string(509, 'v') + "\r\n\r\n", 0, "long header line skipped: X"},
        {kOk + "Set-Cookie: " + std::string(600, 'v') + "\nA: b\n\n", 0, "HTTP header: A: b"},
        {kOk + "no colon " + std::string(600, 'v') + "\r\n\r\n", 0, "long header line skipped: no colon " + std::string(31, 'v')},
        {kOk + "Location: " + std::string(502, 'v') + "\r\n\r\n", 25, kCrlfCrlf},
        {kOk + "content-length: " + std::string(502, '1') + "\r\n\r\n", 25, kCrlfCrlf},
        {kOk + "Content-Length: zzz\r\n\r\n", 25, "HTTP header: Content-Length: zzz"},
        {"HTTP/1.1 200 " + std::string(499, 'K') + "\r\n\r\n", 25, kCrlf},
        {kOk + "Content-Range: bytes 1/2\r\n\r\n", 25, "HTTP header: Content-Range: bytes 1/2"},
    };
    for (const auto &c : cases) {
        fake::reset();
        EXPECT_EQ(parse(c.head), c.result) << c.head;
        EXPECT_EQ(fake::log_texts("http_parse_http_response_head").back(), c.message);
    }
    EXPECT_TRUE(fake::logged("parse content-range fail"));
    EXPECT_EQ(parse(kOk + "Content-Length: 5\r\n"), 25);
    EXPECT_EQ(util_->rsp.content_len, 5) << "what was parsed before the failure stays";
}

TEST_F(ResponseHead, TrimsValuesAndSkipsLinesWithoutColon) {
    const struct {
        const char *lines;
        const char *location;
    } cases[] = {
        {"Location: \t \"http://h/new path\" \t", "http://h/new path"},
        {"no colon here\r\nLocation:\x01\x1f/x", "/x"},
        {"Location: \"\"", ""},
        {"Location: x\"", "x"},
        {"Location: \"   ", " "},  // the first character is never cut
        {"Location: \" a \" ", " a "},
        {"Location :/ignored", ""},  // a blank before the colon makes the name unknown
    };
    for (const auto &c : cases) {
        ASSERT_EQ(parse(kOk + c.lines + "\r\n\r\n"), 0) << c.lines;
        EXPECT_STREQ(util_->rsp.new_local, c.location) << c.lines;
    }
}

TEST_F(ResponseHead, ClassifiesTheStatusInOrder) {
    const struct {
        int status;
        const char *range;  // Content-Range value, or nullptr
        int32_t start;
        int result;
        const char *message;  // after "statcode:%d."
    } cases[] = {
        {200, nullptr, 0, 0, nullptr},
        {299, nullptr, 0, 0, nullptr},
        {206, "bytes 100-199/1000", 100, 0, nullptr},
        {206, "bytes 100-199/1000", 0, HTTP_UTIL_ERR_PROTOCOL, nullptr},
        {206, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, nullptr},
        {206, "bytes 0-99/1000", 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, nullptr},
        {200, "bytes 5-9/10", 0, HTTP_UTIL_ERR_PROTOCOL, nullptr},
        {200, "bytes */10", 0, 0, nullptr},
        {301, "bytes 5-9/10", 0, HTTP_UTIL_ERR_PROTOCOL, nullptr},  // whatever the status
        {300, nullptr, 0, HTTP_UTIL_ERR_REDIRECT, "http-get return newlocation, statcode:300"},
        {301, nullptr, 0, HTTP_UTIL_ERR_REDIRECT, "http-get return newlocation, statcode:301"},
        {302, nullptr, 0, HTTP_UTIL_ERR_REDIRECT, "http-get return newlocation, statcode:302"},
        {303, nullptr, 0, HTTP_UTIL_ERR_REDIRECT, "http-get return newlocation, statcode:303"},
        {307, nullptr, 0, HTTP_UTIL_ERR_REDIRECT, "http-get return newlocation, statcode:307"},
        {304, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, "statcode:304 is not suport."},
        {308, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, "statcode:308 is not suport."},
        {199, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, "statcode:199 is not suport."},
        {500, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, "statcode:500 is not suport."},
        {401, nullptr, 0, HTTP_UTIL_ERR_UNAUTHORIZED, nullptr},
        {403, "bytes 5-9/10", 0, HTTP_UTIL_ERR_FORBIDDEN, nullptr},  // before the range check
        {404, "bytes 5-9/10", 0, HTTP_UTIL_ERR_NOT_FOUND, nullptr},
        {416, "bytes */1000", 0, HTTP_UTIL_ERR_RANGE, "Range wrong."},
        {416, "bytes 5-9/10", 0, HTTP_UTIL_ERR_RANGE, "Range wrong."},
        {416, nullptr, 1000, HTTP_UTIL_ERR_RANGE, "Range wrong."},
        // The file asked from its end is whole; one longer than the server's is not its prefix.
        {416, "bytes */1000", 1000, HTTP_UTIL_ALREADY_DONE, "file already complete, 1000 bytes."},
        {416, "bytes */999", 1000, HTTP_UTIL_NEED_RETRY, "local file longer than the server's 999 bytes."},
        {416, "bytes */1001", 1000, HTTP_UTIL_ERR_RANGE, "Range wrong."},
        {416, "bytes 0-0/1000", 1000, HTTP_UTIL_ERR_RANGE, "Range wrong."},
        {416, "bytes */*", 1000, HTTP_UTIL_ERR_RANGE, "Range wrong."},
        {416, "bytes */1000", -1, HTTP_UTIL_ERR_RANGE, "Range wrong."},  // a POST's reply
    };
    for (const auto &c : cases) {
        std::string head = "HTTP/1.1 " + std::to_string(c.status) + " Reason\r\n";
        if (c.range) head += std::string("Content-Range: ") + c.range + "\r\n";
        fake::reset();
        EXPECT_EQ(parse(head + "\r\n", c.start), c.result) << head;
        std::vector<std::string> expected{"statcode:" + std::to_string(c.status) + "."};
        if (c.message) expected.push_back(c.message);
        EXPECT_EQ(fake::log_texts("http_process_response_head"), expected) << head;
    }
}

TEST_F(ResponseHead, ASecondHeadLeavesNothingOfTheFirst) {
    ASSERT_EQ(parse("HTTP/1.1 206 Partial\r\nContent-Length: 100\r\nConnection: keep-alive\r\n"
                    "Accept-Ranges: bytes\r\nTransfer-Encoding: chunked\r\nLocation: /elsewhere\r\n"
                    "Content-Range: bytes 100-199/1000\r\n"
                    "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n\r\n",
                    100),
              0);
    ASSERT_EQ(parse(kOk + "\r\n"), 0);
    http_rsp expected;
    http_util_internal::http_rsp_reset(&expected);
    expected.status = 200;
    EXPECT_EQ(memcmp(&util_->rsp, &expected, sizeof expected), 0);
    EXPECT_EQ(util_->rsp.content_len, -1);
}

}  // namespace
