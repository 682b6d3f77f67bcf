// Downloads, copies and uploads against a scripted server. A case is, for each connection, the request
// expected and the bytes the server answers (then it closes; kKeep: it reads until the client closes), and
// the result and file expected after the call. Each case is played with CR LF and with bare LF line ends,
// with and without the readiness fast path, whole and, where marked, with its first answer cut in two at
// every byte (the second part is sent once the first has been taken).
#include <errno.h>
#include <gtest/gtest.h>
#include <utime.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>
#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"
#include "scripted_server.h"
#include "temp_dir.h"

namespace {

using files::pattern, files::read_file;

const std::string kNone = "(none)", kDir = "(folder)", kKeep = "(keep)";
constexpr int64_t kAny = -2;
constexpr time_t kTime = 784111777;  // the time of every file's Last-Modified below
const std::string kLm = "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n";
const std::string kOtherLm = "Last-Modified: Mon, 07 Nov 1994 08:49:37 GMT\r\n";
const std::string kChunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

std::string head(size_t len, const std::string &fields = "") {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(len) + "\r\n" + fields + "\r\n";
}
std::string ok(const std::string &body, const std::string &fields = "") { return head(body.size(), fields) + body; }
std::string status(const std::string &code, const std::string &fields = "") {
    return "HTTP/1.1 " + code + "\r\n" + fields + "Content-Length: 0\r\n\r\n";
}
std::string moved(const std::string &to) { return status("302 Found", "Location: " + to + "\r\n"); }
std::string ranged(const std::string &range, size_t len, const std::string &body, const std::string &fields = "") {
    return "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + range + "\r\nContent-Length: " +
           std::to_string(len) + "\r\n" + fields + "\r\n" + body;
}
std::string refused(const std::string &fields, const std::string &body = "nope.") {
    return "HTTP/1.1 416 Range Not Satisfiable\r\n" + fields + "Content-Length: 5\r\n\r\n" + body;
}
// The second half of a 2000-byte file, as a 206 answer to bytes=1000-.
std::string second_half(const std::string &fields = "") { return ranged("1000-1999/2000", 1000, pattern(1000, 1000), fields); }

// ask: the target, then the Range if any; in reply "{host}" is the server's.
struct Exchange { std::string ask, reply; };

struct Case {
    const char *name;
    std::vector<Exchange> exchanges;  // one per connection
    int result;
    std::string file;  // the local file after the call, or kNone
    std::string local = kNone;   // the local file before the call (with the time kTime), kNone or kDir
    std::string path = "/f.bin";  // of the URL
    // d: download; n: download with no local name given, the file named
    // after the URL; c: copy; p: copy posting a file, the reply saved; u: raw
    // upload of that file, the reply saved unless there is no local file.
    char via = 'd';
    int tries = 0;
    std::string log = "";  // a record that a failure table names; "%" is the local path
    int64_t total = kAny;    // the size the progress record was given
    bool cut = false;
    bool check_time = true;  // the option that drops a partial file of another version
    std::function<void(const std::string &local)> fault = {};  // arms an injected fault
};

std::vector<Case> cases() {
    const std::string ext = ";name=" + std::string(34, 'x');  // 40 characters
    std::string cookies;
    for (int i = 0; i < 4; ++i) cookies += "Set-Cookie: c" + std::to_string(i) + "=" + std::string(1000, 'c') + "\r\n";
    const std::string p1000 = pattern(1000), old = "old contents";
    std::vector<Case> all = {
        {"length", {{"/f.bin", ok("hello")}}, 0, "hello", kNone, "/f.bin", 'd', 0, "", 5},
        {"chunks", {{"/f.bin", kChunked + "5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n"}}, 0, "hello world", kNone, "/f.bin", 'd', 0, "", 0, true},
        {"chunk extension of 40 characters", {{"/f.bin", kChunked + "5" + ext + "\r\nhello\r\n6\r\n world\r\n0\r\n\r\n"}}, 0, "hello world", kNone, "/f.bin", 'd', 0, "", kAny, true},
        {"two interim heads", {{"/f.bin", "HTTP/1.1 100\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: </s.css>; rel=preload\r\n\r\n" + ok("hello")}}, 0, "hello", kNone, "/f.bin", 'd', 0, "", kAny, true},
        {"head of more than 4095 bytes", {{"/f.bin", ok("hello", cookies)}}, HTTP_UTIL_ERR_HEAD_TOO_LONG, kNone},
        {"closed inside a size line", {{"/f.bin", kChunked + "5\r\nhello\r\n1"}}, HTTP_UTIL_ERR_RECV_DATA, "hello", kNone, "/f.bin", 'd', 0, "", kAny, true},
        {"closed inside the body, Last-Modified kept", {{"/f.bin", head(5000, kLm) + pattern(100)}}, HTTP_UTIL_ERR_RECV_DATA, pattern(100)},
        {"kept alive, closed with the handle", {{"/f.bin", ok("hello", "Connection: keep-alive\r\n") + kKeep}}, 0, "hello"},
        {"no length, read to the close", {{"/f.bin", "HTTP/1.1 200 OK\r\n\r\n" + pattern(700)}}, 0, pattern(700), kNone, "/f.bin", 'd', 0, "", 0},
        // A partial file is resumed, whatever the server makes of the Range.
        {"resumed", {{"/f.bin bytes=1000-", second_half()}}, 0, pattern(2000), p1000, "/f.bin", 'd', 0, "", 2000},
        {"Range ignored", {{"/f.bin bytes=1000-", ok(pattern(2000))}}, 0, pattern(2000), p1000},
        {"span below Content-Length", {{"/f.bin bytes=1000-", ranged("1000-1999/5000", 2000, pattern(1000, 1000))}}, 0, pattern(2000), p1000, "/f.bin", 'd', 0, "", 5000},
        {"span above Content-Length", {{"/f.bin bytes=1000-", ranged("1000-1999/5000", 500, pattern(500, 1000))}}, 0, pattern(1500), p1000, "/f.bin", 'd', 0, "", 5000},
        {"file shorter than the range end", {{"/f.bin bytes=1000-", ranged("1000-1999/1500", 1000, pattern(1000, 1000))}}, 0, pattern(2000), p1000, "/f.bin", 'd', 0, "", 1999},
        {"unknown complete length", {{"/f.bin bytes=1000-", ranged("1000-1999/*", 1000, pattern(1000, 1000))}}, 0, pattern(2000), p1000, "/f.bin", 'd', 0, "", 0xffffffffLL},
        // Another version on the server: the partial file goes, uncounted.
        {"changed on the server", {{"/f.bin bytes=1000-", second_half(kOtherLm)}, {"/f.bin", ok(pattern(2000), kOtherLm)}}, 0, pattern(2000), pattern(1000, 500), "/f.bin", 'd', 0, "unlink %."},
        {"changed, unchecked: appended", {{"/f.bin bytes=1000-", second_half(kOtherLm)}}, 0, pattern(2000), p1000, "/f.bin", 'd', 0, "", kAny, false, false},
        // A partial file that cannot be deleted would be found again by every restart.
        {"changed, undeletable", {{"/f.bin bytes=1000-", second_half(kOtherLm)}}, HTTP_UTIL_ERR_SAVE_FILE, p1000, p1000, "/f.bin", 'd', 0,
         "Cannot write to % (Operation not permitted).", kAny, false, true, [](const std::string &f) { interpose::fail_unlink_path = f; }},
        {"changed, one byte present", {{"/f.bin bytes=1-", ranged("1-1999/2000", 1999, pattern(1999, 1), kOtherLm)}, {"/f.bin", ok(pattern(2000), kLm)}}, 0, pattern(2000), "x"},
        // A 416 to a Range from the end of the server's file: the local file is whole,
        // unless it is longer or another version.
        {"416, whole", {{"/f.bin bytes=1000-", refused("Content-Range: bytes */1000\r\n" + kLm)}}, 0, p1000, p1000},
        {"416, another version", {{"/f.bin bytes=1000-", refused("Content-Range: bytes */1000\r\n" + kOtherLm)}, {"/f.bin", ok(pattern(1000, 3), kLm)}}, 0, pattern(1000, 3), p1000},
        {"416, longer", {{"/f.bin bytes=1500-", refused("Content-Range: bytes */1000\r\n")}, {"/f.bin", ok(p1000, kLm)}}, 0, p1000, pattern(1500)},
        {"416, shorter", {{"/f.bin bytes=500-", refused("Content-Range: bytes */1000\r\n")}}, HTTP_UTIL_ERR_RANGE, pattern(500), pattern(500)},
        {"416 without Content-Range", {{"/f.bin bytes=1000-", refused("")}}, HTTP_UTIL_ERR_RANGE, p1000, p1000},
        // What is retried and what is not.
        {"closed before answering", {{"/f.bin", ""}, {"/f.bin", ""}, {"/f.bin", ""}}, HTTP_UTIL_ERR_RECV_RSP, kNone, kNone, "/f.bin", 'd', 2, "Giving up."},
        {"closed inside the body, then resumed", {{"/f.bin", head(3000) + pattern(459)}, {"/f.bin bytes=459-", ranged("459-2999/3000", 2541, pattern(2541, 459))}}, 0, pattern(3000), kNone, "/f.bin", 'd', 1, "Retrying."},
        {"404", {{"/f.bin", status("404 Not Found")}}, HTTP_UTIL_ERR_NOT_FOUND, kNone, kNone, "/f.bin", 'd', 3, "unknow"},
        {"401", {{"/f.bin", status("401 Unauthorized")}}, HTTP_UTIL_ERR_UNAUTHORIZED, kNone, kNone, "/f.bin", 'd', 3, "Fatal errors just return from the function"},
        {"304", {{"/f.bin", status("304 Not Modified")}}, HTTP_UTIL_ERR_UNEXPECTED_RSP, kNone, kNone, "/f.bin", 'd', 3, "Fatal errors just return from the function"},
        {"a folder at the local path", {{"/f.bin", ok("hello")}}, HTTP_UTIL_ERR_SAVE_FILE, kDir, kDir, "/f.bin", 'd', 3, "Cannot write to % (Is a directory)."},
        // Redirections that cannot be followed.
        {"to another scheme", {{"/f.bin", moved("https://127.0.0.1/b.bin")}}, HTTP_UTIL_ERR_NOT_HTTP, kNone},
        {"to a URL of more than 255 characters", {{"/f.bin", moved(std::string(240, 'x'))}}, HTTP_UTIL_ERR_URL_FORMAT, kNone},
        {"to a path of more than 255 characters", {{"/f.bin", moved("/" + std::string(240, 'x'))}}, HTTP_UTIL_ERR_URL_FORMAT, kNone},
        {"to a network path with no path", {{"/f.bin", moved("//{host}")}, {"/", ok("B")}}, 0, "B"},
        {"spaces", {{"/a%20dir/b%20c.bin?q=x%20y", ok("ok")}}, 0, "ok", kNone, "/a dir/b c.bin?q=x y", 'n'},
        // Copies replace the destination only with a whole download.
        {"copy", {{"/f.bin", ok(pattern(3000), kLm)}}, 0, pattern(3000), old, "/f.bin", 'c'},
        {"copy of a 404", {{"/f.bin", status("404 Not Found")}}, HTTP_UTIL_ERR_NOT_FOUND, old, old, "/f.bin", 'c'},
        {"copy cut short", {{"/f.bin", head(3000) + pattern(1500)}}, HTTP_UTIL_ERR_RECV_DATA, old, old, "/f.bin", 'c'},
        {"copy of a non-ASCII URL", {}, HTTP_UTIL_ERR_URL_NOT_ASCII, old, old, "/caf\xc3\xa9.bin", 'c'},
        {"copy of a URL with byte 128", {}, HTTP_UTIL_ERR_URL_NOT_ASCII, old, old, "/a\x80.bin", 'c'},
        {"copy over a folder", {{"/f.bin", ok("ok")}}, HTTP_UTIL_ERR_SAVE_FILE, kDir, kDir, "/f.bin", 'c'},
        {"copy, data not synced", {{"/f.bin", ok("ok")}}, HTTP_UTIL_ERR_SAVE_FILE, old, old, "/f.bin", 'c', 0, "", kAny, false, true,
         [](const std::string &) { interpose::fail_fsync_errno = EIO; }},
        {"copy, no free temporary name", {}, HTTP_UTIL_ERR_SAVE_FILE, old, old, "/f.bin", 'c', 0, "", kAny, false, true,
         [](const std::string &f) { interpose::taken_prefix = f + "."; }},
        {"copy posting a file", {{"/p%20q", ok("reply")}}, 0, "reply", old, "/p q", 'p'},
        // Uploads save the reply of a success only.
        {"upload", {{"/up", ok("ok")}}, 0, "ok", old, "/up", 'u'},
        {"upload, 201", {{"/up", "HTTP/1.1 201 Created\r\nContent-Length: 5\r\n\r\nmade!"}}, HTTP_UTIL_ERR_NOT_OK, "made!", old, "/up", 'u'},
        {"upload, chunked reply", {{"/up", kChunked + "3\r\nabc\r\n0\r\n\r\n"}}, 0, "abc", old, "/up", 'u'},
        {"upload, reply to the close", {{"/up", "HTTP/1.1 200 OK\r\n\r\nto the end"}}, 0, "to the end", old, "/up", 'u'},
        {"upload, 404", {{"/up", status("404 Not Found")}}, HTTP_UTIL_ERR_NOT_FOUND, old, old, "/up", 'u', 0, "parse head result: Server response: Not Found."},
        {"upload, 403 without length", {{"/up", "HTTP/1.1 403 Forbidden\r\n\r\n"}}, HTTP_UTIL_ERR_FORBIDDEN, old, old, "/up", 'u'},
        {"upload, no answer", {{"/up", ""}}, HTTP_UTIL_ERR_RECV_RSP, old, old, "/up", 'u'},
        {"upload, reply cut short", {{"/up", head(10) + "abc"}}, HTTP_UTIL_ERR_RECV_DATA, "abc", old, "/up", 'u'},
        {"upload, reply left unread unless saved", {{"/up", head(100000) + kKeep}}, 0, kNone, kNone, "/up", 'u'},
    };
    // Regression: such a length read as 0 and replaced the destination with nothing.
    for (const char *length : {"zzz", "-1", "12abc", "99999999999"})
        all.push_back({length, {{"/f.bin", "HTTP/1.1 200 OK\r\nContent-Length: " + std::string(length) + "\r\n\r\n" + pattern(100)}},
                       HTTP_UTIL_ERR_RSP_FORMAT, old, old, "/f.bin", 'c'});
    // Five redirections are followed, absolute and relative alike; the sixth is refused.
    Case chain = {"six redirections", {}, HTTP_UTIL_ERR_REDIRECT, kNone, kNone, "/r0"};
    for (int k = 0; k < 6; ++k)
        chain.exchanges.push_back({"/r" + std::to_string(k), moved((k % 2 ? "/r" : "http://{host}/r") + std::to_string(k + 1))});
    all.push_back(chain);
    // Relative Locations resolve against the URL asked for, which names the file.
    const std::pair<const char *, const char *> locations[] = {
        {"/abs/b.bin", "/abs/b.bin"}, {"b.bin", "/d1/d2/b.bin"}, {"../up.bin", "/d1/up.bin"},
        {"./c/./e/../f.bin", "/d1/d2/c/f.bin"}, {"../../../../top.bin", "/top.bin"}, {"/abs/./b/../c.bin", "/abs/c.bin"},
        {"?q=2", "/d1/d2/a.bin?q=2"}, {"b.bin?y=1", "/d1/d2/b.bin?y=1"}, {"//{host}/x/n.bin", "/x/n.bin"},
        {"http://{host}/dir/b.bin", "/dir/b.bin"}};
    for (const auto &l : locations)
        all.push_back({l.first, {{"/d1/d2/a.bin?x=1", moved(l.first)}, {l.second, ok("B")}}, 0, "B", kNone, "/d1/d2/a.bin?x=1", 'n'});
    return all;
}

std::string replaced(std::string s, const std::string &from, const std::string &to) {
    for (size_t at = 0; (at = s.find(from, at)) != std::string::npos; at += to.size()) s.replace(at, from.size(), to);
    return s;
}

// The name a download without a local name saves under: the last segment
// of the target, without the query, spaces back.
std::string saved_name(const std::string &target) {
    std::string name = target.substr(0, target.find('?'));
    return replaced(name.substr(name.rfind('/') + 1), "%20", " ");
}

// A raw upload of post, its reply saved to save.
int upload(const std::string &url, const std::string &post, const char *save, http_util_param *param) {
    int err = 0;
    http_url_param *rec = http_create_url_param(url.c_str(), &err, param, 0, nullptr);
    rec->multipart = 0;
    const int rc = http_post_loop(rec, post.c_str(), save);
    free(rec);
    return rc;
}

std::string request(const Case &c, const Exchange &e, const std::string &host) {
    const size_t blank = e.ask.find(' ');
    const std::string target = e.ask.substr(0, blank);
    if (c.via == 'p' || c.via == 'u')
        return "POST " + target + " HTTP/1.1\r\nHost: " + host +
               "\r\nContent-Type: application/octet-stream\r\nAccept: */*\r\nContent-Length: 7\r\n\r\npayload";
    return "GET " + target + " HTTP/1.1\r\nHost: " + host + "\r\n" +
           (blank == std::string::npos ? "" : "Range: " + e.ask.substr(blank + 1) + "\r\n") + "Accept: */*\r\n\r\n";
}

// Pauses are recorded, not waited for; no descriptor outlives a test.
class Wire : public testing::Test {
protected:
    void SetUp() override {
        interpose::skip_pauses = true;
        (void)scripted::unused_port();
        fds_ = files::open_fds();
    }
    void TearDown() override { EXPECT_EQ(files::open_fds(), fds_) << "a descriptor was left open"; }

    void play(const Case &c, bool lf, size_t cut, bool fast) {
        SCOPED_TRACE(testing::Message() << c.name << (lf ? ", LF" : ", CR LF") << (fast ? ", fast path" : ", waiting path")
                                        << ", cut at " << cut);
        fake::device().logs.clear();
        TempDir dir;
        const std::string f = dir.file("f.bin"), host = "127.0.0.1:";
        const utimbuf t = {kTime, kTime};
        const int made = c.local == kNone ? 0 : c.local == kDir ? mkdir(f.c_str(), 0755) : (files::write_file(f, c.local), utime(f.c_str(), &t));
        ASSERT_EQ(made, 0);
        scripted::Server srv;
        for (size_t i = 0; i < c.exchanges.size(); ++i) {
            std::string r = replaced(c.exchanges[i].reply, "{host}", host + std::to_string(srv.port()));
            const bool keep = r.find(kKeep) != std::string::npos;
            r = r.substr(0, r.find(kKeep));
            if (lf) r = replaced(r, "\r\n", "\n");
            if (i > 0) srv.next_connection();
            srv.read_request();
            if (i == 0 && cut < r.size()) srv.send(r.substr(0, cut)).taken();
            srv.send(i == 0 && cut < r.size() ? r.substr(cut) : r);
            keep ? srv.read_until_close() : srv.close();
        }
        if (!c.exchanges.empty()) srv.start();  // else a connection is refused at once
        http_progress progress{};
        http_util_param param{};
        param.max_redirect = 5, param.show_progress = 2;
        const std::string post = c.via == 'p' || c.via == 'u' ? dir.write("post.txt", "payload") : "";
        if (c.via == 'p') snprintf(param.post_file, sizeof param.post_file, "%s", post.c_str());
        const std::string url = srv.url(c.path);
        g_http_opt.timestamp_check = c.check_time;
        interpose::reset(), interpose::skip_pauses = true;
        if (c.fault) c.fault(f);
        interpose::force_waiting_path = !fast;
        const std::filesystem::path back = std::filesystem::current_path();
        if (c.via == 'n') std::filesystem::current_path(dir.path());  // where a call given no local file saves
        const int rc = c.via == 'd'   ? http_download_file_progress(&progress, url.c_str(), f.c_str(), c.tries)
                       : c.via == 'n' ? http_download_file_progress(&progress, url.c_str(), nullptr, 0)
                       : c.via == 'u' ? upload(url, post, c.local == kNone ? nullptr : f.c_str(), &param)
                                      : http_util_copy(url.c_str(), f.c_str(), &param);
        interpose::force_waiting_path = false;
        std::filesystem::current_path(back);
        EXPECT_EQ(rc, c.result);
        ASSERT_TRUE(c.exchanges.empty() || srv.wait());
        ASSERT_EQ(srv.connections(), c.exchanges.size());
        for (size_t i = 0; i < c.exchanges.size(); ++i)
            EXPECT_EQ(srv.request(i), request(c, c.exchanges[i], host + std::to_string(srv.port()))) << "connection " << i;
        const std::string name = c.via == 'n' && !c.exchanges.empty() ? saved_name(c.exchanges.back().ask) : "f.bin";
        std::vector<std::string> names = dir.entries(), want(c.file != kNone, name);
        if (!post.empty()) want.push_back("post.txt");  // sorts after f.bin
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, want) << "a stray or temporary file";
        if (c.file != kNone && c.file != kDir) {
            const std::string got = read_file(dir.file(name));
            EXPECT_TRUE(got == c.file) << "the file holds " << got.size() << " bytes, not the " << c.file.size() << " expected";
            const bool stamped = c.file == c.local || (!c.exchanges.empty() && c.exchanges.back().reply.find(kLm) != std::string::npos);
            EXPECT_EQ(files::mtime_of(dir.file(name)) == kTime, stamped) << "the file's time";
        }
        EXPECT_TRUE(c.total == kAny || progress.total == static_cast<uint32_t>(c.total)) << progress.total;
        EXPECT_TRUE(c.log.empty() || fake::logged(replaced(c.log, "%", f))) << c.log;
        EXPECT_EQ(fake::device().terminal, "");
    }

private:
    std::set<std::string> fds_;
};

TEST_F(Wire, EveryCaseEitherLineEndEitherPathWholeAndCut) {
    for (const Case &c : cases())
        for (bool lf : {false, true})
            for (bool fast : {true, false}) {
                play(c, lf, std::string::npos, fast);
                const size_t size = c.exchanges.empty() ? 0 : c.exchanges[0].reply.size();
                for (size_t cut = 1; c.cut && cut < size; ++cut) play(c, lf, cut, fast);
            }
}

// Cut to 32 bits, the size of a 2 GiB file would ask for no Range, and that
// of a 4 GiB one for the wrong one, and the answer would be appended to it.
// Sparse files take no room.
TEST_F(Wire, PartialFileOfTwoGibibytesIsNotResumedFromACutDownOffset) {
    TempDir dir;
    const std::string f = dir.file("f.bin");
    for (long long size : {1LL << 31, (1LL << 32) + 1000}) {
        SCOPED_TRACE(size);
        files::write_file(f, "");
        if (truncate(f.c_str(), static_cast<off_t>(size)) != 0) GTEST_SKIP() << "no sparse file of " << size << " bytes";
        scripted::Server srv;
        srv.read_request().send(ok("hello"));
        srv.start();
        EXPECT_EQ(http_download_file_ntry(srv.url("/f.bin").c_str(), f.c_str(), 3), HTTP_UTIL_ERR_SAVE_FILE);
        EXPECT_EQ(srv.connections(), 0u) << "nothing sent";
        struct stat st;
        EXPECT_TRUE(stat(f.c_str(), &st) == 0 && st.st_size == size) << "the file is left alone";
        EXPECT_TRUE(fake::logged("Cannot write to " + f + " (File too large)."));
    }
}

// Refused before any look-up or connection.
TEST_F(Wire, CallsRefusedBeforeAnyConnection) {
    http_util_param p{};
    const std::string l255(255, 'a'), l256(256, 'a'), u256 = "http://h/" + std::string(247, 'u');
    const char *const url = "http://files.example/a.bin";
    const uint32_t block[] = {HTTP_UTIL_TLV_SRC_IP, 3, 0x0100007f, 0, 0};  // a wrong length
    const std::pair<std::function<int()>, int> rows[] = {
        {[] { return http_download_file(nullptr, "x"); }, HTTP_UTIL_ERR_PARAM},
        {[] { return http_mgnt_download_file_progress_byname(nullptr, nullptr, "x", 0, "mgmt0"); }, HTTP_UTIL_ERR_PARAM},
        {[&] { return http_download_file_progress(nullptr, url, "x", -3); }, HTTP_UTIL_ERR_PARAM},
        {[&] {  // the calls without a count read the option at the moment of the call
             g_http_opt.ntry = -1;
             return http_download_file(url, "x");
         }, HTTP_UTIL_ERR_PARAM},
        {[&] {
             int err = 0;
             return http_create_url_param(url, &err, nullptr, 0, nullptr) == nullptr ? err : 0;
         }, HTTP_UTIL_ERR_PARAM},
        {[&] { return http_util_copy(nullptr, "b", &p); }, HTTP_UTIL_ERR_PARAM},
        {[&] { return http_util_copy(url, nullptr, &p); }, HTTP_UTIL_ERR_PARAM},
        {[&] { return http_util_copy(url, "b", nullptr); }, HTTP_UTIL_ERR_PARAM},
        // The length is checked before the direction.
        {[&] { return http_util_copy(l255.c_str(), "/tmp/b", &p); }, HTTP_UTIL_ERR_NOT_SUPPORTED},
        {[&] { return http_util_copy(l256.c_str(), url, &p); }, HTTP_UTIL_ERR_PARAM_TOO_LONG},
        {[&] { return http_util_copy("/tmp/a", u256.c_str(), &p); }, HTTP_UTIL_ERR_PARAM_TOO_LONG},
        {[&] { return http_util_copy("ftp://h/a", "/tmp/b", &p); }, HTTP_UTIL_ERR_NOT_SUPPORTED},
        {[&] { return http_util_copy("/tmp/a", "http://h\xc3\xa9/b", &p); }, HTTP_UTIL_ERR_URL_NOT_ASCII},
        {[&] { return http_upload_file(url, nullptr); }, HTTP_UTIL_ERR_PARAM},
        {[&] { return http_upload_file(nullptr, "x"); }, HTTP_UTIL_ERR_PARAM},
        {[&] { return http_upload_param(url, "x", nullptr, 0, nullptr); }, HTTP_UTIL_ERR_PARAM},
        {[&] { return http_upload_file("ftp://h/x", "x"); }, HTTP_UTIL_ERR_NOT_HTTP},
        {[&] { return http_upload_file_tlv(url, "x", block); }, HTTP_UTIL_ERR_PARAM},
        {[&] { return http_upload_file("http://h/a\rX-Injected: 1", "x"); }, HTTP_UTIL_ERR_URL_FORMAT},
        {[] { return http_util_generate_tmpname(nullptr) == nullptr ? 0 : -1; }, 0},
        {[] { return touch("/nonexistent/f.bin", kTime), access("/nonexistent/f.bin", F_OK); }, -1},
    };
    for (const auto &r : rows) EXPECT_EQ(r.first(), r.second) << "row " << &r - rows;
    EXPECT_TRUE(fake::device().resolver_calls.empty());
    EXPECT_EQ(p.show_progress, 0) << "nothing changed before a transfer";
}

class WireSlow : public Wire {};

// The size line's end must come within the 5 seconds that its first byte
// had; the wait for it sleeps.
TEST_F(WireSlow, ASizeLineThatNeverEndsGives25AfterFiveSeconds) {
    TempDir dir;
    std::atomic<bool> done{false};
    scripted::Server srv;
    srv.read_request().send(kChunked + "5\r\nhello\r\n1").wait_until([&] { return done.load(); });
    srv.start();
    const auto t0 = std::chrono::steady_clock::now();
    timespec cpu0, cpu1;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu0);
    EXPECT_EQ(http_download_file_ntry(srv.url("/f.bin").c_str(), dir.file("f.bin").c_str(), 3), HTTP_UTIL_ERR_RSP_FORMAT);
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu1);
    EXPECT_LT(cpu1.tv_sec - cpu0.tv_sec + (cpu1.tv_nsec - cpu0.tv_nsec) / 1e9, 0.5) << "CPU time used while waiting";
    EXPECT_NEAR(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 5.7, 0.8);
    done = true;
    EXPECT_EQ(read_file(dir.file("f.bin")), "hello");
    EXPECT_EQ(srv.connections(), 1u) << "not retried";
}

// Two retries wait two pauses of one second, really.
TEST_F(WireSlow, TwoRetriesWaitTwoPauses) {
    interpose::skip_pauses = false;
    g_http_opt.wait = 1;
    const std::string url = "http://127.0.0.1:" + std::to_string(scripted::unused_port()) + "/f.bin";
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(http_download_file_ntry(url.c_str(), "/nonexistent/f.bin", 2), HTTP_UTIL_ERR_CONNECT);
    const auto took = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(took, std::chrono::seconds(2));
    EXPECT_LT(took, std::chrono::seconds(4));
}

}  // namespace
