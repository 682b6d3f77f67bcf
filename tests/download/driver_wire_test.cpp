// The driver against a scripted server: retries and their pauses, what is
// not retried, cancel, and redirections.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "download/download.h"
#include "download_test_util.h"
#include "fake_device.h"
#include "http_util.h"
#include "scripted_server.h"
#include "temp_dir.h"
#include "wire_util.h"

namespace {

using dltest::ok_head;
using dltest::pattern;

class DriverWire : public dltest::WireTest {
protected:
    TempDir dir;
    std::string file = dir.file("b.bin");

    static int count_of(const std::vector<std::string> &texts, const std::string &text) {
        int n = 0;
        for (const std::string &t : texts) n += t == text;
        return n;
    }
    static std::vector<std::string> starting_with(const std::vector<std::string> &texts,
                                                  const std::string &prefix) {
        std::vector<std::string> out;
        for (const std::string &t : texts)
            if (t.rfind(prefix, 0) == 0) out.push_back(t);
        return out;
    }
    static std::string refused_url() {
        return "http://127.0.0.1:" + std::to_string(scripted::unused_port()) + "/b.bin";
    }
};

TEST_F(DriverWire, RefusedConnectionWithoutRetriesIsOneAttemptAndNoPause) {
    EXPECT_EQ(http_download_file_ntry(refused_url().c_str(), file.c_str(), 0),
              HTTP_UTIL_ERR_CONNECT);
    auto loop = fake::log_texts("http_get_loop");
    EXPECT_EQ(count_of(loop, "Giving up."), 1);
    EXPECT_EQ(count_of(loop, "Retrying."), 0);
    EXPECT_EQ(starting_with(fake::log_texts("http_get"), "errno:").size(), 1u);
    EXPECT_TRUE(interpose::pauses.empty());
    EXPECT_TRUE(fake::logged("download file result: Connect to server failed"));
    EXPECT_FALSE(dltest::exists(file));
}

TEST_F(DriverWire, ServerClosingBeforeAnsweringIsRetriedAfterPauses) {
    g_http_opt.wait = 1;
    scripted::Server srv;
    srv.read_request().close().read_request().close().read_request().close();
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 2),
              HTTP_UTIL_ERR_RECV_RSP);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.connections(), 3u);
    ASSERT_EQ(interpose::pauses.size(), 2u);
    for (const timeval &tv : interpose::pauses) {
        EXPECT_EQ(tv.tv_sec, 1);
        EXPECT_EQ(tv.tv_usec, 0);
    }
    EXPECT_EQ(starting_with(fake::log_texts("http_get_loop"), "Retrying.").size(), 2u);
    EXPECT_EQ(starting_with(fake::log_texts("http_get_loop"), "Giving up.").size(), 1u);
    EXPECT_EQ(starting_with(fake::log_texts("http_get_loop"), "--").size(), 3u);
}

TEST_F(DriverWire, WaitZeroRetriesAtOnce) {
    g_http_opt.wait = 0;
    EXPECT_EQ(http_download_file_ntry(refused_url().c_str(), file.c_str(), 2),
              HTTP_UTIL_ERR_CONNECT);
    EXPECT_EQ(starting_with(fake::log_texts("http_get"), "errno:").size(), 3u);
    EXPECT_TRUE(interpose::pauses.empty());
}

TEST_F(DriverWire, NotFoundIsNotRetried) {
    scripted::Server srv;
    srv.read_request().send("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 3),
              HTTP_UTIL_ERR_NOT_FOUND);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.connections(), 1u);
    EXPECT_EQ(fake::log_texts("http_get_loop").back(), "unknow");
    EXPECT_TRUE(interpose::pauses.empty());
    EXPECT_FALSE(dltest::exists(file));
}

TEST_F(DriverWire, FatalAnswersAreNotRetried) {
    for (const char *status : {"401 Unauthorized", "304 Not Modified"}) {
        fake::device().logs.clear();
        scripted::Server srv;
        srv.read_request().send(std::string("HTTP/1.1 ") + status + "\r\nContent-Length: 0\r\n\r\n");
        srv.start();
        int rc = http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 3);
        EXPECT_EQ(rc, status[0] == '4' ? HTTP_UTIL_ERR_UNAUTHORIZED : HTTP_UTIL_ERR_UNEXPECTED_RSP);
        ASSERT_TRUE(srv.wait());
        EXPECT_EQ(srv.connections(), 1u);
        EXPECT_EQ(fake::log_texts("http_get_loop").back(),
                  "Fatal errors just return from the function");
    }
}

int cancel_at_once(http_progress *, uint32_t) { return 1; }

TEST_F(DriverWire, CancelStopsWithoutRetryAndKeepsThePartialFile) {
    scripted::Server srv;
    srv.read_request().send(ok_head(50000) + pattern(50000)).read_until_close();
    srv.start();
    http_progress progress{};
    progress.on_progress = cancel_at_once;
    EXPECT_EQ(http_download_file_progress(&progress, srv.url("/b.bin").c_str(), file.c_str(), 3),
              HTTP_UTIL_ERR_CANCELED);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.connections(), 1u);
    std::string got = dltest::read_file(file);
    EXPECT_FALSE(got.empty());
    EXPECT_LE(got.size(), 1024u) << "one block, then the cancel";
    EXPECT_EQ(got, pattern(got.size()));
    EXPECT_EQ(starting_with(fake::log_texts("http_get_loop"), "end download 16 --").size(), 1u);
}

TEST_F(DriverWire, FiveRedirectionsAreFollowedAndTheSixthIsRefused) {
    scripted::Server srv;
    // Absolute and relative Locations in turn, counted alike.
    for (int k = 1; k <= 6; ++k) {
        const std::string path = "/r" + std::to_string(k);
        srv.read_request()
            .send("HTTP/1.1 302 Found\r\nLocation: " + (k % 2 ? srv.url(path) : path) +
                  "\r\nContent-Length: 0\r\n\r\n")
            .close();
    }
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/r0").c_str(), file.c_str(), 0),
              HTTP_UTIL_ERR_REDIRECT);
    ASSERT_TRUE(srv.wait());
    ASSERT_EQ(srv.connections(), 6u);
    for (size_t k = 0; k < 6; ++k)
        EXPECT_EQ(srv.request(k).rfind("GET /r" + std::to_string(k) + " HTTP/1.1\r\n", 0), 0u);
    std::vector<std::string> expected;
    for (int n = 1; n <= 5; ++n)
        expected.push_back("return newlocation, will http get new-url again(num " +
                           std::to_string(n) + ", newurl " + srv.url("/r" + std::to_string(n)) +
                           ")");
    EXPECT_EQ(starting_with(fake::log_texts("http_download_param"), "return newlocation"),
              expected);
    EXPECT_TRUE(fake::logged("download file result: Server response: Redirect"));
}

// A relative Location is resolved against the URL that was asked for; with
// no local file given, the resolved URL names the file.
TEST_F(DriverWire, RelativeLocationsAreResolvedAndFollowed) {
    struct Row {
        const char *location, *target, *saved_as;  // "HOST" stands for the server's host:port
    };
    const Row rows[] = {
        {"/abs/b.bin", "/abs/b.bin", "b.bin"},
        {"b.bin", "/d1/d2/b.bin", "b.bin"},
        {"../up.bin", "/d1/up.bin", "up.bin"},
        {"./c/./e/../f.bin", "/d1/d2/c/f.bin", "f.bin"},
        {"../../../../top.bin", "/top.bin", "top.bin"},
        {"/abs/./b/../c.bin", "/abs/c.bin", "c.bin"},
        {"?q=2", "/d1/d2/a.bin?q=2", "a.bin"},
        {"b.bin?y=1", "/d1/d2/b.bin?y=1", "b.bin"},
        {"//HOST/x/n.bin", "/x/n.bin", "n.bin"},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.location);
        fake::device().logs.clear();
        scripted::Server srv;
        std::string location = r.location;
        if (location.rfind("//HOST", 0) == 0) location.replace(2, 4, dltest::host_of(srv));
        srv.read_request()
            .send("HTTP/1.1 302 Found\r\nLocation: " + location + "\r\nContent-Length: 0\r\n\r\n")
            .close()
            .read_request()
            .send(ok_head(1) + "B");
        srv.start();
        int rc = dir.inside([&] { return http_download_file_ntry(srv.url("/d1/d2/a.bin?x=1").c_str(), nullptr, 0); });
        EXPECT_EQ(rc, HTTP_UTIL_OK);
        ASSERT_TRUE(srv.wait());
        EXPECT_EQ(srv.request(1), dltest::get_request(r.target, dltest::host_of(srv)));
        EXPECT_EQ(starting_with(fake::log_texts("http_download_param"), "return newlocation"),
                  std::vector<std::string>{"return newlocation, will http get new-url again(num 1, newurl " +
                                           srv.url(r.target) + ")"});
        EXPECT_EQ(dir.entries(), std::vector<std::string>{r.saved_as});
        unlink(dir.file(r.saved_as).c_str());
    }
}

// Another scheme is still refused; a resolved URL longer than the driver's
// 255 characters is refused before any connection.
TEST_F(DriverWire, LocationsThatCannotBeFollowed) {
    const struct {
        std::string location;
        int result;
    } rows[] = {
        {"https://127.0.0.1/b.bin", HTTP_UTIL_ERR_NOT_HTTP},
        {std::string(240, 'x'), HTTP_UTIL_ERR_URL_FORMAT},
        {"/" + std::string(240, 'x'), HTTP_UTIL_ERR_URL_FORMAT},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.location);
        scripted::Server srv;
        srv.read_request()
            .send("HTTP/1.1 301 Moved\r\nLocation: " + r.location + "\r\nContent-Length: 0\r\n\r\n")
            .close()
            .read_request();
        srv.start();
        EXPECT_EQ(http_download_file_ntry(srv.url("/a.bin").c_str(), file.c_str(), 0), r.result);
        EXPECT_EQ(srv.connections(), 1u);
        EXPECT_FALSE(dltest::exists(file));
    }
}

TEST_F(DriverWire, RedirectedUrlNamesTheFileWhenNoLocalFileIsGiven) {
    scripted::Server srv;
    srv.read_request()
        .send("HTTP/1.1 307 Temporary Redirect\r\nLocation: " + srv.url("/dir/b.bin") +
              "\r\nContent-Length: 0\r\n\r\n")
        .close()
        .read_request()
        .send(ok_head(1) + "B");
    srv.start();
    int rc = dir.inside([&] { return http_download_file_ntry(srv.url("/a.bin").c_str(), nullptr, 0); });
    EXPECT_EQ(rc, HTTP_UTIL_OK);
    EXPECT_EQ(dltest::read_file(dir.file("b.bin")), "B");
    EXPECT_FALSE(dltest::exists(dir.file("a.bin")));
}

TEST_F(DriverWire, NoMemoryForTheHandleEndsTheUrl) {
    interpose::fail_calloc_bytes = sizeof(http_util);
    EXPECT_EQ(http_download_file_ntry("http://127.0.0.1:1/b.bin", file.c_str(), 0),
              HTTP_UTIL_ERR_NOMEM);
    EXPECT_EQ(fake::log_texts("http_get_loop"), std::vector<std::string>{"malloc for util fail"});
}

TEST_F(DriverWire, NoMemoryForTheLocalPath) {
    interpose::fail_strdup_text = file;
    EXPECT_EQ(http_download_file_ntry("http://127.0.0.1:1/b.bin", file.c_str(), 0),
              HTTP_UTIL_ERR_NOMEM);
    EXPECT_EQ(fake::log_texts("http_get_loop"),
              std::vector<std::string>{"malloc for local_file fail"});
}

}  // namespace
