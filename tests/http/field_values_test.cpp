// Header field values: the tolerant tag comparison, Content-Range, HTTP
// dates, and the dispatch of the fields into the response record.
#include <gtest/gtest.h>
#include <locale.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fake_device.h"
#include "frame/handle.h"
#include "http_util.h"

namespace {

struct TagCase {
    const char *text;
    const char *pattern;
    bool match;
};

constexpr TagCase kTagCases[] = {
    {"Content-Length", "Content-Length", true},
    {"content-length", "Content-Length", true},
    {"CONTENT-LENGTH", "Content-Length", true},
    {"Content_Length", "Content-Length", true},   // the dash matches any character
    {"Content-Lengthx", "Content-Length", false},
    {"Content-Lengt", "Content-Length", false},
    {"chunked\"; q=1", "chunked", true},          // the text ends at a quote
    {"\"chunked\"", "chunked", false},
    {"Chunked", "chunked", true},
    {"gzip, chunked", "chunked", false},
    {"\xc9t\xc9", "\xe9t\xe9", false},            // only A to Z fold
    {"", "", true},
    {"", "x", false},
    {"x", "", false},
    {"", "*", true},
    {"abc", "a*", true},
    {"a", "a*", true},                            // the star's run may be empty
    {"b", "a*", false},
    {"a*", "a*", true},                           // a star in the text is an ordinary character
    {"a*x", "a*", false},
    {"ac", "a*c", true},
    {"abbbc", "a*c", true},
    {"AXC", "a*c", true},
    {"abd", "a*c", false},
    {"abcd", "a*c", false},
    {"abc\"d", "a*c", true},
};

TEST(TagCmp, MatchesAsTheTableSays) {
    for (const TagCase &c : kTagCases)
        EXPECT_EQ(http_tag_cmp(c.text, c.pattern) == 0, c.match)
            << "text [" << c.text << "] pattern [" << c.pattern << "]";
}

struct RangeCase {
    const char *value;
    int result;
    int32_t first, last, length;  // 7, 8, 9: left as they were
};

constexpr RangeCase kRangeCases[] = {
    {"bytes 100-199/1000", 1, 100, 199, 1000},
    {"bytes: 100-199/1000", 1, 100, 199, 1000},
    {"bytes:100-199/1000", 1, 100, 199, 1000},
    {"100-199/1000", 1, 100, 199, 1000},
    {"BYTES  100-199/1000", 1, 100, 199, 1000},
    {"bytes 100-199/*", 1, 100, 199, -1},
    {"bytes 0-0/1 trailing", 1, 0, 0, 1},
    {"bytes */1000", 1, 7, 8, 1000},
    {"bytes */*", 1, 7, 8, -1},
    {"bytes *", 1, 7, 8, 0},
    {"bytes 100199/1000", 0, 7, 8, 9},
    {"bytes -199/1000", 0, 7, 8, 9},
    {"bytes 100-/1000", 0, 7, 8, 9},
    {"bytes 100-199", 0, 100, 8, 9},  // the first position may already be stored
    {"bytes 100-199/x", 0, 100, 8, 9},
    {"bytes ", 0, 7, 8, 9},
    {"bytes", 0, 7, 8, 9},
    {"", 0, 7, 8, 9},
};

TEST(ContentRange, ParsesAsTheTableSays) {
    for (const RangeCase &c : kRangeCases) {
        int32_t first = 7, last = 8, length = 9;
        SCOPED_TRACE(c.value);
        EXPECT_EQ(parse_content_range(c.value, &first, &last, &length), c.result);
        EXPECT_EQ(first, c.first);
        EXPECT_EQ(last, c.last);
        EXPECT_EQ(length, c.length);
    }
}

struct DateCase {
    const char *text;
    time_t time;
};

constexpr time_t kNov6 = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT

constexpr DateCase kDateCases[] = {
    {"Sun, 06 Nov 1994 08:49:37 GMT", kNov6},
    {"Sunday, 06-Nov-94 08:49:37 GMT", kNov6},
    {"Sun Nov  6 08:49:37 1994", kNov6},
    {"Sun, 06-Nov-1994 08:49:37 GMT", kNov6},
    {"Sun, 06 Nov 1994 08:49:37", kNov6},
    {"Sun, 06 Nov 1994 08:49:37   ", kNov6},
    {"Sun, 06 Nov 1994 08:49:37 GMTanything", kNov6},
    {"Sun, 06 Nov 1994 08:49:37 +0100", kNov6},  // accepted, not applied
    {"Sun, 06 Nov 1994 08:49:37 -0500", kNov6},
    {"Sun, 06 Nov 1994 08:49:37 UTC", -1},
    {"Sun, 06 Nov 1994 08:49:37 gmt", -1},
    {"Sun, 06 Nov 1994 08:49:37 -", -1},
    {"06 Nov 1994 08:49:37 GMT", -1},
    {"yesterday", -1},
    {"", -1},
};

TEST(HttpDate, ReadsTheFourFormsAsUtc) {
    for (const DateCase &c : kDateCases) EXPECT_EQ(http_atotm(c.text), c.time) << c.text;
}

TEST(HttpDate, RestoresTheCallersTimeLocale) {
    ASSERT_NE(setlocale(LC_TIME, "C.UTF-8"), nullptr);
    EXPECT_EQ(http_atotm("Sun, 06 Nov 1994 08:49:37 GMT"), kNov6);
    EXPECT_EQ(http_atotm("not a date"), -1);
    EXPECT_STREQ(setlocale(LC_TIME, nullptr), "C.UTF-8");
    setlocale(LC_TIME, "C");
}

// ---- field dispatch ----

using Fields = std::vector<std::pair<std::string, std::string>>;

struct FieldCase {
    const char *what;
    Fields fields;
    int result;
    std::function<void(http_rsp &)> expect;  // applied to a reset record
};

const std::string kLong300(300, 'L');
const std::string kDate40 = "Sun, 06 Nov 1994 08:49:37 GMT+extra-text";

const FieldCase kFieldCases[] = {
    {"length", {{"Content-Length", "1234"}}, 0, [](http_rsp &r) { r.content_len = 1234; }},
    {"length in lower case", {{"content-length", "12"}}, 0, [](http_rsp &r) { r.content_len = 12; }},
    {"length without digits", {{"Content-Length", "abc"}}, 0, [](http_rsp &r) { r.content_len = 0; }},
    {"length clamped to 32 bits", {{"Content-Length", "99999999999"}}, 0,
     [](http_rsp &r) { r.content_len = INT32_MAX; }},
    {"the later length wins", {{"Content-Length", "1"}, {"Content-Length", "2"}}, 0,
     [](http_rsp &r) { r.content_len = 2; }},
    {"chunked", {{"Transfer-Encoding", "Chunked"}}, 0, [](http_rsp &r) { r.chunked = 1; }},
    {"another coding first", {{"Transfer-Encoding", "gzip, chunked"}}, 0, [](http_rsp &) {}},
    {"unknown coding keeps chunked", {{"Transfer-Encoding", "chunked"}, {"Transfer-Encoding", "gzip"}}, 0,
     [](http_rsp &r) { r.chunked = 1; }},
    {"keep-alive", {{"Connection", "Keep-Alive"}}, 0, [](http_rsp &r) { r.keep_alive = 1; }},
    {"close after keep-alive", {{"Connection", "keep-alive"}, {"Connection", "close"}}, 0, [](http_rsp &) {}},
    {"unknown connection keeps it", {{"Connection", "keep-alive"}, {"Connection", "upgrade"}}, 0,
     [](http_rsp &r) { r.keep_alive = 1; }},
    {"ranges", {{"Accept-Ranges", "bytes"}}, 0, [](http_rsp &r) { r.accept_ranges = 1; }},
    {"ranges compared exactly", {{"Accept-Ranges", "Bytes"}}, 0, [](http_rsp &) {}},
    {"none after bytes", {{"Accept-Ranges", "bytes"}, {"Accept-Ranges", "none"}}, 0, [](http_rsp &) {}},
    {"unknown unit keeps it", {{"Accept-Ranges", "bytes"}, {"Accept-Ranges", "pages"}}, 0,
     [](http_rsp &r) { r.accept_ranges = 1; }},
    {"content range", {{"Content-Range", "bytes 100-199/1000"}}, 0,
     [](http_rsp &r) { r.range_start = 100, r.range_end = 199, r.file_len = 1000; }},
    {"unsatisfiable range", {{"Content-Range", "bytes */1000"}}, 0, [](http_rsp &r) { r.file_len = 1000; }},
    {"bad content range", {{"Content-Range", "bytes x"}}, HTTP_UTIL_ERR_RSP_FORMAT, [](http_rsp &) {}},
    {"last modified", {{"Last-Modified", "Sun, 06 Nov 1994 08:49:37 GMT"}}, 0,
     [](http_rsp &r) {
         strcpy(r.last_modified, "Sun, 06 Nov 1994 08:49:37 GMT");
         r.mtime = kNov6;
     }},
    {"long date: text cut, time from the whole", {{"Last-Modified", kDate40}}, 0,
     [](http_rsp &r) {
         strcpy(r.last_modified, kDate40.substr(0, 31).c_str());
         r.mtime = kNov6;
     }},
    {"unreadable date", {{"Last-Modified", "soon"}}, 0, [](http_rsp &r) { strcpy(r.last_modified, "soon"); }},
    {"location", {{"Location", "http://h/p"}}, 0, [](http_rsp &r) { strcpy(r.new_local, "http://h/p"); }},
    {"long location cut to 255", {{"Location", kLong300}}, 0,
     [](http_rsp &r) { strcpy(r.new_local, kLong300.substr(0, 255).c_str()); }},
    {"other names ignored", {{"Server", "x"}, {"Content-Length ", "5"}, {"ETag", "\"a\""}}, 0,
     [](http_rsp &) {}},
};

TEST(ParseRspHead, FillsTheRecordAsTheTableSays) {
    for (const FieldCase &c : kFieldCases) {
        SCOPED_TRACE(c.what);
        http_rsp rsp, expected;
        http_util_internal::http_rsp_reset(&rsp);
        http_util_internal::http_rsp_reset(&expected);
        c.expect(expected);
        int result = 0;
        for (const auto &[name, value] : c.fields) {
            result = http_parse_rsp_head(&rsp, nullptr, name.c_str(), value.c_str());
            if (result != 0) break;
        }
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(rsp.content_len, expected.content_len);
        EXPECT_EQ(rsp.keep_alive, expected.keep_alive);
        EXPECT_EQ(rsp.accept_ranges, expected.accept_ranges);
        EXPECT_EQ(rsp.chunked, expected.chunked);
        EXPECT_STREQ(rsp.new_local, expected.new_local);
        EXPECT_EQ(rsp.range_start, expected.range_start);
        EXPECT_EQ(rsp.range_end, expected.range_end);
        EXPECT_EQ(rsp.file_len, expected.file_len);
        EXPECT_STREQ(rsp.last_modified, expected.last_modified);
        EXPECT_EQ(rsp.mtime, expected.mtime);
        EXPECT_EQ(memcmp(&rsp, &expected, sizeof rsp), 0) << "no other byte changes";
    }
}

TEST(ParseRspHead, LogsWhatItReads) {
    http_rsp rsp;
    http_util_internal::http_rsp_reset(&rsp);
    http_parse_rsp_head(&rsp, nullptr, "Content-Range", "bytes 5-9/10");
    http_parse_rsp_head(&rsp, nullptr, "Location", "/next");
    http_parse_rsp_head(&rsp, nullptr, "Last-Modified", "never");
    http_parse_rsp_head(&rsp, nullptr, "Content-Range", "5");
    EXPECT_EQ(fake::log_texts("http_parse_rsp_head"),
              (std::vector<std::string>{"Content-Range: bytes 5-9/10", "5-9/10", "Location: /next",
                                        "[newlocation] rsp->new_local /next",
                                        "Last-Modified: never",
                                        "Last-modified header invalid -- time-stamp ignored.",
                                        "Content-Range: 5", "parse content-range fail"}));
}

}  // namespace
