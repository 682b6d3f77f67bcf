// The POST on the wire: exact request bytes, answers, stalls and cancels.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <string>

#include "fake_device.h"
#include "http_util.h"
#include "scripted_server.h"
#include "temp_dir.h"

namespace {

using std::chrono::milliseconds;

const std::string kOk = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

// The boundary the library drew, read back from the request.
std::string boundary_of(const std::string &request) {
    std::smatch m;
    std::regex re("boundary=(-{20}[A-Za-z0-9]{23})\r\n");
    return std::regex_search(request, m, re) ? m[1].str() : std::string();
}

std::string part_header(const std::string &boundary, const std::string &local_file) {
    return "--" + boundary + "\r\nContent-Disposition: form-data; name=\"file1\"; filename=\"" +
           local_file + "\"\r\nContent-Type: application/octet-stream\r\n\r\n";
}

class PostTest : public testing::Test {
protected:
    // A URL record for srv with the given parameters; freed by the fixture.
    http_url_param *record(const scripted::Server &srv, const std::string &path = "/up",
                           int show_progress = 0, uint8_t multipart = 1) {
        http_util_param param;
        memset(&param, 0, sizeof param);
        param.show_progress = show_progress;
        int err = -1;
        url_ = srv.url(path);
        free(rec_);  // a case may make a second record
        rec_ = http_create_url_param(url_.c_str(), &err, &param, 0, nullptr);
        EXPECT_NE(rec_, nullptr) << err;
        if (rec_ != nullptr) rec_->multipart = multipart;
        return rec_;
    }
    void TearDown() override { free(rec_); }

    // Posts file once to a server that answers 200, and returns the request
    // bytes it received. port80 makes the record's port 80 (Host follows the
    // record; the address stays the server's).
    std::string post_once(const std::string &file, const std::string &path = "/up",
                          uint8_t multipart = 1, bool port80 = false,
                          scripted::Family family = scripted::Family::IPv4) {
        scripted::Server srv(family);
        srv.read_request().send(kOk).close();
        srv.start();
        http_url_param *rec = record(srv, path, 0, multipart);
        if (rec == nullptr) return "";
        if (port80) rec->port = 80;
        port_ = srv.port();
        EXPECT_EQ(http_post_loop(rec, file.c_str(), nullptr), 0);
        srv.wait();
        return srv.request();
    }

    TempDir dir_;
    std::string url_;
    http_url_param *rec_ = nullptr;
    uint16_t port_ = 0;
};

TEST_F(PostTest, MultipartRequestIsExact) {
    const std::string file = dir_.write("fw.bin", "hello, world\n");
    const std::string req = post_once(file, "/cgi/upload?x=1");
    const std::string b = boundary_of(req);
    ASSERT_EQ(b.size(), 43u) << req;
    const std::string body = part_header(b, file) + "hello, world\n" + "\r\n--" + b + "--\r\n";
    EXPECT_EQ(req, "POST /cgi/upload?x=1 HTTP/1.1\r\n"
                   "Host: 127.0.0.1:" + std::to_string(port_) + "\r\n"
                   "Content-Type: multipart/form-data; boundary=" + b + "\r\n"
                   "Accept: */*\r\n"
                   "Content-Length: " + std::to_string(body.size()) + "\r\n"
                   "\r\n" + body);
}

TEST_F(PostTest, EmptyFileSendsPartHeaderAndClosingDelimiter) {
    const std::string file = dir_.write("empty", "");
    const std::string req = post_once(file);
    const std::string b = boundary_of(req);
    const std::string head_end = "\r\n\r\n";
    const std::string body = req.substr(req.find(head_end) + 4);
    EXPECT_EQ(body, part_header(b, file) + "\r\n--" + b + "--\r\n");
    EXPECT_NE(req.find("Content-Length: " + std::to_string(part_header(b, file).size() + 51)),
              std::string::npos);
}

TEST_F(PostTest, RawModeSendsTheFileAlone) {
    const std::string file = dir_.write("raw.bin", std::string(3000, 'r'));
    const std::string req = post_once(file, "/raw", 0);
    EXPECT_EQ(req, "POST /raw HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port_) +
                                 "\r\nContent-Type: application/octet-stream\r\nAccept: */*\r\n"
                                 "Content-Length: 3000\r\n\r\n" + std::string(3000, 'r'));
}

// As a GET forms it: the port unless it is 80, brackets round an IPv6 literal.
TEST_F(PostTest, HostLineInItsFourForms) {
    const std::string file = dir_.write("a", "x");
    struct Row {
        scripted::Family family;
        bool port80;
        std::string host;  // the port follows unless port80
    };
    const Row rows[] = {{scripted::Family::IPv4, true, "127.0.0.1"},
                        {scripted::Family::IPv4, false, "127.0.0.1:"},
                        {scripted::Family::IPv6, true, "[::1]"},
                        {scripted::Family::IPv6, false, "[::1]:"}};
    for (const Row &r : rows) {
        const std::string req = post_once(file, "/up", 1, r.port80, r.family);
        const std::string host = r.host + (r.port80 ? "" : std::to_string(port_));
        EXPECT_NE(req.find("\r\nHost: " + host + "\r\n"), std::string::npos) << req;
    }
}

TEST_F(PostTest, LongPathCutsThePartHeaderAndCountsWhatWasSent) {
    const std::string sub = dir_.path() + "/" + std::string(200, 'd');
    mkdir(sub.c_str(), 0700);
    const std::string file = sub + "/" + std::string(200, 'f');
    std::ofstream(file) << "data";
    const std::string req = post_once(file);
    const std::string b = boundary_of(req);
    const std::string cut = part_header(b, file).substr(0, 511);
    const std::string body = cut + "data" + "\r\n--" + b + "--\r\n";
    EXPECT_EQ(req.substr(req.find("\r\n\r\n") + 4), body);
    EXPECT_NE(req.find("Content-Length: " + std::to_string(body.size()) + "\r\n"),
              std::string::npos);
}

struct AnswerCase {
    const char *name;
    std::string answer;
    int result;
    bool saved;
    std::string saved_body;
};

// Printed by name: the record's raw bytes, padding included, would be read
// uninitialised when the cases are registered.
void PrintTo(const AnswerCase &c, std::ostream *os) { *os << c.name; }

class PostAnswer : public PostTest, public testing::WithParamInterface<AnswerCase> {};

TEST_P(PostAnswer, ResultAndSavedReply) {
    const AnswerCase &c = GetParam();
    const std::string file = dir_.write("f", "payload");
    const std::string save = dir_.path() + "/reply";
    std::ofstream(save) << "old";
    scripted::Server srv;
    srv.read_request().send(c.answer).close();
    srv.start();
    EXPECT_EQ(http_post_loop(record(srv), file.c_str(), save.c_str()), c.result);
    std::ifstream in(save);
    std::string got((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(got, c.saved ? c.saved_body : "old");
}

INSTANTIATE_TEST_SUITE_P(
    Answers, PostAnswer,
    testing::Values(
        AnswerCase{"ok", kOk, 0, true, "ok"},
        AnswerCase{"created", "HTTP/1.1 201 Created\r\nContent-Length: 5\r\n\r\nmade!", 21, true, "made!"},
        AnswerCase{"chunked", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n", 0, true, "abc"},
        AnswerCase{"until_close", "HTTP/1.1 200 OK\r\n\r\nto the end", 0, true, "to the end"},
        AnswerCase{"not_found", "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", 18, false, ""},
        AnswerCase{"forbidden", "HTTP/1.1 403 Forbidden\r\n\r\n", 19, false, ""},
        AnswerCase{"no_head", "", 7, false, ""},
        AnswerCase{"cut_body", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc", 9, true, "abc"}),
    [](const testing::TestParamInfo<AnswerCase> &i) { return std::string(i.param.name); });

TEST_F(PostTest, NoSavePathSkipsTheBody) {
    const std::string file = dir_.write("f", "x");
    scripted::Server srv;
    srv.read_request().send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n").stall(milliseconds(5000));
    srv.start();
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(http_post_loop(record(srv), file.c_str(), nullptr), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(2)) << "body was read";
}

TEST_F(PostTest, MissingFileAndRefusedConnection) {
    scripted::Server srv;
    srv.start();
    EXPECT_EQ(http_post_loop(record(srv), (dir_.path() + "/none").c_str(), nullptr),
              HTTP_UTIL_ERR_NO_LOCAL_FILE);
    EXPECT_TRUE(fake::logged("file not exist: " + dir_.path() + "/none"));

    const std::string file = dir_.write("f", "x");
    http_url_param *rec = record(srv);
    reinterpret_cast<sockaddr_in *>(&rec->ip_addr)->sin_port = htons(scripted::unused_port());
    EXPECT_EQ(http_post_loop(rec, file.c_str(), nullptr), HTTP_UTIL_ERR_CONNECT);
    EXPECT_TRUE(fake::logged("http_create_socket failed"));
}

TEST_F(PostTest, LogRecordsNameTheUploadModule) {
    const std::string file = dir_.write("f", "x");
    scripted::Server srv;
    srv.read_request().send(kOk).close();
    srv.start();
    g_http_util_zlog_category = &srv;
    ASSERT_EQ(http_post_loop(record(srv), file.c_str(), nullptr), 0);
    bool saw_head = false, saw_post = false;
    for (const auto &r : fake::device().logs) {
        if (r.text == "http_post_request success") {
            saw_head = r.module == "http_upload" && r.func == "http_post_upload_request_head";
        }
        if (r.text == "POST success.\n") saw_post = r.module == "http_upload" && r.func == "http_post";
    }
    EXPECT_TRUE(saw_head);
    EXPECT_TRUE(saw_post);
}

// A server that stops reading: six timed-out one-second waits in a row end
// the upload, with a "." on the terminal for each wait the upload survives.
using PostSlowTest = PostTest;
TEST_F(PostSlowTest, StalledServerEndsTheUploadWithSendFailed) {
    const std::string file = dir_.write("big", std::string(32 << 20, 'z'));
    scripted::Server srv;
    srv.small_receive_buffer().stall(std::chrono::seconds(30));
    srv.start();
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(http_post_loop(record(srv, "/up", 1), file.c_str(), nullptr), HTTP_UTIL_ERR_SEND);
    auto took = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(took, std::chrono::milliseconds(5900));
    EXPECT_LT(took, std::chrono::seconds(15));
    EXPECT_TRUE(std::regex_match(fake::device().terminal, std::regex("Press Ctrl\\+C to quit\n!+\\.{5}\n")))
        << fake::device().terminal;
    EXPECT_EQ(fake::log_texts("post_file_data").back(), "send data failed: -1.");
}

TEST_F(PostTest, CtrlCWhileTheServerAnswersCancels) {
    const std::string file = dir_.write("f", "payload");
    scripted::Server srv;
    srv.read_request().stall(std::chrono::seconds(20));
    srv.start();
    http_url_param *rec = record(srv, "/up", 1);
    // Ctrl+C typed once the whole request has arrived: the head reader sees it.
    fake::device().key_source = [&srv] {
        return srv.request().find("--\r\n", srv.request().size() - 4) != std::string::npos ? 3 : -1;
    };
    EXPECT_EQ(http_post_loop(rec, file.c_str(), nullptr), HTTP_UTIL_ERR_CANCELED);
    EXPECT_TRUE(fake::logged("cancle by user."));
    EXPECT_EQ(fake::device().terminal.back(), '\n') << "the end stage closes the line";
}

}  // namespace
