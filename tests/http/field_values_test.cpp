// Header field values: the tolerant tag comparison, Content-Range, HTTP
// dates, and the dispatch of the fields into the response record.
#include <gtest/gtest.h>
#include <locale.h>
#include <time.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fake_device.h"
#include "foreign_locale.h"
#include "frame/handle.h"
#include "http_util.h"

namespace {

TEST(TagCmp, MatchesAsTheTableSays) {
    const struct {
        const char *text, *pattern;
        bool match;
    } cases[] = {
        {"content-length", "Content-Length", true},
        {"CONTENT_LENGTH", "Content-Length", true},  // the dash matches any character
        {"Content-Lengthx", "Content-Length", false},
        {"Content-Lengt", "Content-Length", false},
        {"chunked\"; q=1", "chunked", true},  // the text ends at a quote
        {"gzip, chunked", "chunked", false},
        {"\xc9T\xc9", "\xe9t\xe9", false},  // only A to Z fold
        {"", "", true},
        {"", "*", true},
        {"abc", "a*", true},
        {"a", "a*", true},  // the star's run may be empty
        {"b", "a*", false},
        {"a*x", "a*", false},  // a star in the text is an ordinary character
        {"ac", "a*c", true},
        {"aXbC", "a*c", true},
        {"abd", "a*c", false},
        {"abcd", "a*c", false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(http_tag_cmp(c.text, c.pattern) == 0, c.match) << c.text << " ~ " << c.pattern;
}

// A pattern of stars used to try every way of spreading them over the text:
// seconds for this pair, and without bound as the text grows.
TEST(TagCmp, ManyStarsDoNotBacktrackExponentially) {
    std::string pattern;
    for (int i = 0; i < 9; ++i) pattern += "*a";
    const std::string miss = pattern + "*b";
    const std::string text(36, 'a');
    struct timespec begin, end;
    clock_gettime(CLOCK_MONOTONIC, &begin);
    EXPECT_NE(http_tag_cmp(text.c_str(), miss.c_str()), 0);
    EXPECT_EQ(http_tag_cmp((text + "b").c_str(), miss.c_str()), 0);
    EXPECT_EQ(http_tag_cmp((text + "xb").c_str(), miss.c_str()), 0);
    EXPECT_NE(http_tag_cmp(std::string(8, 'a').c_str(), miss.c_str()), 0);
    clock_gettime(CLOCK_MONOTONIC, &end);
    EXPECT_LT((end.tv_sec - begin.tv_sec) * 1000 + (end.tv_nsec - begin.tv_nsec) / 1000000, 500);
}

TEST(ContentRange, ParsesAsTheTableSays) {
    const struct {
        const char *value;
        int result;
        int32_t first, last, length;  // 7, 8, 9: left as they were
    } cases[] = {
        {"bytes 100-199/1000", 1, 100, 199, 1000},
        {"bytes: 100-199/1000", 1, 100, 199, 1000},
        {"100-199/1000", 1, 100, 199, 1000},
        {"BYTES  100-199/*", 1, 100, 199, -1},
        {"bytes */1000", 1, 7, 8, 1000},
        {"bytes */*", 1, 7, 8, -1},
        {"bytes 100199/1000", 0, 7, 8, 9},
        {"bytes -199/1000", 0, 7, 8, 9},
        {"bytes 100-199", 0, 100, 8, 9},  // the first position may already be stored
        {"bytes 100-199/x", 0, 100, 8, 9},
        {"bytes ", 0, 7, 8, 9},
    };
    for (const auto &c : cases) {
        int32_t first = 7, last = 8, length = 9;
        EXPECT_EQ(parse_content_range(c.value, &first, &last, &length), c.result) << c.value;
        EXPECT_EQ(std::vector<int32_t>({first, last, length}),
                  std::vector<int32_t>({c.first, c.last, c.length}))
            << c.value;
    }
}

constexpr time_t kNov6 = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT

// Every form servers have used, the leniencies of the C library's reader
// that dates were once read with, and what is refused; run in the C locale
// and again with the host's LC_TIME in German, which changes nothing.
TEST(HttpDate, ReadsEveryFormAlikeInAnyHostLocale) {
    const time_t k2068 = sizeof(time_t) > 4 ? static_cast<time_t>(3119417377) : -1;
    const std::pair<const char *, time_t> cases[] = {
        {"Sun, 06 Nov 1994 08:49:37 GMT", kNov6},           // IMF-fixdate
        {"Sunday, 06-Nov-94 08:49:37 GMT", kNov6},          // RFC 850
        {"Sun Nov  6 08:49:37 1994", kNov6},                 // asctime
        {"Sun, 06-Nov-1994 08:49:37 GMT", kNov6},           // dashes
        {"Sunday, 06-Nov-1994 08:49:37 GMT", kNov6},        // dashes, full day name
        {"sUNDAY,6 november 1994 8:49:37", kNov6},          // any case, full names, one digit
        {"Mon, 06 Nov 1994 08:49:37 GMT", kNov6},           // the day name is not checked
        {"Sun,\t06  Nov 1994 08: 49: 37 GMT", kNov6},       // any white space, none, or before numbers
        {"Sun, 06 Nov 1994 08:49:37 GMTanything", kNov6},
        {"Sun, 06 Nov 1994 08:49:37 +0100", kNov6},         // accepted, not applied
        {"Sun, 06 Nov 1994 08:49:60 GMT", kNov6 + 23},      // a leap second carries over
        {"Thu, 31 Feb 1994 08:49:37 GMT", 762684577},       // so does a day: 3 March
        {"Thursday, 06-Nov-69 08:49:37 GMT", -4806623},     // two-digit years from 1969
        {"Thursday, 06-Nov-68 08:49:37 GMT", k2068},        // to 2068 (not in a 32-bit time_t)
        {"Sun, 06 Nov 1994 08:49:37 UTC", -1},
        {"Sun, 06 Nov 1994 08:49:37 gmt", -1},
        {"Sun, 06 Nov 1994 08:49:37 -", -1},
        {"Sun, 32 Nov 1994 08:49:37 GMT", -1},
        {"Sun, 06 Nov 1994 24:00:00 GMT", -1},
        {"Sun, 06 Nov 1994 08:49 GMT", -1},
        {"Sun, 06 Sept 1994 08:49:37 GMT", -1},
        {"So, 06 Okt 1994 08:49:37 GMT", -1},               // English names only
        {"", -1},
    };
    for (bool german : {false, true}) {
        if (german) {
            ASSERT_TRUE(peer::use_foreign_time_locale()) << peer::kForeignTimeLocale;
        }
        for (const auto &[text, time] : cases)
            EXPECT_EQ(http_atotm(text), time) << text << (german ? " (German LC_TIME)" : "");
    }
    EXPECT_STREQ(setlocale(LC_TIME, nullptr), peer::kForeignTimeLocale);
    setlocale(LC_TIME, "C");
}

const std::string kDate = "Sun, 06 Nov 1994 08:49:37 GMT";

TEST(ParseRspHead, FillsTheRecordAsTheTableSays) {
    const struct {
        std::vector<std::pair<std::string, std::string>> fields;
        int result;
        std::function<void(http_rsp &)> expect;  // applied to a reset record
    } cases[] = {
        {{{"content-length", "1234"}}, 0, [](http_rsp &r) { r.content_len = 1234; }},
        {{{"Content-Length", " \t2147483647 "}}, 0, [](http_rsp &r) { r.content_len = INT32_MAX; }},
        {{{"Content-Length", "007"}}, 0, [](http_rsp &r) { r.content_len = 7; }},
        // Anything but a plain decimal from 0 to 2^31 - 1 is a malformed head.
        {{{"Content-Length", "abc"}}, HTTP_UTIL_ERR_RSP_FORMAT, [](http_rsp &) {}},
        {{{"Content-Length", "2147483648"}}, HTTP_UTIL_ERR_RSP_FORMAT, [](http_rsp &) {}},
        {{{"Content-Length", "99999999999"}}, HTTP_UTIL_ERR_RSP_FORMAT, [](http_rsp &) {}},
        {{{"Content-Length", "-1"}}, HTTP_UTIL_ERR_RSP_FORMAT, [](http_rsp &) {}},
        {{{"Content-Length", "+5"}}, HTTP_UTIL_ERR_RSP_FORMAT, [](http_rsp &) {}},
        {{{"Content-Length", "12abc"}}, HTTP_UTIL_ERR_RSP_FORMAT, [](http_rsp &) {}},
        {{{"Content-Length", "1 2"}}, HTTP_UTIL_ERR_RSP_FORMAT, [](http_rsp &) {}},
        {{{"Content-Length", ""}}, HTTP_UTIL_ERR_RSP_FORMAT, [](http_rsp &) {}},
        {{{"Content-Length", "1"}, {"Content-Length", "2"}}, 0, [](http_rsp &r) { r.content_len = 2; }},
        {{{"Transfer-Encoding", "Chunked"}}, 0, [](http_rsp &r) { r.chunked = 1; }},
        {{{"Transfer-Encoding", "gzip, chunked"}}, 0, [](http_rsp &) {}},
        {{{"Transfer-Encoding", "chunked"}, {"Transfer-Encoding", "gzip"}}, 0, [](http_rsp &r) { r.chunked = 1; }},
        {{{"Connection", "Keep-Alive"}}, 0, [](http_rsp &r) { r.keep_alive = 1; }},
        {{{"Connection", "keep-alive"}, {"Connection", "close"}}, 0, [](http_rsp &) {}},
        {{{"Connection", "keep-alive"}, {"Connection", "upgrade"}}, 0, [](http_rsp &r) { r.keep_alive = 1; }},
        {{{"Accept-Ranges", "bytes"}}, 0, [](http_rsp &r) { r.accept_ranges = 1; }},
        {{{"Accept-Ranges", "Bytes"}}, 0, [](http_rsp &) {}},  // compared exactly
        {{{"Accept-Ranges", "bytes"}, {"Accept-Ranges", "none"}}, 0, [](http_rsp &) {}},
        {{{"Content-Range", "bytes 100-199/1000"}}, 0,
         [](http_rsp &r) { r.range_start = 100, r.range_end = 199, r.file_len = 1000; }},
        {{{"Content-Range", "bytes x"}}, HTTP_UTIL_ERR_RSP_FORMAT, [](http_rsp &) {}},
        {{{"Last-Modified", kDate + " + the rest"}}, 0,  // text cut to 31, time from the whole
         [](http_rsp &r) { strcpy(r.last_modified, (kDate + " +").c_str()), r.mtime = kNov6; }},
        {{{"Last-Modified", "soon"}}, 0, [](http_rsp &r) { strcpy(r.last_modified, "soon"); }},
        {{{"Location", std::string(300, 'L')}}, 0, [](http_rsp &r) { memset(r.new_local, 'L', 255); }},
        {{{"Server", "x"}, {"Content-Length ", "5"}}, 0, [](http_rsp &) {}},
    };
    for (const auto &c : cases) {
        http_rsp rsp, expected;
        http_util_internal::http_rsp_reset(&rsp);
        http_util_internal::http_rsp_reset(&expected);
        c.expect(expected);
        int result = 0;
        for (const auto &[name, value] : c.fields)
            if ((result = http_parse_rsp_head(&rsp, nullptr, name.c_str(), value.c_str())) != 0) break;
        EXPECT_EQ(result, c.result) << c.fields[0].first << ": " << c.fields[0].second;
        EXPECT_EQ(memcmp(&rsp, &expected, sizeof rsp), 0) << c.fields[0].first << ": " << c.fields[0].second;
    }
    EXPECT_TRUE(fake::logged("100-199/1000"));
    EXPECT_TRUE(fake::logged("Last-modified header invalid -- time-stamp ignored."));
}

}  // namespace
