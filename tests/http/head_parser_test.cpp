// From the head text to the response record and its result code.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fake_device.h"
#include "frame/handle.h"
#include "http_util.h"

namespace {

struct LineCase {
    const char *text;
    int size;
    int rest;            // offset of the result in text; -1 = NULL
    const char *line;    // what dst holds afterwards
};

const LineCase kLineCases[] = {
    {"abc\r\ndef", 16, 5, "abc"},
    {"\r\ndef", 16, 2, ""},
    {"a\nb\r\n", 16, 5, "a\nb"},      // a bare LF belongs to the line
    {"abc\n\n", 16, -1, "untouched"},
    {"abc", 16, -1, "untouched"},
    {"", 16, -1, "untouched"},
    {"abcdefghijklmno\r\n", 16, 17, "abcdefghijklmno"},  // 15 characters fit in 16
    {"abcdefghijklmnop\r\n", 16, -1, "untouched"},
    {"\r\n", 1, 2, ""},
};

TEST(GetLine, SplitsAtCrLfWithinTheDestination) {
    for (const LineCase &c : kLineCases) {
        SCOPED_TRACE(c.text);
        char dst[32] = "untouched";
        const char *rest = http_getline(c.text, dst, c.size);
        if (c.rest < 0)
            EXPECT_EQ(rest, nullptr);
        else
            EXPECT_EQ(rest, c.text + c.rest);
        EXPECT_STREQ(dst, c.line);
    }
}

struct StatusCase {
    const char *line;
    int result;
    int32_t status;
    bool invalid_logged;
};

const StatusCase kStatusCases[] = {
    {"HTTP/1.1 200 OK", 0, 200, false},
    {"HTTP/1.0 404 Not Found", 0, 404, false},
    {"HTTP/2 301 Moved", 0, 301, false},
    {"HTTP 200 OK", 0, 200, false},
    {"HTTP200", 0, 200, false},
    {"HTTP/1.1 204", 0, 204, false},
    {"HTTP/1.1\t302\tFound", 0, 302, false},
    {"HTTP/1.1 20", -1, 0, false},
    {"HTTP/1.1 2x0 OK", -1, 0, false},
    {"HTTP/1.1 2000 OK", -1, 200, true},
    {"HTTP/1.1 200OK", -1, 200, true},
    {"HTTP/1.1/200", -1, 0, false},
    {"http/1.1 200 OK", -1, 0, false},
    {"ICY 200 OK", -1, 0, false},
    {"HTT", -1, 0, false},
    {"", -1, 0, false},
};

TEST(StatusLine, ParsesAsTheTableSays) {
    for (const StatusCase &c : kStatusCases) {
        SCOPED_TRACE(c.line);
        fake::reset();
        http_rsp rsp{};
        EXPECT_EQ(http_parse_resp_status(&rsp, c.line), c.result);
        EXPECT_EQ(rsp.status, c.status);
        EXPECT_EQ(fake::logged("invalid status line"), c.invalid_logged);
        EXPECT_EQ(fake::log_texts("http_parse_resp_status").front(), std::string("status: ") + c.line);
    }
}

TEST(StatusLine, LogsTheReasonPhraseWithoutLeadingBlanks) {
    http_rsp rsp{};
    ASSERT_EQ(http_parse_resp_status(&rsp, "HTTP/1.1 301   Moved  Permanently "), 0);
    ASSERT_EQ(http_parse_resp_status(&rsp, "HTTP/1.1 200"), 0);
    EXPECT_EQ(fake::log_texts("http_parse_resp_status"),
              (std::vector<std::string>{"status: HTTP/1.1 301   Moved  Permanently ",
                                        "rsp->status:301 status message: [Moved  Permanently ]",
                                        "status: HTTP/1.1 200", "rsp->status:200 status message: []"}));
}

class ResponseHead : public testing::Test {
protected:
    void SetUp() override {
        util_ = http_create_util();
        ASSERT_NE(util_, nullptr);
    }
    void TearDown() override { http_free_util(util_); }

    int parse(const std::string &head, int32_t start = 0) {
        ref_.start = start;
        return http_parse_http_response_head(util_, &ref_, head.c_str());
    }

    http_util *util_ = nullptr;
    http_progress_ref ref_{};
};

const std::string kCrlfMsg = "parse response header error because the packet have't CRLF";
const std::string kCrlfCrlfMsg = "parse response header error because the packet have't CRLFCRLF";

struct HeadCase {
    const char *what;
    std::string head;
    int result;
    const char *message;  // logged by http_parse_http_response_head, "" = none expected
};

const std::string kName511 = "X-Long: " + std::string(511 - 8, 'v');
const std::string kName512 = "X-Long: " + std::string(512 - 8, 'v');

const HeadCase kHeadCases[] = {
    {"plain", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nbody", 0, ""},
    {"status line only", "HTTP/1.1 200 OK\r\n\r\n", 0, ""},
    {"bare LF lines", "HTTP/1.1 200 OK\nContent-Length: 5\n\n", 25, kCrlfMsg.c_str()},
    {"no empty line", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n", 25, kCrlfCrlfMsg.c_str()},
    {"empty text", "", 25, kCrlfMsg.c_str()},
    {"not a status line", "FTP 200 OK\r\n\r\n", 25, "http_parse_resp_status error"},
    {"four-digit code", "HTTP/1.1 2000 OK\r\n\r\n", 25, "http_parse_resp_status error"},
    {"511-character header line", "HTTP/1.1 200 OK\r\n" + kName511 + "\r\n\r\n", 0, ""},
    {"512-character header line", "HTTP/1.1 200 OK\r\n" + kName512 + "\r\n\r\n", 25, kCrlfCrlfMsg.c_str()},
    {"512-character status line", "HTTP/1.1 200 " + std::string(499, 'K') + "\r\n\r\n", 25, kCrlfMsg.c_str()},
    {"bad content range", "HTTP/1.1 206 Partial\r\nContent-Range: bytes 1/2\r\n\r\n", 25, ""},
};

TEST_F(ResponseHead, RejectsMalformedHeads) {
    for (const HeadCase &c : kHeadCases) {
        SCOPED_TRACE(c.what);
        fake::reset();
        EXPECT_EQ(parse(c.head), c.result);
        if (*c.message) {
            EXPECT_EQ(fake::log_texts("http_parse_http_response_head").back(), c.message);
        }
    }
    EXPECT_TRUE(fake::logged("parse content-range fail"));
}

TEST_F(ResponseHead, KeepsWhatWasParsedBeforeAFailure) {
    EXPECT_EQ(parse("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n"), 25);
    EXPECT_EQ(util_->rsp.status, 200);
    EXPECT_EQ(util_->rsp.content_len, 5);
    EXPECT_EQ(parse("HTTP/1.1 2000 OK\r\n\r\n"), 25);
    EXPECT_EQ(util_->rsp.status, 200) << "the code is stored before the check that fails";
    EXPECT_EQ(util_->rsp.content_len, -1);
}

TEST_F(ResponseHead, TrimsValuesAndSkipsLinesWithoutColon) {
    EXPECT_EQ(parse("HTTP/1.1 302 Found\r\n"
                    "Location: \t \"http://h/new path\" \t\r\n"
                    "no colon on this line\r\n"
                    "Content-Length :7\r\n"
                    "Content-Length:\x01\x1f" "42\r\n"
                    "Last-Modified:Sun, 06 Nov 1994 08:49:37 GMT  \r\n"
                    "\r\n"),
              HTTP_UTIL_ERR_REDIRECT);
    EXPECT_STREQ(util_->rsp.new_local, "http://h/new path");
    EXPECT_EQ(util_->rsp.content_len, 42) << "a blank before the colon makes the name unknown";
    EXPECT_STREQ(util_->rsp.last_modified, "Sun, 06 Nov 1994 08:49:37 GMT");
    auto logs = fake::log_texts("http_parse_http_response_head");
    EXPECT_NE(std::find(logs.begin(), logs.end(), "HTTP header: no colon on this line"), logs.end());
}

TEST_F(ResponseHead, TrimmingNeverTakesTheFirstCharacter) {
    struct {
        const char *line;
        const char *value;
    } cases[] = {
        {"Location: \"\"", ""},
        {"Location: \"", ""},
        {"Location: x\"", "x"},
        {"Location: \"x", "x"},
        {"Location: \"\" ", ""},
        {"Location:", ""},
        {"Location: \" a \" ", " a "},
        {"Location: \"   ", " "},
    };
    for (const auto &c : cases) {
        ASSERT_EQ(parse(std::string("HTTP/1.1 200 OK\r\n") + c.line + "\r\n\r\n"), 0);
        EXPECT_STREQ(util_->rsp.new_local, c.value) << c.line;
    }
}

struct ClassCase {
    int status;
    const char *range;  // Content-Range value, or nullptr
    int32_t start;
    int result;
    const char *message;  // logged by http_process_response_head after "statcode:%d."
};

const ClassCase kClassCases[] = {
    {200, nullptr, 0, HTTP_UTIL_OK, nullptr},
    {204, nullptr, 0, HTTP_UTIL_OK, nullptr},
    {299, nullptr, 0, HTTP_UTIL_OK, nullptr},
    {206, "bytes 100-199/1000", 100, HTTP_UTIL_OK, nullptr},
    {206, "bytes 100-199/1000", 0, HTTP_UTIL_ERR_PROTOCOL, nullptr},
    {206, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, nullptr},
    {206, "bytes 0-99/1000", 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, nullptr},
    {200, "bytes 5-9/10", 0, HTTP_UTIL_ERR_PROTOCOL, nullptr},
    {200, "bytes 0-9/10", 0, HTTP_UTIL_OK, nullptr},
    {200, "bytes */10", 0, HTTP_UTIL_OK, nullptr},
    {301, "bytes 5-9/10", 0, HTTP_UTIL_ERR_PROTOCOL, nullptr},  // whatever the status
    {300, nullptr, 0, HTTP_UTIL_ERR_REDIRECT, "http-get return newlocation, statcode:300"},
    {301, nullptr, 0, HTTP_UTIL_ERR_REDIRECT, "http-get return newlocation, statcode:301"},
    {302, nullptr, 0, HTTP_UTIL_ERR_REDIRECT, "http-get return newlocation, statcode:302"},
    {303, nullptr, 0, HTTP_UTIL_ERR_REDIRECT, "http-get return newlocation, statcode:303"},
    {307, nullptr, 0, HTTP_UTIL_ERR_REDIRECT, "http-get return newlocation, statcode:307"},
    {304, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, "statcode:304 is not suport."},
    {305, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, "statcode:305 is not suport."},
    {308, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, "statcode:308 is not suport."},
    {100, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, "statcode:100 is not suport."},
    {199, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, "statcode:199 is not suport."},
    {400, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, "statcode:400 is not suport."},
    {500, nullptr, 0, HTTP_UTIL_ERR_UNEXPECTED_RSP, "statcode:500 is not suport."},
    {401, nullptr, 0, HTTP_UTIL_ERR_UNAUTHORIZED, nullptr},
    {403, "bytes 5-9/10", 0, HTTP_UTIL_ERR_FORBIDDEN, nullptr},  // before the range check
    {404, "bytes 5-9/10", 0, HTTP_UTIL_ERR_NOT_FOUND, nullptr},
    {416, "bytes */1000", 0, HTTP_UTIL_ERR_RANGE, "Range wrong."},
    {416, "bytes 5-9/10", 0, HTTP_UTIL_ERR_RANGE, "Range wrong."},
};

TEST_F(ResponseHead, ClassifiesTheStatusInOrder) {
    for (const ClassCase &c : kClassCases) {
        std::string head = "HTTP/1.1 " + std::to_string(c.status) + " Reason\r\n";
        if (c.range) head += std::string("Content-Range: ") + c.range + "\r\n";
        head += "\r\n";
        SCOPED_TRACE(head);
        fake::reset();
        EXPECT_EQ(parse(head, c.start), c.result);
        std::vector<std::string> expected{"statcode:" + std::to_string(c.status) + "."};
        if (c.message) expected.push_back(c.message);
        EXPECT_EQ(fake::log_texts("http_process_response_head"), expected);
    }
}

TEST_F(ResponseHead, ASecondHeadLeavesNothingOfTheFirst) {
    ASSERT_EQ(parse("HTTP/1.1 206 Partial\r\n"
                    "Content-Length: 100\r\n"
                    "Connection: keep-alive\r\n"
                    "Accept-Ranges: bytes\r\n"
                    "Transfer-Encoding: chunked\r\n"
                    "Location: /elsewhere\r\n"
                    "Content-Range: bytes 100-199/1000\r\n"
                    "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n"
                    "\r\n",
                    100),
              0);
    ASSERT_EQ(util_->rsp.content_len, 100);
    ASSERT_EQ(parse("HTTP/1.1 200 OK\r\n\r\n"), 0);
    http_rsp expected;
    http_util_internal::http_rsp_reset(&expected);
    expected.status = 200;
    EXPECT_EQ(memcmp(&util_->rsp, &expected, sizeof expected), 0);
    EXPECT_EQ(util_->rsp.content_len, -1);
    EXPECT_EQ(util_->rsp.mtime, -1);
}

}  // namespace
