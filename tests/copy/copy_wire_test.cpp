// http_util_copy against a scripted server: the destination is replaced
// only by a complete download, and no temporary file outlives the call.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "../download/download_test_util.h"
#include "../download/wire_util.h"
#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"
#include "scripted_server.h"
#include "temp_dir.h"

namespace {

using dltest::ok_head;
using dltest::pattern;

class CopyWire : public dltest::WireTest {
protected:
    TempDir dir;
    std::string dst = dir.file("dst.bin");
    http_util_param param{};

    void SetUp() override {
        dltest::WireTest::SetUp();
        param.max_redirect = 5;
    }
    std::vector<std::string> names() const { return dir.entries(); }
};

TEST_F(CopyWire, SuccessfulDownloadReplacesTheDestination) {
    dltest::write_file(dst, "old contents");
    scripted::Server srv;
    srv.read_request().send(ok_head(3000) + pattern(3000));
    srv.start();
    EXPECT_EQ(http_util_copy(srv.url("/a.bin").c_str(), dst.c_str(), &param), HTTP_UTIL_OK);
    EXPECT_EQ(dltest::read_file(dst), pattern(3000));
    EXPECT_EQ(names(), std::vector<std::string>{"dst.bin"});
}

TEST_F(CopyWire, FailedDownloadLeavesTheDestinationAndNoTemporaryFile) {
    struct Row {
        const char *name;
        std::string reply;
        int expected;
        int fsync_errno;
    };
    std::vector<Row> rows = {
        {"not found", "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n",
         HTTP_UTIL_ERR_NOT_FOUND, 0},
        {"cut connection", ok_head(3000) + pattern(1500), HTTP_UTIL_ERR_RECV_DATA, 0},
        {"data not synced", ok_head(2) + "ok", HTTP_UTIL_ERR_SAVE_FILE, EIO},
    };
    // Regression: such a length read as 0 and replaced the destination with nothing.
    for (const char *length : {"zzz", "-1", "12abc", "99999999999"})
        rows.push_back({length, std::string("HTTP/1.1 200 OK\r\nContent-Length: ") + length + "\r\n\r\n" +
                                    pattern(100), HTTP_UTIL_ERR_RSP_FORMAT, 0});
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        dltest::write_file(dst, "old contents");
        interpose::fail_fsync_errno = r.fsync_errno;
        scripted::Server srv;
        srv.read_request().send(r.reply).close();
        srv.start();
        EXPECT_EQ(http_util_copy(srv.url("/a.bin").c_str(), dst.c_str(), &param), r.expected);
        EXPECT_EQ(dltest::read_file(dst), "old contents");
        EXPECT_EQ(names(), std::vector<std::string>{"dst.bin"});
    }
}

// Power may fail at any moment: the data reaches storage before the rename
// makes it the destination, and the folder's new entry after it.
TEST_F(CopyWire, DataIsSyncedBeforeTheRenameAndTheFolderAfterIt) {
    scripted::Server srv;
    srv.read_request().send(ok_head(2) + "ok");
    srv.start();
    EXPECT_EQ(http_util_copy(srv.url("/a.bin").c_str(), dst.c_str(), &param), HTTP_UTIL_OK);
    std::string calls;
    for (const std::string &c : interpose::file_calls) calls += c + "\n";
    const size_t at = calls.find("rename " + dst + ".");
    ASSERT_NE(at, std::string::npos) << calls;
    const std::string tmp = calls.substr(at + 7, dst.size() + 7);
    char *real = realpath(dir.path().c_str(), nullptr);
    const std::string folder = real;
    free(real);
    EXPECT_EQ(calls, "fsync " + folder + tmp.substr(dir.path().size()) + "\nrename " + tmp + " " +
                         dst + "\nfsync " + folder + "\n");
}

TEST_F(CopyWire, TwoUrlsDownloadToTheSecondTextAsALocalPath) {
    // "http://h/x.bin" as a path: the folder "http:", its folder "h", the file.
    ASSERT_EQ(mkdir(dir.file("http:").c_str(), 0755), 0);
    ASSERT_EQ(mkdir(dir.file("http:/h").c_str(), 0755), 0);
    scripted::Server srv;
    srv.read_request().send(ok_head(2) + "ok");
    srv.start();
    int rc = dir.inside([&] { return http_util_copy(srv.url("/a.bin").c_str(), "http://h/x.bin", &param); });
    EXPECT_EQ(rc, HTTP_UTIL_OK);
    EXPECT_EQ(dltest::read_file(dir.file("http:/h/x.bin")), "ok");
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.connections(), 1u);
}

TEST_F(CopyWire, NonAsciiDownloadUrlIsRefusedWithoutConnecting) {
    scripted::Server srv;
    srv.start();
    dltest::write_file(dst, "old contents");
    EXPECT_EQ(http_util_copy((srv.url("/caf\xc3\xa9.bin")).c_str(), dst.c_str(), &param),
              HTTP_UTIL_ERR_URL_NOT_ASCII);
    EXPECT_EQ(srv.connections(), 0u);
    EXPECT_EQ(dltest::read_file(dst), "old contents");
    EXPECT_EQ(names(), std::vector<std::string>{"dst.bin"});
}

TEST_F(CopyWire, ShowProgressZeroBecomesOneAndDisplays) {
    scripted::Server srv;
    srv.read_request().send(ok_head(2) + "ok");
    srv.start();
    param.show_progress = 0;
    EXPECT_EQ(http_util_copy(srv.url("/a.bin").c_str(), dst.c_str(), &param), HTTP_UTIL_OK);
    EXPECT_EQ(param.show_progress, 1);
    EXPECT_EQ(fake::device().terminal.rfind("Press Ctrl+C to quit\n", 0), 0u)
        << fake::device().terminal;
}

TEST_F(CopyWire, ShowProgressTwoPrintsNothing) {
    scripted::Server srv;
    srv.read_request().send(ok_head(2) + "ok");
    srv.start();
    param.show_progress = 2;
    EXPECT_EQ(http_util_copy(srv.url("/a.bin").c_str(), dst.c_str(), &param), HTTP_UTIL_OK);
    EXPECT_EQ(param.show_progress, 2);
    EXPECT_EQ(fake::device().terminal, "");
}

TEST_F(CopyWire, CtrlCDuringTheBodyCancelsAndKeepsTheDestination) {
    dltest::write_file(dst, "old contents");
    scripted::Server srv;
    srv.read_request().send(ok_head(100000) + pattern(2000)).read_until_close();
    srv.start();
    param.ntry = 3;
    // Ctrl+C is typed once body bytes have reached the temporary file.
    fake::device().key_source = [this] {
        for (const std::string &n : names())
            if (n != "dst.bin" && dltest::read_file(dir.file(n)).size() > 0) return 3;
        return -1;
    };
    EXPECT_EQ(http_util_copy(srv.url("/a.bin").c_str(), dst.c_str(), &param),
              HTTP_UTIL_ERR_CANCELED);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.connections(), 1u) << "a cancel is not retried";
    EXPECT_EQ(dltest::read_file(dst), "old contents");
    EXPECT_EQ(names(), std::vector<std::string>{"dst.bin"});
}

TEST_F(CopyWire, UploadSendsTheLocalFileAsAForm) {
    std::string src = dir.write("up.bin", pattern(3000));
    scripted::Server srv;
    srv.read_request().send(ok_head(0));
    srv.start();
    param.show_progress = 2;
    EXPECT_EQ(http_util_copy(src.c_str(), srv.url("/upload").c_str(), &param), HTTP_UTIL_OK);
    ASSERT_TRUE(srv.wait());
    const std::string req = srv.request();
    EXPECT_EQ(req.rfind("POST /upload HTTP/1.1\r\n", 0), 0u) << req;
    EXPECT_NE(req.find("multipart/form-data; boundary="), std::string::npos);
    EXPECT_NE(req.find(pattern(3000)), std::string::npos);
}

TEST_F(CopyWire, NoFreeTemporaryNameIsASaveFailure) {
    // Every name beside the destination is reported taken.
    interpose::taken_prefix = dst + ".";
    scripted::Server srv;
    srv.start();
    EXPECT_EQ(http_util_copy(srv.url("/a.bin").c_str(), dst.c_str(), &param),
              HTTP_UTIL_ERR_SAVE_FILE);
    EXPECT_EQ(srv.connections(), 0u);
}

TEST_F(CopyWire, NoMemoryForTheTemporaryName) {
    interpose::fail_calloc_bytes = dst.size() + 8;  // the name, a dot, six characters, NUL
    scripted::Server srv;
    srv.start();
    EXPECT_EQ(http_util_copy(srv.url("/a.bin").c_str(), dst.c_str(), &param),
              HTTP_UTIL_ERR_NOMEM);
    EXPECT_EQ(srv.connections(), 0u);
}

TEST_F(CopyWire, FailedRenameRemovesTheTemporaryFile) {
    ASSERT_EQ(mkdir(dst.c_str(), 0755), 0);  // a file cannot replace a folder
    ASSERT_EQ(mkdir((dst + "/inside").c_str(), 0755), 0);
    scripted::Server srv;
    srv.read_request().send(ok_head(2) + "ok");
    srv.start();
    EXPECT_EQ(http_util_copy(srv.url("/a.bin").c_str(), dst.c_str(), &param),
              HTTP_UTIL_ERR_SAVE_FILE);
    EXPECT_EQ(names(), std::vector<std::string>{"dst.bin"});
    auto texts = fake::log_texts("http_util_copy");
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_EQ(texts[0].rfind("rename file failed:", 0), 0u) << texts[0];
}

}  // namespace
