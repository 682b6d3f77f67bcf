// Response handling as callers see it: texts and heads parsed into the record and a result, and the readers.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>
#include <atomic>
#include <chrono>
#include "fake_device.h"
#include "foreign_locale.h"
#include "interpose.h"
#include "scripted_server.h"

namespace {

// Tags match ignoring case, "-" for any character, "*" for any run; star-heavy patterns once took minutes.
TEST(TagCmp, MatchesQuicklyAsItShould) {
    const std::string a(36, 'a'), s = "*a*a*a*a*a*a*a*a*a*b", cl = "Content-Length", ch = "chunked";
    const auto t0 = std::chrono::steady_clock::now();
    for (const auto &[text, pattern, hit] : std::initializer_list<std::tuple<std::string, std::string, bool>>{
             {"content-length", cl, 1}, {"CONTENT_LENGTH", cl, 1}, {"", "", 1}, {"chunked\"; q=1", ch, 1},
             {"", "*", 1}, {"a", "a*", 1}, {"ac", "a*c", 1}, {"aXbC", "a*c", 1}, {a + "b", s, 1}, {a + "xb", s, 1},
             {cl + "x", cl, 0}, {"Content-Lengt", cl, 0}, {"gzip, chunked", ch, 0}, {"\xc9T\xc9", "\xe9t\xe9", 0},
             {"abc", "a*", 1}, {"b", "a*", 0}, {"a*x", "a*", 0}, {"abd", "a*c", 0}, {"abcd", "a*c", 0}, {a, s, 0}, {"aaaaaaaa", s, 0}})
        EXPECT_EQ(http_tag_cmp(text.c_str(), pattern.c_str()) == 0, hit) << text << " ~ " << pattern;
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(500));
}

// Every form servers have used, the C library's leniencies, refusals; alike with the host's LC_TIME in German.
TEST(HttpDate, ReadsEveryFormAlikeInAnyHostLocale) {
    const time_t t = 784111777, y2068 = sizeof(time_t) > 4 ? static_cast<time_t>(3119417377) : -1;
    const std::string d = "Sun, 06 Nov 1994 ", f = "day, 06-Nov-", g = " 08:49:37 GMT";
    const std::pair<std::string, time_t> rows[] = {{d + "08:49:37 GMT", t}, {"Sun Nov  6 08:49:37 1994", t},
        {"Sun" + f + "94" + g, t}, {"Sun, 06-Nov-1994" + g, t}, {"sUNDAY,6 november 1994 8:49:37", t},
        {"Mon, 06 Nov 1994" + g, t}, {"Sun,\t06  Nov 1994 08: 49: 37 GMTx", t}, {d + "08:49:37 +01", t},
        {d + "08:49:60 GMT", t + 23}, {"Thu, 31 Feb 1994" + g, 762684577}, {"Thurs" + f + "69" + g, -4806623},
        {"Thurs" + f + "68" + g, y2068}, {d + "08:49:37 UTC", -1}, {d + "08:49:37 gmt", -1}, {d + "08:49:37 -", -1},
        {"Sun, 32 Nov 1994" + g, -1}, {d + "24:00:00 GMT", -1}, {d + "08:49 GMT", -1}, {"Sun, 06 Sept 1994" + g, -1},
        {"So, 06 Okt 1994" + g, -1}, {"", -1}};
    for (bool german : {false, true}) {
        ASSERT_TRUE(!german || peer::use_foreign_time_locale()) << peer::kForeignTimeLocale;
        for (const auto &r : rows) EXPECT_EQ(http_atotm(r.first.c_str()), r.second) << r.first << (german ? " (de)" : "");
    }
    setlocale(LC_TIME, "C");
}

std::string text_of(const http_rsp &r) {  // the status, then what differs from a fresh record
    std::string s = std::to_string(r.status) + (r.content_len != -1 ? " len " + std::to_string(r.content_len) : "") +
                    (r.chunked ? " chunked" : "") + (r.keep_alive ? " keep" : "") + (r.accept_ranges ? " ranges" : "");
    if (r.range_start || r.range_end || r.file_len)
        s += " " + std::to_string(r.range_start) + "-" + std::to_string(r.range_end) + "/" + std::to_string(r.file_len);
    s += (r.mtime != -1 ? " mtime " + std::to_string(r.mtime) : "") + (*r.new_local ? " @" + std::string(r.new_local) : "");
    return s + (*r.last_modified ? " [" + std::string(r.last_modified) + "]" : "");
}

// A head ("|": CR LF; "HTTP/1.1 " before a digit) and the file's size give a result and a record (unless "-").
TEST(ResponseHead, ParsedIntoTheRecordAndAResult) {
    const std::string o = "200 OK|", cl = o + "Content-Length:", at = o + "Location:", cr = o + "Content-Range: bytes";
    const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT", p = "206 P|Content-Range:", r = "416 R|Content-Range: bytes";
    const int P = HTTP_UTIL_ERR_RSP_FORMAT, U = HTTP_UTIL_ERR_UNEXPECTED_RSP, X = HTTP_UTIL_ERR_PROTOCOL, N = 20;
    const std::tuple<std::string, int32_t, int, std::string> rows[] = {{"HTTP/1.0 404 Not Found||", 0, 18, "404"},
        {"HTTP/2 301 Moved||", 0, 5, "301"}, {"HTTP 200 OK||", 0, 0, "200"}, {"HTTP/1.1\t302||", 0, 5, "302"},
        {"20||", 0, P, "0"}, {"2000 OK||", 0, P, "200"}, {"http/1.1 200 OK||", 0, P, "0"}, {"200 OK", 0, P, "-"},
        {cl + " 5|", 0, P, "200 len 5"}, {"200 " + std::string(499, 'K') + "||", 0, P, "-"}, {cl + " -1||", 0, P, "-"},
        {"HTTP/1.1 200 OK\nContent-Length: 5\n\nbody", 0, 0, "200 len 5"}, {cl + " 2147483648||", 0, P, "-"},
        {cl + " 1|content-length: 007||", 0, 0, "200 len 7"}, {cl + "  \t2147483647 ||", 0, 0, "200 len 2147483647"},
        {cl + " 12abc||", 0, P, "-"}, {cl + "||", 0, P, "-"}, {o + "Transfer-Encoding: gzip, chunked||", 0, 0, "200"},
        {o + "Transfer-Encoding: Chunked|Transfer-Encoding: gzip||", 0, 0, "200 chunked"},
        {o + "Connection: Keep-Alive||", 0, 0, "200 keep"}, {o + "Connection: keep-alive|Connection: close||", 0, 0, "200"},
        {o + "Connection: keep-alive|Connection: Upgrade||", 0, 0, "200 keep"}, {"2x0 OK||", 0, P, "-"}, {"20x OK||", 0, P, "-"},
        {o + "Accept-Ranges: Bytes||", 0, 0, "200"}, {o + "Accept-Ranges: bytes||", 0, 0, "200 ranges"},
        {o + "Accept-Ranges: bytes|Accept-Ranges: none||", 0, 0, "200"}, {o + "Last-Modified: soon||", 0, 0, "200 [soon]"},
        {o + "Last-Modified: " + date + " + the rest||", 0, 0, "200 mtime 784111777 [" + date + " +]"},
        {at + " \t \"http://h/a b\" \t||", 0, 0, "200 @http://h/a b"}, {at + " x\"||", 0, 0, "200 @x"},
        {o + "no colon|Location:\x01\x1f/x||", 0, 0, "200 @/x"}, {at + " \"   ||", 0, 0, "200 @ "},
        {o + "Location :/x||", 0, 0, "200"}, {at + std::string(300, 'L') + "||", 0, 0, "200 @" + std::string(255, 'L')},
        {o + "X: " + std::string(508, 'v') + "||", 0, 0, "200"}, {o + "X: " + std::string(509, 'v') + "||", 0, 0, "200"},
        {o + "Set-Cookie: " + std::string(600, 'v') + "\nContent-Length: 5\n\n", 0, 0, "200 len 5"},
        {o + "no colon " + std::string(600, 'v') + "||", 0, 0, "200"}, {cl + std::string(497, '1') + "||", 0, P, "-"},
        {at + std::string(503, 'v') + "||", 0, P, "-"}, {cr + ": 100-199/1000||", 100, 0, "200 100-199/1000"},
        {p + " 100-199/1000||", 100, 0, "206 100-199/1000"}, {p + " BYTES  100-199/*||", 100, 0, "206 100-199/-1"},
        {p + " bytes 100-199/1000||", 0, X, "-"}, {"206 P||", 0, U, "-"}, {p + " bytes 0-99/1000||", 0, U, "-"},
        {cr + " 5-9/10||", 0, X, "-"}, {cr + " */10||", 0, 0, "200 0-0/10"}, {"301 M|Content-Range: bytes 5-9/10||", 0, X, "-"},
        {cr + " 100199/1||", 0, P, "-"}, {cr + " -199/1||", 0, P, "-"}, {cr + " 100-199||", 0, P, "-"}, {cr + " ||", 0, P, "-"},
        {cr + " 1-2/x||", 0, P, "-"}, {"299 R||", 0, 0, "-"}, {"300 R||", 0, 5, "-"}, {"307 R||", 0, 5, "-"},
        {"304 R||", 0, U, "-"}, {"308 R||", 0, U, "-"}, {"199 R||", 0, U, "-"}, {"401 R||", 0, 12, "-"},
        {"403 R|Content-Range: bytes 5-9/10||", 0, 19, "-"}, {"404 R|Content-Range: bytes 5-9/10||", 0, 18, "-"},
        {r + " 5-9/10||", 0, N, "-"}, {r + " 0-0/1000||", 1000, N, "-"}, {r + " */*||", 1000, N, "-"},
        {r + " */1000||", 0, N, "-"}, {r + " */1000||", -1, N, "-"}};  // the last: a POST's reply
    http_util *u = http_create_util();
    for (const auto &[text, start, rc, record] : rows) {
        std::string head = (isdigit(text[0]) ? "HTTP/1.1 " : "") + text;
        for (size_t bar; (bar = head.find('|')) != std::string::npos;) head.replace(bar, 1, "\r\n");
        http_progress_ref ref = {nullptr, start, nullptr, -1};
        EXPECT_EQ(http_parse_http_response_head(u, &ref, head.c_str()), rc) << text.substr(0, 80);
        EXPECT_EQ(record == "-" ? "-" : text_of(u->rsp), record) << text.substr(0, 80);
    }
    http_free_util(u);
    http_rsp own = {};  // a host's own call passes the value as it stands, blanks around it
    EXPECT_EQ(http_parse_rsp_head(&own, nullptr, "Content-Length", " \t5\t "), 0);
    EXPECT_EQ(own.content_len, 5);
    char line[8];  // an empty line, as host programs read heads with it
    EXPECT_STREQ(http_getline("\r\nab", line, sizeof line), "ab");
}

enum Flags { kSink = 1, kSinkFails = 2, kCancel = 4, kFullDisk = 8, kNoMem = 16, kShow = 32, kCtrlC = 64 };
struct { int flags; std::string sink, progress; } seen;

// A reader ('H'ead, 'I'dentity or 'C'hunked body) on a reply sent in parts split at "|", each once the last was
// taken; a final "$" closes, "!" resets, else it stays open until the reader returns (a reply that waits for
// nothing is all sent first). Expected: the result; the head ("-": none) or the body, "|", what the socket holds
// then ("*": any); a failure record logged, or "progress" and the counts. Both paths unless one is given.
void play(char reader, const std::string &text, int rc, const std::string &want, int32_t len = 0, uint32_t skip = 0,
          int flags = 0, const std::string &note = "", int fast = -1) {
    if (fast < 0) return play(reader, text, rc, want, len, skip, flags, note, 1),
                         play(reader, text, rc, want, len, skip, flags, note, 0);
    SCOPED_TRACE(testing::Message() << reader << " " << text.substr(0, 40) << (fast ? ", fast path" : ""));
    fake::reset();
    std::atomic<bool> done{false};
    scripted::Server srv;
    const char end = text.empty() ? 0 : text.back();
    const std::string reply = text.substr(0, text.size() - (end == '$' || end == '!'));
    size_t at = 0;
    for (size_t bar; (bar = reply.find('|', at)) != std::string::npos; at = bar + 1)
        srv.send(reply.substr(at, bar - at)).taken();
    srv.send(reply.substr(at));
    if (end == '$') srv.close(); else if (end == '!') srv.reset(); else srv.wait_until([&] { return done.load(); });
    srv.start();
    const int fd = srv.connect_client();
    if ((end == '$' || end == '!') && at == 0) srv.wait();
    seen = {flags, "", "progress"};
    http_progress rec{};
    rec.on_progress = [](http_progress *, uint32_t n) {
        return seen.progress += " " + std::to_string(n), seen.flags & kCancel && n ? 1 : 0;
    };
    rec.on_data = [](http_progress *, const void *data, uint32_t n) {
        seen.sink.append(static_cast<const char *>(data), n);
        return seen.flags & kSinkFails && seen.sink.size() > 1024 ? -1 : 0;
    };
    if (!(flags & (kSink | kSinkFails))) rec.on_data = nullptr;
    http_progress_ref ref = {&rec, 0, nullptr, -1};
    http_url_param url{};
    url.param.show_progress = flags & (kShow | kCtrlC) ? 1 : 0;
    fake::device().keys = {flags & kCtrlC ? 3 : -1};
    FILE *file = flags & kFullDisk ? fopen("/dev/full", "w") : tmpfile();
    interpose::force_waiting_path = !fast;
    interpose::fail_calloc_bytes = flags & kNoMem ? (reader == 'H' ? 2048 : 1024) : 0;
    int got = 0;
    char *head = reader == 'H' ? http_read_http_response_head(fd, &url, &got) : nullptr;
    if (reader != 'H')
        got = reader == 'I' ? http_fd_read_body(&url, fd, file, &ref, len, skip)
                            : http_fd_read_body_chunked(&url, fd, file, &ref, skip);
    interpose::reset(), done = true;
    std::string out = reader != 'H' ? seen.sink : head ? head : "-", left;
    free(head), rewind(file);
    for (int c; !(flags & kFullDisk) && (c = fgetc(file)) != EOF;) out += static_cast<char>(c);
    char c;
    for (pollfd p = {fd, POLLIN, 0}; poll(&p, 1, 5000) == 1 && recv(fd, &c, 1, 0) == 1;) left += c;
    fclose(file), close(fd);
    EXPECT_EQ(got, rc);
    EXPECT_EQ(out + "|" + (want.back() == '*' ? "*" : left), want);
    EXPECT_TRUE(note.empty() || fake::logged(note) || seen.progress == note) << note << ", " << seen.progress;
}

TEST(Readers, GiveTheResultTheBytesAndLeaveTheRest) {
    std::string d, sizes, data, x = "HTTP/1.1 200 OK\r\nX: " + std::string(4071, 'x') + "\r\n\r\n";  // 4095 bytes
    for (int i = 0; i < 3000; ++i) d += static_cast<char>('a' + i % 26);
    for (const char *size : {"a", "A", "a;name=value", "0xa", "0XA", "  a", "000000000000000a"})
        sizes += std::string(size) + "\r\n0123456789\r\n", data += "0123456789";
    const std::string z(253, '0'), ok = "HTTP/1.1 200 OK\r\n", h = ok + "A: b\r\n\r\n", e = "5\r\nhello\r\n0\r\n\r\n";
    const std::string two = "4\r\nabcd\r\n8\r\nefghijkl\r\n0\r\n\r\n", reset = "aborting (Connection reset by peer).";
    const int R = HTTP_UTIL_ERR_RECV_DATA, F = HTTP_UTIL_ERR_RSP_FORMAT, Q = HTTP_UTIL_ERR_CANCELED, M = 1, S = 23;
    play('H', h + "BODY", 0, h + "|BODY"), play('H', "HX", 0, "|HX"), play('H', x + "B", 0, x + "|B");
    play('H', "ICY 200 OK\r\n\r\nxyz", 0, "|ICY 200 OK\r\n\r\nxyz"), play('H', "HT|TP/1.1 200 OK\r\n\r\n", 0, ok + "\r\n|");
    play('H', ok + "A: b\r\n\r|\nBODY", 0, h + "|BODY"), play('H', ok + "A: b\r\n$", 7, "-|"), play('H', ok + "!", 7, "-|");
    play('H', ok + "Y" + x.substr(17), 27, "-|*"), play('H', ok, Q, "-|" + ok, 0, 0, kCtrlC), play('H', "$", 7, "-|");
    play('H', h, M, "-|" + h, 0, 0, kNoMem), play('I', "NEXT", 0, "|NEXT", 0), play('I', d + "$", 0, d + "|", -1);
    play('I', d + "NEXT", 0, d + "|NEXT", 3000, 0, 0, "progress 1024 1024 952"), play('I', "a|b|c", 0, "abc|", 3);
    play('I', "abc$", R, "abc|", 2500, 0, 0, "[http_fd_read_body]socket closed by peer.");
    play('I', "abc|!", R, "abc|", 2500, 0, 0, reset), play('I', "abc!", R, "abc|", 2500, 0, 0, reset);
    play('I', d, 0, d.substr(1500) + "|", 3000, 1500), play('I', d, 0, "|", 3000, 9000);
    play('I', d.substr(0, 2000), 0, d.substr(0, 2000) + "|", 2000, 1500, kSink);  // a sink has no skip
    play('I', d, S, d.substr(0, 2048) + "|" + d.substr(2048), 3000, 0, kSinkFails, "proc data fail");
    play('I', d, Q, d.substr(0, 1024) + "|" + d.substr(1024), 3000, 0, kCancel, "cancle by user.");
    play('I', "x", S, "|", 1, 0, kFullDisk, "write_data fail"), play('I', "NEXT", M, "|NEXT", 100, 0, kNoMem);
    play('C', e + "NEXT", 0, "hello|\r\nNEXT"), play('C', sizes + "0\r\n$", 0, data + "|");
    play('C', "bb8\r\n" + d + "\r\n0\r\n\r\n", 0, d + "|\r\n", 0, 0, 0, "progress 1023 1023 954");
    play('C', "3;|a=b\r|\na|bc\r|\n0\r\n", 0, "abc|"), play('C', z + "5\r\nhello\r\n0\r\n$", 0, "hello|");
    play('C', z + "05\r\nhello\r\n0\r\n$", F, "|*"), play('C', "1\r\nx\r\n" + z + "5\r\nhello\r\n0\r\n$", 0, "xhello|");
    play('C', "1\r\nx\r\n" + z + "05\r\nhello$", F, "x|*"), play('C', "1\r\nx\r\n" + z + "005$", F, "x|*");
    play('C', "7fffffff\r\nhello$", R, "hello|"), play('C', "80000000\r\nhello$", F, "|*", 0, 0, 0, "wrong chunk length.");
    play('C', "100000000\r\nhello$", F, "|*"), play('C', "xyz\r\nhello$", F, "|*"), play('C', "5\nhello\n0\n\n$", 0, "hello|\n");
    play('C', "$", R, "|"), play('C', "5\r\nhello\r\n1$", R, "hello|"), play('C', "5\r\nhello\r$", R, "hello|");
    play('C', "5\r\nhel$", R, "hel|"), play('C', "3\r\nabc!", R, "abc|"), play('C', "9\r\nabc!", R, "abc|", 0, 0, 0, reset);
    play('C', two, 0, "efghijkl|\r\n", 0, 4), play('C', two, 0, "kl|\r\n", 0, 10), play('C', two, 0, "abcdefghijkl|\r\n", 0, 10, kSink);
    play('C', e, M, "|" + e, 0, 0, kNoMem);
    play('C', "5\r\nhello\r\n5\r\nworld\r\n0\r\n\r\n", Q, "hello|\r\n5\r\nworld\r\n0\r\n\r\n", 0, 0, kCancel);
}

// The head's deadline counts whole seconds of the monotonic clock, so it ends 29 to 30 s after the call.
TEST(ReadersSlow, WaitsEndAtTheirLimits) {
    std::string counts = "progress 10";
    for (int i = 0; i < 30; ++i) counts += " 0";
    for (const char *text : {"", "0123456789"}) {
        const auto t0 = std::chrono::steady_clock::now();
        if (*text) play('I', text, 9, std::string(text) + "|", 100, 0, 0, counts, 0);
        else play('H', text, 26, "-|", 0, 0, kShow, "wait response timeout.", 0);
        EXPECT_NEAR(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), *text ? 31.5 : 30.35, *text ? 1.2 : 1.35);
        EXPECT_GE(fake::device().terminal, *text ? "" : std::string(28, '.'));
    }
}

}  // namespace
