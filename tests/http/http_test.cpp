// Response handling as its callers see it: field values, dates and heads parsed into the response record and a
// result code, and the head and body readers on a loopback connection.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "fake_device.h"
#include "foreign_locale.h"
#include "frame/handle.h"
#include "http_util.h"
#include "interpose.h"
#include "scripted_server.h"

namespace {

TEST(TagCmp, MatchesQuicklyAsItShould) {
    const std::string as(36, 'a'), stars = "*a*a*a*a*a*a*a*a*a*b";  // once exponential to try
    const std::pair<std::string, std::string> matches[] = {
        {"content-length", "Content-Length"}, {"CONTENT_LENGTH", "Content-Length"}, {"chunked\"; q=1", "chunked"},
        {"", ""}, {"", "*"}, {"abc", "a*"}, {"a", "a*"}, {"ac", "a*c"}, {"aXbC", "a*c"}, {as + "b", stars},
        {as + "xb", stars}};
    const std::pair<std::string, std::string> misses[] = {
        {"Content-Lengthx", "Content-Length"}, {"Content-Lengt", "Content-Length"}, {"gzip, chunked", "chunked"},
        {"\xc9T\xc9", "\xe9t\xe9"}, {"b", "a*"}, {"a*x", "a*"}, {"abd", "a*c"}, {"abcd", "a*c"}, {as, stars},
        {"aaaaaaaa", stars}};
    const auto t0 = std::chrono::steady_clock::now();
    for (const auto &m : matches) EXPECT_EQ(http_tag_cmp(m.first.c_str(), m.second.c_str()), 0) << m.first << " ~ " << m.second;
    for (const auto &m : misses) EXPECT_NE(http_tag_cmp(m.first.c_str(), m.second.c_str()), 0) << m.first << " ~ " << m.second;
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(500));
}

// Every form servers have used, the C library's leniencies dates were once read with, and refusals; alike with
// the host's LC_TIME in German.
TEST(HttpDate, ReadsEveryFormAlikeInAnyHostLocale) {
    const time_t nov6 = 784111777, y2068 = sizeof(time_t) > 4 ? static_cast<time_t>(3119417377) : -1;
    const std::pair<const char *, time_t> rows[] = {
        {"Sun, 06 Nov 1994 08:49:37 GMT", nov6}, {"Sunday, 06-Nov-94 08:49:37 GMT", nov6},
        {"Sun Nov  6 08:49:37 1994", nov6}, {"Sun, 06-Nov-1994 08:49:37 GMT", nov6},
        {"Sunday, 06-Nov-1994 08:49:37 GMT", nov6}, {"sUNDAY,6 november 1994 8:49:37", nov6},
        {"Mon, 06 Nov 1994 08:49:37 GMT", nov6}, {"Sun,\t06  Nov 1994 08: 49: 37 GMT", nov6},
        {"Sun, 06 Nov 1994 08:49:37 GMTanything", nov6}, {"Sun, 06 Nov 1994 08:49:37 +0100", nov6},
        {"Sun, 06 Nov 1994 08:49:60 GMT", nov6 + 23}, {"Thu, 31 Feb 1994 08:49:37 GMT", 762684577},
        {"Thursday, 06-Nov-69 08:49:37 GMT", -4806623}, {"Thursday, 06-Nov-68 08:49:37 GMT", y2068},
        {"Sun, 06 Nov 1994 08:49:37 UTC", -1}, {"Sun, 06 Nov 1994 08:49:37 gmt", -1},
        {"Sun, 06 Nov 1994 08:49:37 -", -1}, {"Sun, 32 Nov 1994 08:49:37 GMT", -1},
        {"Sun, 06 Nov 1994 24:00:00 GMT", -1}, {"Sun, 06 Nov 1994 08:49 GMT", -1},
        {"Sun, 06 Sept 1994 08:49:37 GMT", -1}, {"So, 06 Okt 1994 08:49:37 GMT", -1}, {"", -1}};
    for (bool german : {false, true}) {
        ASSERT_TRUE(!german || peer::use_foreign_time_locale()) << peer::kForeignTimeLocale;
        for (const auto &r : rows) EXPECT_EQ(http_atotm(r.first), r.second) << r.first << (german ? " (German)" : "");
    }
    setlocale(LC_TIME, "C");
}

TEST(GetLine, SplitsAtLineFeedsWithinTheDestination) {
    const std::pair<std::string, std::string> rows[] = {  // text, then the line and the rest, or "none"
        {"abc\r\ndef", "abc|def"}, {"\r\ndef", "|def"}, {"a\nb\r\n", "a|b\r\n"}, {"\ndef", "|def"},
        {"a\rb\r\r\n", "a\rb\r|"}, {"abc", "none"}, {"abcdefghijklmno\r\n", "abcdefghijklmno|"},
        {"abcdefghijklmnop\r\n", "none"}, {"abcdefghijklmnop\n", "none"}};
    for (const auto &r : rows) {
        char dst[32] = "";
        const char *rest = http_getline(r.first.c_str(), dst, 16);
        EXPECT_EQ(rest ? std::string(dst) + "|" + rest : "none", r.second) << r.first;
    }
}

// The record as text: status, then what differs from a fresh one.
std::string text_of(const http_rsp &r) {
    std::string s = std::to_string(r.status);
    if (r.content_len != -1) s += " len " + std::to_string(r.content_len);
    s += std::string(r.chunked ? " chunked" : "") + (r.keep_alive ? " keep" : "") + (r.accept_ranges ? " ranges" : "");
    if (r.range_start || r.range_end || r.file_len)
        s += " " + std::to_string(r.range_start) + "-" + std::to_string(r.range_end) + "/" + std::to_string(r.file_len);
    if (r.mtime != -1) s += " mtime " + std::to_string(r.mtime);
    return s + (*r.last_modified ? " [" + std::string(r.last_modified) + "]" : "") + (*r.new_local ? " @" + std::string(r.new_local) : "");
}

// A head (line ends written "|") with the start of the partial file; the result and, when given, the record.
struct HeadRow {
    std::string head;
    int32_t start;
    int rc;
    std::string record = "-";
};

TEST(ResponseHead, ParsedIntoTheRecordAndAResult) {
    const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT", ok = "HTTP/1.1 200 OK|", v508(508, 'v'), v509(509, 'v');
    const int P = HTTP_UTIL_ERR_RSP_FORMAT, U = HTTP_UTIL_ERR_UNEXPECTED_RSP, X = HTTP_UTIL_ERR_PROTOCOL, N = HTTP_UTIL_ERR_RANGE;
    const HeadRow rows[] = {
        {"HTTP/1.0 404 Not Found||", 0, HTTP_UTIL_ERR_NOT_FOUND, "404"}, {"HTTP/2 301 Moved||", 0, 5, "301"},
        {"HTTP 200 OK||", 0, 0, "200"}, {"HTTP200||", 0, 0, "200"}, {"HTTP/1.1\t302||", 0, 5, "302"},
        {"HTTP/1.1 20||", 0, P, "0"}, {"HTTP/1.1 2x0 OK||", 0, P, "0"}, {"HTTP/1.1 2000 OK||", 0, P, "200"},
        {"HTTP/1.1 200OK||", 0, P, "200"}, {"http/1.1 200 OK||", 0, P, "0"}, {"FTP 200 OK||", 0, P, "0"},
        {"HTTP/1.1 200 OK", 0, P}, {ok + "Content-Length: 5|", 0, P, "200 len 5"}, {"HTTP/1.1 200 " + std::string(499, 'K') + "||", 0, P},
        {"HTTP/1.1 200 OK\nContent-Length: 5\n\nbody", 0, 0, "200 len 5"},
        {ok + "content-length: 1234|Content-Length: 007||", 0, 0, "200 len 7"},
        {ok + "Content-Length:  \t2147483647 ||", 0, 0, "200 len 2147483647"},
        {ok + "Content-Length: 2147483648||", 0, P}, {ok + "Content-Length: 99999999999||", 0, P},
        {ok + "Content-Length: -1||", 0, P}, {ok + "Content-Length: +5||", 0, P}, {ok + "Content-Length: 12abc||", 0, P},
        {ok + "Content-Length: 1 2||", 0, P}, {ok + "Content-Length:||", 0, P}, {ok + "Content-Length: zzz||", 0, P},
        {ok + "Transfer-Encoding: Chunked|Transfer-Encoding: gzip||", 0, 0, "200 chunked"},
        {ok + "Transfer-Encoding: gzip, chunked||", 0, 0, "200"}, {ok + "Connection: Keep-Alive||", 0, 0, "200 keep"},
        {ok + "Connection: keep-alive|Connection: close||", 0, 0, "200"},
        {ok + "Connection: keep-alive|Connection: upgrade||", 0, 0, "200 keep"},
        {ok + "Accept-Ranges: bytes||", 0, 0, "200 ranges"}, {ok + "Accept-Ranges: Bytes||", 0, 0, "200"},
        {ok + "Accept-Ranges: bytes|Accept-Ranges: none||", 0, 0, "200"},
        {ok + "Last-Modified: " + date + " + the rest||", 0, 0, "200 mtime 784111777 [" + date + " +]"},
        {ok + "Last-Modified: soon||", 0, 0, "200 [soon]"},
        {ok + "Location: \t \"http://h/new path\" \t||", 0, 0, "200 @http://h/new path"},
        {ok + "no colon here|Location:\x01\x1f/x||", 0, 0, "200 @/x"}, {ok + "Location: \"\"||", 0, 0, "200"},
        {ok + "Location: x\"||", 0, 0, "200 @x"}, {ok + "Location: \"   ||", 0, 0, "200 @ "},
        {ok + "Location: \" a \" ||", 0, 0, "200 @ a "}, {ok + "Location :/x|Server: x|Content-Length : 5||", 0, 0, "200"},
        {ok + "Location: " + std::string(300, 'L') + "||", 0, 0, "200 @" + std::string(255, 'L')},
        {ok + "X: " + v508 + "||", 0, 0, "200"}, {ok + "X: " + v509 + "||", 0, 0, "200"},  // a long line skipped
        {ok + "Set-Cookie: " + std::string(600, 'v') + "\nContent-Length: 5\n\n", 0, 0, "200 len 5"},
        {ok + "no colon " + std::string(600, 'v') + "||", 0, 0}, {ok + "Location: " + std::string(502, 'v') + "||", 0, P},
        {ok + "content-length: " + std::string(502, '1') + "||", 0, P},
        {ok + "Content-Range: bytes: 100-199/1000||", 100, 0, "200 100-199/1000"},
        {"HTTP/1.1 206 P|Content-Range: 100-199/1000||", 100, 0, "206 100-199/1000"},
        {"HTTP/1.1 206 P|Content-Range: BYTES  100-199/*||", 100, 0, "206 100-199/-1"},
        {"HTTP/1.1 206 P|Content-Range: bytes 100-199/1000||", 0, X}, {"HTTP/1.1 206 P||", 0, U},
        {"HTTP/1.1 206 P|Content-Range: bytes 0-99/1000||", 0, U}, {ok + "Content-Range: bytes 5-9/10||", 0, X},
        {ok + "Content-Range: bytes */10||", 0, 0, "200 0-0/10"}, {"HTTP/1.1 301 M|Content-Range: bytes 5-9/10||", 0, X},
        {ok + "Content-Range: bytes 100199/1000||", 0, P}, {ok + "Content-Range: bytes -199/1000||", 0, P},
        {ok + "Content-Range: bytes 100-199||", 0, P}, {ok + "Content-Range: bytes 100-199/x||", 0, P},
        {ok + "Content-Range: bytes ||", 0, P}, {ok + "Content-Range: bytes 1/2||", 0, P},
        {"HTTP/1.1 299 R||", 0, 0}, {"HTTP/1.1 300 R||", 0, 5}, {"HTTP/1.1 303 R||", 0, 5}, {"HTTP/1.1 307 R||", 0, 5},
        {"HTTP/1.1 304 R||", 0, U}, {"HTTP/1.1 308 R||", 0, U}, {"HTTP/1.1 199 R||", 0, U}, {"HTTP/1.1 500 R||", 0, U},
        {"HTTP/1.1 401 R||", 0, HTTP_UTIL_ERR_UNAUTHORIZED}, {"HTTP/1.1 403 R|Content-Range: bytes 5-9/10||", 0, 19},
        {"HTTP/1.1 404 R|Content-Range: bytes 5-9/10||", 0, 18}, {"HTTP/1.1 416 R|Content-Range: bytes */1000||", 0, N},
        {"HTTP/1.1 416 R|Content-Range: bytes 5-9/10||", 0, N}, {"HTTP/1.1 416 R||", 1000, N},
        {"HTTP/1.1 416 R|Content-Range: bytes */1000||", 1000, HTTP_UTIL_ALREADY_DONE},  // the file is whole
        {"HTTP/1.1 416 R|Content-Range: bytes */999||", 1000, HTTP_UTIL_NEED_RETRY},  // not the server's file
        {"HTTP/1.1 416 R|Content-Range: bytes */1001||", 1000, N}, {"HTTP/1.1 416 R|Content-Range: bytes 0-0/1000||", 1000, N},
        {"HTTP/1.1 416 R|Content-Range: bytes */*||", 1000, N}, {"HTTP/1.1 416 R|Content-Range: bytes */1000||", -1, N},
    };
    http_util *u = http_create_util();
    for (const HeadRow &r : rows) {
        std::string head = r.head;
        for (size_t at; (at = head.find('|')) != std::string::npos;) head.replace(at, 1, "\r\n");
        http_progress_ref ref = {nullptr, r.start, nullptr, -1};
        EXPECT_EQ(http_parse_http_response_head(u, &ref, head.c_str()), r.rc) << r.head.substr(0, 80);
        EXPECT_EQ(r.record == "-" ? "-" : text_of(u->rsp), r.record) << r.head.substr(0, 80);
    }
    http_free_util(u);
}

enum Flags { kSink = 1, kSinkFails = 2, kCancel = 4, kFullDisk = 8, kNoMem = 16, kShow = 32, kCtrlC = 64 };

// A reply is sent in parts split at "|", each once the reader has taken the one before; a final "$" closes the
// connection, "!" resets it, else it stays open until the reader returns. A reply that need not wait for the
// reader is played whole first, so that the reader meets everything at once, the close or reset included.
struct ReadRow {
    char reader;  // 'H'ead, 'I'dentity or 'C'hunked body
    std::string reply;
    int rc;
    std::string out;   // the head or "(null)"; the bytes written to the file or the sink
    std::string left;  // what the socket holds afterwards ("*": not checked)
    int32_t len = 0;   // the identity body's length
    uint32_t skip = 0;
    int flags = 0;
    std::string record = "";          // a failure record that must be logged
    std::vector<uint32_t> counts = {};  // on_progress counts, when given
};

struct Seen {
    int flags;
    std::string out;
    std::vector<uint32_t> counts;
};

void play(const ReadRow &r, bool fast) {
    SCOPED_TRACE(testing::Message() << r.reader << " " << r.reply.substr(0, 40) << (fast ? ", fast path" : ""));
    fake::reset();
    std::atomic<bool> done{false};
    scripted::Server srv;
    std::string reply = r.reply;
    const char end = reply.empty() ? 0 : reply.back();
    if (end == '$' || end == '!') reply.pop_back();
    for (size_t at = 0, bar = 0; bar != std::string::npos; at = bar + 1)
        if ((bar = reply.find('|', at)) == std::string::npos ? srv.send(reply.substr(at)), true : (srv.send(reply.substr(at, bar - at)).taken(), true)) {
        }
    if (end == '$') srv.close(); else if (end == '!') srv.reset(); else srv.wait_until([&] { return done.load(); });
    srv.start();
    const int fd = srv.connect_client();
    if ((end == '$' || end == '!') && reply.find('|') == std::string::npos) srv.wait();
    Seen seen{r.flags, "", {}};
    http_progress rec{};
    rec.priv[0] = reinterpret_cast<uintptr_t>(&seen);
    rec.on_progress = [](http_progress *p, uint32_t n) {
        auto *s = reinterpret_cast<Seen *>(p->priv[0]);
        s->counts.push_back(n);
        return (s->flags & kCancel) && s->counts.size() == 1 ? 1 : 0;
    };
    if (r.flags & (kSink | kSinkFails))
        rec.on_data = [](http_progress *p, const void *data, uint32_t n) {
            auto *s = reinterpret_cast<Seen *>(p->priv[0]);
            s->out.append(static_cast<const char *>(data), n);
            return (s->flags & kSinkFails) && s->out.size() > 1024 ? -1 : 0;
        };
    http_progress_ref ref = {&rec, 0, nullptr, -1};
    http_url_param url{};
    url.param.show_progress = r.flags & (kShow | kCtrlC) ? 1 : 0;
    if (r.flags & kCtrlC) fake::device().keys = {3};
    FILE *file = r.flags & kFullDisk ? fopen("/dev/full", "w") : tmpfile();
    interpose::force_waiting_path = !fast;
    interpose::fail_calloc_bytes = r.flags & kNoMem ? (r.reader == 'H' ? 2048 : 1024) : 0;
    int rc = 0;
    if (r.reader == 'H') {
        char *head = http_read_http_response_head(fd, &url, &rc);
        seen.out = head ? head : "(null)";
        free(head);
    } else {
        rc = r.reader == 'I' ? http_fd_read_body(&url, fd, file, &ref, r.len, r.skip)
                             : http_fd_read_body_chunked(&url, fd, file, &ref, r.skip);
    }
    interpose::reset();
    done = true;
    rewind(file);
    for (int c; !(r.flags & kFullDisk) && (c = fgetc(file)) != EOF;) seen.out += static_cast<char>(c);
    fclose(file);
    std::string left;
    char c;
    for (pollfd p = {fd, POLLIN, 0}; poll(&p, 1, 5000) == 1 && recv(fd, &c, 1, 0) == 1;) left += c;
    close(fd);
    EXPECT_EQ(rc, r.rc);
    EXPECT_EQ(seen.out, r.out);
    EXPECT_EQ(r.left == "*" ? "*" : left, r.left);
    EXPECT_TRUE(r.record.empty() || fake::logged(r.record)) << r.record;
    EXPECT_EQ(r.counts.empty() ? r.counts : seen.counts, r.counts);
}

std::string letters(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>('a' + i % 26);
    return s;
}

std::string apart(const std::string &s) {  // byte by byte
    std::string out;
    for (char c : s) out += std::string(out.empty() ? "" : "|") + c;
    return out;
}

TEST(Readers, EveryCaseOnTheFastPathAndTheWaitingOne) {
    const std::string d = letters(3000), z(253, '0'), h = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\nX-A: b\r\n\r\n";
    const std::string ok = "HTTP/1.1 200 OK\r\n", fill = ok + "X-Fill: ", spell_10 = "0123456789";
    std::string spellings, spelled;
    for (const char *size : {"a", "A", "a;name=value", "0xa", "0XA", "  a", "000000000000000a"})
        spellings += std::string(size) + "\r\n" + spell_10 + "\r\n", spelled += spell_10;
    const int R = HTTP_UTIL_ERR_RECV_DATA, F = HTTP_UTIL_ERR_RSP_FORMAT, L = HTTP_UTIL_ERR_HEAD_TOO_LONG;
    const std::string closed = "[http_fd_read_body]socket closed by peer.", reset = "aborting (Connection reset by peer).";
    std::vector<ReadRow> rows = {
        {'H', h + "BODY", 0, h, "BODY"}, {'H', "ICY 200 OK\r\n\r\nxyz", 0, "", "ICY 200 OK\r\n\r\nxyz"},
        {'H', "HT|TP/1.1 200 OK\r\n\r\n", 0, ok + "\r\n", ""}, {'H', "HX", 0, "", "HX"},
        {'H', ok + "A: b\r\n\r|\nBODY", 0, ok + "A: b\r\n\r\n", "BODY"}, {'H', ok + "A: b\r|\n\r\nBODY", 0, ok + "A: b\r\n\r\n", "BODY"},
        {'H', "HTTP/1.1 200 OK\nA: b\n|\nBODY", 0, "HTTP/1.1 200 OK\nA: b\n\n", "BODY"},
        {'H', "HTTP/1.1 200 OK\nA: b|\n\nBODY", 0, "HTTP/1.1 200 OK\nA: b\n\n", "BODY"}, {'H', apart(h) + "|BODY", 0, h, "BODY"},
        {'H', "HTTP/1.1 100 Continue\r\n\r\n|HTTP/1.1 103 Early\n\n" + h + "BODY", 0, h, "BODY"},
        {'H', "$", 7, "(null)", ""}, {'H', ok + "A: b\r\n$", 7, "(null)", ""}, {'H', ok + "!", 7, "(null)", ""},
        {'H', fill + std::string(4066, 'f') + "\r\n\r\nBODY", 0, fill + std::string(4066, 'f') + "\r\n\r\n", "BODY"},
        {'H', fill + std::string(4067, 'f') + "\r\n\r\nBODY", L, "(null)", "*"}, {'H', ok + std::string(6000, 'x'), L, "(null)", "*"},
        {'H', ok, HTTP_UTIL_ERR_CANCELED, "(null)", ok, 0, 0, kCtrlC}, {'H', h, HTTP_UTIL_ERR_NOMEM, "(null)", h, 0, 0, kNoMem},
        {'I', d + "NEXT", 0, d, "NEXT", 3000, 0, 0, "", {1024, 1024, 952}}, {'I', "NEXT", 0, "", "NEXT", 0},
        {'I', d + "$", 0, d, "", -1}, {'I', d.substr(0, 1) + "|" + d.substr(1, 700) + "|" + d.substr(701), 0, d, "", 3000},
        {'I', apart(d.substr(0, 40)), 0, d.substr(0, 40), "", 40}, {'I', d.substr(0, 100) + "$", R, d.substr(0, 100), "", 2500, 0, 0, closed},
        {'I', d.substr(0, 100) + "|!", R, d.substr(0, 100), "", 2500, 0, 0, reset}, {'I', "abc!", R, "abc", "", 2500, 0, 0, reset},
        {'I', d, 0, d.substr(1500), "", 3000, 1500}, {'I', d, 0, "", "", 3000, 9000},
        {'I', d.substr(0, 2000), 0, d.substr(0, 2000), "", 2000, 1500, kSink},  // a sink has no skip
        {'I', d, HTTP_UTIL_ERR_SAVE_FILE, d.substr(0, 2048), d.substr(2048), 3000, 0, kSinkFails, "proc data fail"},
        {'I', "x", HTTP_UTIL_ERR_SAVE_FILE, "", "", 1, 0, kFullDisk, "write_data fail"},
        {'I', d, HTTP_UTIL_ERR_CANCELED, d.substr(0, 1024), d.substr(1024), 3000, 0, kCancel, "cancle by user."},
        {'I', "NEXT", HTTP_UTIL_ERR_NOMEM, "", "NEXT", 100, 0, kNoMem},
        {'C', "5\r\nhello\r\n0\r\n\r\nNEXT", 0, "hello", "\r\nNEXT"}, {'C', spellings + "0\r\n$", 0, spelled, ""},
        {'C', "bb8\r\n" + d + "\r\n0\r\n\r\n", 0, d, "\r\n", 0, 0, 0, "", {1023, 1023, 954}},
        {'C', "6\r\n|" + apart("abcdef") + "|\r\n0\r\n\r\n", 0, "abcdef", "\r\n"}, {'C', apart("3;a=b\r\nabc\r\n0\r\n"), 0, "abc", ""},
        {'C', "1|0;x=y\r|\n0123456789abcdef\r|\n0\n", 0, "0123456789abcdef", ""},
        {'C', z + "5\r\nhello\r\n0\r\n$", 0, "hello", ""}, {'C', z + "05\r\nhello\r\n0\r\n$", F, "", "*"},
        {'C', "1\r\nx\r\n" + z + "5\r\nhello\r\n0\r\n$", 0, "xhello", ""}, {'C', "1\r\nx\r\n" + z + "05\r\nhello\r\n0\r\n$", F, "x", "*"},
        {'C', "1\r\nx\r\n" + z + "005$", F, "x", "*"}, {'C', "7fffffff\r\nhello$", R, "hello", ""},
        {'C', "80000000\r\nhello$", F, "", "*", 0, 0, 0, "wrong chunk length."}, {'C', "100000000\r\nhello$", F, "", "*"},
        {'C', "xyz\r\nhello$", F, "", "*"}, {'C', "5\nhello\n0\n\n$", 0, "hello", "\n"}, {'C', "$", R, "", ""},
        {'C', "5\r\nhello\r\n1$", R, "hello", ""}, {'C', "5\r\nhello\r$", R, "hello", ""}, {'C', "5\r\nhel$", R, "hel", ""},
        {'C', "3\r\nabc!", R, "abc", ""}, {'C', "9\r\nabc!", R, "abc", "", 0, 0, 0, reset},
        {'C', "4\r\nabcd\r\n8\r\nefghijkl\r\n0\r\n\r\n", 0, "kl", "\r\n", 0, 10},
        {'C', "4\r\nabcd\r\n8\r\nefghijkl\r\n0\r\n\r\n", 0, "abcdefghijkl", "\r\n", 0, 10, kSink},
        {'C', "5\r\nhello\r\n5\r\nworld\r\n0\r\n\r\n", HTTP_UTIL_ERR_CANCELED, "hello", "\r\n5\r\nworld\r\n0\r\n\r\n", 0, 0, kCancel},
        {'C', "5\r\nhello\r\n0\r\n\r\n", HTTP_UTIL_ERR_NOMEM, "", "5\r\nhello\r\n0\r\n\r\n", 0, 0, kNoMem},
    };
    for (const ReadRow &r : rows)
        for (bool fast : {true, false}) play(r, fast);
}

// Time limits: the head's 30 seconds, the body's 31st one-second time-out in a row, and a size line's 5 seconds.
TEST(ReadersSlow, AHeadThatNeverComesGives26AfterThirtySecondsOfDots) {
    const auto t0 = std::chrono::steady_clock::now();
    play({'H', "", HTTP_UTIL_ERR_RSP_TIMEOUT, "(null)", "", 0, 0, kShow, "wait response timeout."}, false);
    EXPECT_NEAR(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 30.5, 1.5);
    EXPECT_GE(fake::device().terminal, std::string(28, '.'));
}

TEST(ReadersSlow, AStalledBodyGives9AfterThe31stTimeOut) {
    std::vector<uint32_t> counts(31, 0);
    counts[0] = 10;
    const auto t0 = std::chrono::steady_clock::now();
    play({'I', "0123456789", HTTP_UTIL_ERR_RECV_DATA, "0123456789", "", 100, 0, 0, "aborting (Connection timed out).", counts}, false);
    EXPECT_NEAR(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 31.5, 1.5);
}

TEST(ReadersSlow, AStalledSizeLineGives9AfterFiveSeconds) {
    const auto t0 = std::chrono::steady_clock::now();
    play({'C', "5\r\nhello", HTTP_UTIL_ERR_RECV_DATA, "hello", "", 0, 0, 0, "peek chunk length failed(Connection timed out)."}, false);
    EXPECT_NEAR(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 5.5, 0.7);
}

}  // namespace
