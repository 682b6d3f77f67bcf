// Uploads on the wire: the request bytes, the answers, and the checks the
// upload calls make before connecting.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <functional>
#include <regex>
#include <string>

#include "fake_device.h"
#include "http_util.h"
#include "scripted_server.h"
#include "temp_dir.h"

namespace {

using scripted::Family;

class Upload : public testing::Test {
protected:
    // A URL record for srv (freed by the fixture); Host follows port when given.
    http_url_param *record(const scripted::Server &srv, const std::string &path = "/up", int port = 0, bool multipart = true) {
        http_util_param param{};
        int err = -1;
        free(rec_);
        rec_ = http_create_url_param(srv.url(path).c_str(), &err, &param, 0, nullptr);
        EXPECT_NE(rec_, nullptr) << err;
        rec_->port = port != 0 ? port : rec_->port;
        rec_->multipart = multipart;
        return rec_;
    }
    void TearDown() override { free(rec_); }
    TempDir dir_;
    http_url_param *rec_ = nullptr;
};

// The one place for the Host forms: the port unless it is 80 (as the URL
// gave it, unchecked), brackets round an IPv6 literal. A GET forms it the same.
TEST_F(Upload, RequestBytes) {
    struct Row {
        const char *name;
        Family family;
        int port;  // of the URL record; 0: the server's, which follows a host ending in ':'
        std::string path, file, data;
        bool multipart;
        std::string host;
    };
    const std::string deep = std::string(200, 'd') + "/" + std::string(200, 'f');
    const Row rows[] = {
        {"IPv4, port 80", Family::IPv4, 80, "/up", "a", "x", true, "127.0.0.1"},
        {"IPv4, another port", Family::IPv4, 0, "/up", "a", "x", true, "127.0.0.1:"},
        {"IPv6, port 80", Family::IPv6, 80, "/up", "a", "x", true, "[::1]"},
        {"IPv6, another port", Family::IPv6, 0, "/up", "a", "x", true, "[::1]:"},
        {"port above 65535", Family::IPv4, 65616, "/up", "a", "x", true, "127.0.0.1:65616"},
        {"query", Family::IPv4, 80, "/cgi/upload?x=1", "fw.bin", "hello, world\n", true, "127.0.0.1"},
        {"empty file", Family::IPv4, 80, "/up", "empty", "", true, "127.0.0.1"},
        {"raw, more than one read", Family::IPv4, 80, "/raw", "raw.bin", std::string(9000, 'r'), false, "127.0.0.1"},
        {"long path, the part header cut to 511 bytes", Family::IPv4, 80, "/up", deep, "data", true, "127.0.0.1"},
    };
    mkdir(dir_.file(std::string(200, 'd')).c_str(), 0700);
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        const std::string file = dir_.write(r.file, r.data);
        scripted::Server srv(r.family);
        srv.read_request().send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok").close();
        srv.start();
        EXPECT_EQ(http_post_loop(record(srv, r.path, r.port, r.multipart), file.c_str(), nullptr), 0);
        ASSERT_TRUE(srv.wait());
        const std::string req = srv.request();
        std::smatch m;  // the boundary the library drew
        const bool drawn = std::regex_search(req, m, std::regex("boundary=(-{20}[A-Za-z0-9]{23})\r\n"));
        EXPECT_EQ(drawn, r.multipart) << req;
        const std::string b = drawn ? m[1].str() : "";
        const std::string body = r.multipart ? ("--" + b + "\r\nContent-Disposition: form-data; name=\"file1\"; filename=\"" + file +
                                                "\"\r\nContent-Type: application/octet-stream\r\n\r\n").substr(0, 511) +
                                                   r.data + "\r\n--" + b + "--\r\n"
                                             : r.data;
        EXPECT_EQ(req, "POST " + r.path + " HTTP/1.1\r\nHost: " + r.host + (r.host.back() == ':' ? std::to_string(srv.port()) : "") +
                           "\r\nContent-Type: " + (r.multipart ? "multipart/form-data; boundary=" + b : "application/octet-stream") +
                           "\r\nAccept: */*\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }
}

TEST_F(Upload, MissingFileAndRefusedConnection) {
    const std::string file = dir_.write("f", "payload");
    scripted::Server srv;
    srv.start();
    EXPECT_EQ(http_post_loop(record(srv), dir_.file("none").c_str(), nullptr), HTTP_UTIL_ERR_NO_LOCAL_FILE);
    EXPECT_TRUE(fake::logged("file not exist: " + dir_.file("none")));
    EXPECT_EQ(http_post_loop(record(srv), dir_.path().c_str(), nullptr), HTTP_UTIL_ERR_READ_FILE) << "a folder";
    reinterpret_cast<sockaddr_in *>(&record(srv)->ip_addr)->sin_port = htons(scripted::unused_port());
    // Without standard input (the guard lives to the end of the statement) the file is descriptor 0.
    EXPECT_EQ((files::NoStdin(), http_post_loop(rec_, file.c_str(), nullptr)), HTTP_UTIL_ERR_CONNECT);
    EXPECT_TRUE(fake::logged("http_create_socket failed"));
    EXPECT_EQ(srv.connections(), 0u);
}

// What the terminal shows and what Ctrl+C does: a plain call prints nothing and
// ignores it (its TLV block binds the source address); a record with
// show_progress 1, or a copy's with 0, turns the display on, and Ctrl+C typed
// while the server answers or during the body cancels, a copy's too, which is
// not retried and keeps its destination. A reset during the body fails the send.
TEST_F(Upload, TerminalAndCtrlC) {
    const std::string small = dir_.write("f", "payload"), big = dir_.write("big", std::string(4 << 20, 'b'));
    const std::string dst = dir_.write("dst.bin", "old");
    const uint32_t tlv[] = {HTTP_UTIL_TLV_SRC_IP, 4, htonl(0x7f000002), HTTP_UTIL_TLV_END, 0};
    auto never = [](const std::string &) { return false; };
    auto copying = [&](const std::string &) {  // once body bytes have reached the copy's temporary file
        for (const std::string &n : dir_.entries())
            if (n.rfind("dst.bin.", 0) == 0 && !files::read_file(dir_.file(n)).empty()) return true;
        return false;
    };
    const struct {
        const char *name;
        char call, server;  // call: t, TLV upload; r, a record; c, a copy down. server: a, answers 200; b, a long body; h, holds; r, resets
        bool big;
        std::function<bool(const std::string &)> key;  // Ctrl+C, typed once, when the server has this request
        int result;
        const char *terminal;
    } rows[] = {
        {"plain call", 't', 'a', false, [](const std::string &) { return true; }, 0, ""},
        {"display", 'r', 'a', false, never, 0, "Press Ctrl\\+C to quit\n!+\n"},
        {"Ctrl+C while the server answers", 'r', 'h', false, [](const std::string &q) { return q.size() > 4 && q.compare(q.size() - 4, 4, "--\r\n") == 0; },
         HTTP_UTIL_ERR_CANCELED, "Press Ctrl\\+C to quit\n[!.]*\n"},
        {"Ctrl+C during the body", 'r', 'h', true, [](const std::string &q) { return q.size() > (64 << 10); }, HTTP_UTIL_ERR_CANCELED, "Press Ctrl\\+C to quit\n[!.]*\n"},
        {"reset during the body", 'r', 'r', true, never, HTTP_UTIL_ERR_SEND, "Press Ctrl\\+C to quit\n[!.]*\n"},
        {"Ctrl+C during a copy's body", 'c', 'b', false, copying, HTTP_UTIL_ERR_CANCELED, "Press Ctrl\\+C to quit\n[!.]*\n"},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        fake::reset();
        scripted::Server srv;
        r.server == 'r' ? srv.reset() : srv.read_request();
        if (r.server == 'a') srv.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        if (r.server == 'b') srv.send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + files::pattern(2000));
        if (r.server != 'a') srv.wait_until([] { return false; });
        srv.start();
        fake::device().key_source = [&, typed = false]() mutable { return !typed && (typed = r.key(srv.request())) ? 3 : -1; };
        const std::string &file = r.big ? big : small;
        http_util_param copy{};
        copy.ntry = 3;
        http_url_param *rec = r.call == 'r' ? record(srv) : nullptr;
        if (rec) rec->param.show_progress = 1;
        EXPECT_EQ(r.call == 'c'   ? http_util_copy(srv.url("/a.bin").c_str(), dst.c_str(), &copy)
                  : r.call == 't' ? http_upload_file_tlv(srv.url("/x").c_str(), file.c_str(), tlv)
                                  : http_post_loop(rec, file.c_str(), nullptr),
                  r.result);
        EXPECT_EQ(srv.peer(), r.call == 't' ? "127.0.0.2" : "127.0.0.1");
        EXPECT_EQ(srv.connections(), 1u);
        EXPECT_LT(srv.request().size(), 4u << 20);
        EXPECT_TRUE(std::regex_match(fake::device().terminal, std::regex(r.terminal))) << fake::device().terminal;
        EXPECT_EQ(fake::logged("cancle by user."), r.result == HTTP_UTIL_ERR_CANCELED);
        EXPECT_EQ(files::read_file(dst), "old");
        EXPECT_EQ(dir_.entries().size(), 3u) << "a temporary file";
    }
}

// A server that stops reading: six timed-out one-second waits in a row end
// the upload, with a "." on the terminal for each wait the upload survives.
using UploadSlow = Upload;
TEST_F(UploadSlow, StalledServerEndsTheUploadWithSendFailed) {
    const std::string file = dir_.write("big", std::string(32 << 20, 'z'));
    scripted::Server srv;
    srv.wait_until([] { return false; });
    srv.start();
    http_url_param *rec = record(srv);
    rec->param.show_progress = 1;
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(http_post_loop(rec, file.c_str(), nullptr), HTTP_UTIL_ERR_SEND);
    const auto took = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(took, std::chrono::milliseconds(5900));
    EXPECT_LT(took, std::chrono::seconds(15));
    EXPECT_TRUE(std::regex_match(fake::device().terminal, std::regex("Press Ctrl\\+C to quit\n!+\\.{5}\n"))) << fake::device().terminal;
    EXPECT_TRUE(fake::logged("send data failed: -1."));
}

}  // namespace
