// One GET attempt on the wire: the request head byte for byte, resuming,
// the lengths the server announces, the partial file's version check, the
// body and the file's time.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

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

using dltest::Attempt;
using dltest::get_request;
using dltest::kServerDate;
using dltest::kServerTime;
using dltest::ok_head;
using dltest::pattern;

class GetWire : public dltest::WireTest {
protected:
    TempDir dir;
    std::string file = dir.file("b.bin");

    bool logged_by_get(const std::string &text) const {
        for (const std::string &t : fake::log_texts("http_get"))
            if (t == text) return true;
        return false;
    }
};

TEST_F(GetWire, FreshDownloadAsksForTheWholeFile) {
    scripted::Server srv;
    srv.read_request().send(ok_head(5) + "hello");
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/a/b.bin").c_str(), file.c_str(), 0), HTTP_UTIL_OK);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.request(), get_request("/a/b.bin", dltest::host_of(srv)));
    EXPECT_EQ(dltest::read_file(file), "hello");
}

TEST_F(GetWire, PartialFileIsResumedWithARange) {
    dltest::write_file(file, pattern(1000));
    scripted::Server srv;
    srv.read_request().send(dltest::second_half());
    srv.start();
    http_progress progress{};
    EXPECT_EQ(http_download_file_progress(&progress, srv.url("/b.bin").c_str(), file.c_str(), 0),
              HTTP_UTIL_OK);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.request(), get_request("/b.bin", dltest::host_of(srv), "bytes=1000-"));
    EXPECT_EQ(dltest::read_file(file), pattern(2000));
    EXPECT_EQ(progress.total, 2000u);
    EXPECT_EQ(progress.done, 2000u) << "counted from the bytes already present";
}

// Port 80 and 8080 are not bound: the URL record keeps the URL's port for
// the Host line while its address points at the scripted server.
TEST_F(GetWire, HostLineInItsFourForms) {
    struct Row {
        scripted::Family family;
        const char *url;
        const char *request;
    };
    const Row rows[] = {
        {scripted::Family::IPv4, "http://127.0.0.1/a/b.bin",
         "GET /a/b.bin HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: */*\r\n\r\n"},
        {scripted::Family::IPv4, "http://127.0.0.1:8080/a/b.bin",
         "GET /a/b.bin HTTP/1.1\r\nHost: 127.0.0.1:8080\r\nAccept: */*\r\n\r\n"},
        {scripted::Family::IPv6, "http://[::1]/x",
         "GET /x HTTP/1.1\r\nHost: [::1]\r\nAccept: */*\r\n\r\n"},
        {scripted::Family::IPv6, "http://[::1]:8080/x?q=1",
         "GET /x?q=1 HTTP/1.1\r\nHost: [::1]:8080\r\nAccept: */*\r\n\r\n"},
        {scripted::Family::IPv4, "http://127.0.0.1:8080",
         "GET / HTTP/1.1\r\nHost: 127.0.0.1:8080\r\nAccept: */*\r\n\r\n"},
    };
    for (const Row &r : rows) {
        scripted::Server srv(r.family);
        srv.read_request().send(ok_head(2) + "ok");
        srv.start();
        Attempt a(r.url, file, srv.port());
        ASSERT_TRUE(a.ok()) << r.url;
        EXPECT_EQ(a.run(), HTTP_UTIL_OK) << r.url;
        ASSERT_TRUE(srv.wait());
        EXPECT_EQ(srv.request(), r.request);
        unlink(file.c_str());
    }
}

TEST_F(GetWire, ServerIgnoringTheRangeHasThePresentBytesSkipped) {
    dltest::write_file(file, pattern(1000));
    scripted::Server srv;
    srv.read_request().send(ok_head(2000) + pattern(2000));
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 0), HTTP_UTIL_OK);
    ASSERT_TRUE(srv.wait());
    EXPECT_NE(srv.request().find("Range: bytes=1000-\r\n"), std::string::npos);
    EXPECT_EQ(dltest::read_file(file), pattern(2000));
}

TEST_F(GetWire, ChangedServerFileRestartsUncountedAndFetchesTheWholeFile) {
    dltest::write_file(file, pattern(1000, 500));  // bytes of an older version
    struct utimbuf old = {kServerTime - 100, kServerTime - 100};
    ASSERT_EQ(utime(file.c_str(), &old), 0);
    const std::string lm = dltest::last_modified();
    scripted::Server srv;
    srv.read_request()
        .send(dltest::second_half(lm))
        .close()
        .read_request()
        .send(ok_head(2000, lm) + pattern(2000));
    srv.start();
    // No retry is allowed: the restart is not counted as one.
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 0), HTTP_UTIL_OK);
    ASSERT_TRUE(srv.wait());
    ASSERT_EQ(srv.connections(), 2u);
    EXPECT_NE(srv.request(0).find("Range: bytes=1000-"), std::string::npos);
    EXPECT_EQ(srv.request(1), get_request("/b.bin", dltest::host_of(srv)));
    EXPECT_TRUE(logged_by_get("unlink " + file + "."));
    EXPECT_EQ(dltest::read_file(file), pattern(2000));
    EXPECT_EQ(dltest::mtime_of(file), kServerTime);
    EXPECT_TRUE(interpose::pauses.empty()) << "a restart makes no pause";
}

TEST_F(GetWire, UndeletablePartialFileDoesNotRestartForever) {
    dltest::write_file(file, pattern(1000));
    struct utimbuf old = {kServerTime - 100, kServerTime - 100};
    ASSERT_EQ(utime(file.c_str(), &old), 0);
    interpose::fail_unlink_path = file;
    scripted::Server srv;
    srv.read_request().send(dltest::second_half(dltest::last_modified())).close();
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 0),
              HTTP_UTIL_ERR_SAVE_FILE);
    interpose::fail_unlink_path.clear();  // else the folder outlives the test
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.connections(), 1u);
    EXPECT_TRUE(fake::logged("Cannot write to " + file + " (Operation not permitted)."));
    EXPECT_EQ(dltest::read_file(file), pattern(1000)) << "the partial file is left alone";
}

TEST_F(GetWire, WithoutTimestampCheckTheChangedFileIsAppendedTo) {
    g_http_opt.timestamp_check = 0;
    dltest::write_file(file, pattern(1000));
    struct utimbuf old = {kServerTime - 100, kServerTime - 100};
    ASSERT_EQ(utime(file.c_str(), &old), 0);
    scripted::Server srv;
    srv.read_request().send(dltest::second_half(dltest::last_modified()));
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 0), HTTP_UTIL_OK);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.connections(), 1u);
    EXPECT_EQ(dltest::read_file(file), pattern(2000));
    EXPECT_EQ(dltest::mtime_of(file), kServerTime);
}

// The announced lengths as the attempt corrects them before the body.
TEST_F(GetWire, LengthReconciliation) {
    const std::string kSpan = "warning: Content-Range doesn't match Content-Length.";
    const std::string kFileLen = "warning: File length is less than Range-end.";
    const std::string kNoLen = "can't find content-length.\n";
    struct Row {
        const char *name;
        const char *fields;  // after the status line
        int body;            // bytes the server sends, then it closes
        const char *announced;
        int32_t content_len, file_len;
        std::vector<std::string> warnings;
    };
    const Row rows[] = {
        {"span smaller than Content-Length",
         "Content-Range: bytes 1000-1999/5000\r\nContent-Length: 2000\r\n", 1000,
         "http_rsp->file_len:5000 http_rsp->content_len:2000", 1000, 5000,
         {kSpan}},
        {"span larger than Content-Length",
         "Content-Range: bytes 1000-1999/5000\r\nContent-Length: 500\r\n", 500,
         "http_rsp->file_len:5000 http_rsp->content_len:500", 500, 5000,
         {kSpan}},
        {"file shorter than the range end",
         "Content-Range: bytes 1000-1999/1500\r\nContent-Length: 1000\r\n", 1000,
         "http_rsp->file_len:1500 http_rsp->content_len:1000", 1000, 1999,
         {kFileLen}},
        {"unknown complete length",
         "Content-Range: bytes 1000-1999/*\r\nContent-Length: 1000\r\n", 1000,
         "http_rsp->file_len:-1 http_rsp->content_len:1000", 1000, -1, {}},
        {"no length at all", "", 700, "http_rsp->file_len:0 http_rsp->content_len:-1", -1, 0,
         {kNoLen}},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        fake::device().logs.clear();
        const bool ranged = strstr(r.fields, "Content-Range") != nullptr;
        dltest::write_file(file, pattern(ranged ? 1000 : 0));
        scripted::Server srv;
        srv.read_request()
            .send(std::string(ranged ? "HTTP/1.1 206 Partial Content\r\n" : "HTTP/1.1 200 OK\r\n") +
                  r.fields + "\r\n" + pattern(r.body, 1000))
            .close();
        srv.start();
        Attempt a(srv.url("/b.bin"), file, srv.port());
        ASSERT_TRUE(a.ok());
        EXPECT_EQ(a.run(), HTTP_UTIL_OK);
        EXPECT_EQ(a.rsp().content_len, r.content_len);
        EXPECT_EQ(a.rsp().file_len, r.file_len);
        EXPECT_EQ(a.progress().total, static_cast<uint32_t>(r.file_len)) << "size stage";
        std::vector<std::string> warnings;
        for (const std::string &t : fake::log_texts("http_get"))
            if (t == kSpan || t == kFileLen || t == kNoLen) warnings.push_back(t);
        EXPECT_EQ(warnings, r.warnings);
        EXPECT_EQ(dltest::read_file(file).size(), (ranged ? 1000u : 0u) + r.body);
        EXPECT_TRUE(logged_by_get(r.announced)) << "logged as the server gave them";
    }
}

TEST_F(GetWire, DirectoryAtTheLocalPathCannotBeSaved) {
    ASSERT_EQ(mkdir(file.c_str(), 0755), 0);
    scripted::Server srv;
    srv.read_request().send(ok_head(5) + "hello");
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 3),
              HTTP_UTIL_ERR_SAVE_FILE);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.request(), get_request("/b.bin", dltest::host_of(srv))) << "no Range";
    EXPECT_TRUE(logged_by_get("fopen file error Is a directory."));
    EXPECT_TRUE(fake::logged("Cannot write to " + file + " (Is a directory)."));
    EXPECT_EQ(srv.connections(), 1u) << "not retried";
}

// Cut to 32 bits, the size of a 2 GiB file would ask for no Range, and that
// of a 4 GiB one for the wrong one, and the answer would be appended to it.
// Sparse files take no room.
TEST_F(GetWire, PartialFileOfTwoGibibytesIsNotResumedFromACutDownOffset) {
    for (long long size : {1LL << 31, (1LL << 32) + 1000}) {
        SCOPED_TRACE(size);
        int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        const bool sparse = ftruncate(fd, static_cast<off_t>(size)) == 0;
        close(fd);
        if (!sparse) GTEST_SKIP() << "no sparse file of " << size << " bytes here";
        scripted::Server srv;
        srv.read_request().send(ok_head(5) + "hello");
        srv.start();
        EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 3),
                  HTTP_UTIL_ERR_SAVE_FILE);
        EXPECT_EQ(srv.connections(), 0u) << "nothing sent";
        struct stat st;
        ASSERT_EQ(stat(file.c_str(), &st), 0);
        EXPECT_EQ(static_cast<long long>(st.st_size), size) << "the file is left alone";
        EXPECT_TRUE(fake::logged("Cannot write to " + file + " (File too large)."));
    }
}

TEST_F(GetWire, FailedBodyKeepsWhatArrivedWithTheServerTime) {
    scripted::Server srv;
    srv.read_request()
        .send(ok_head(5000, dltest::last_modified()) + pattern(100))
        .close();
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 0),
              HTTP_UTIL_ERR_RECV_DATA);
    EXPECT_EQ(dltest::read_file(file), pattern(100));
    EXPECT_EQ(dltest::mtime_of(file), kServerTime);
    EXPECT_TRUE(logged_by_get("modify " + file + " time " + kServerDate + "  success"));
}

TEST_F(GetWire, AnswerWithoutLastModifiedLeavesTheFileTimeAlone) {
    scripted::Server srv;
    srv.read_request().send(ok_head(5) + "hello");
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 0), HTTP_UTIL_OK);
    EXPECT_GT(dltest::mtime_of(file), kServerTime);
    for (const std::string &t : fake::log_texts("http_get"))
        EXPECT_NE(t.rfind("modify ", 0), 0u) << t;
}

TEST_F(GetWire, ChunkedBodyIsSaved) {
    scripted::Server srv;
    srv.read_request().send(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n");
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 0), HTTP_UTIL_OK);
    EXPECT_EQ(dltest::read_file(file), "hello world");
}

TEST_F(GetWire, KeptAliveConnectionIsClosedWithTheHandle) {
    scripted::Server srv;
    srv.read_request().send(ok_head(5, "Connection: keep-alive\r\n") + "hello").read_until_close();
    srv.start();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 0), HTTP_UTIL_OK);
    ASSERT_TRUE(srv.wait()) << "the server saw the connection close";
    EXPECT_EQ(dltest::read_file(file), "hello");
}

// Refused before any look-up or connection, by every call that takes a URL.
TEST_F(GetWire, ControlBytesAreRefusedWithoutConnecting) {
    scripted::Server srv;
    srv.start();
    const std::string sent = dir.write("up.bin", "x");
    for (const std::string bad : {"/a\rX-Injected: 1", "/a\nb", "/a\tb", "/a\x01" "b", "/a\x7f", "/a?q=\r\n"}) {
        SCOPED_TRACE(testing::PrintToString(bad));
        EXPECT_EQ(http_download_file_ntry(srv.url(bad).c_str(), file.c_str(), 0), HTTP_UTIL_ERR_URL_FORMAT);
        EXPECT_EQ(http_upload_file(srv.url(bad).c_str(), sent.c_str()), HTTP_UTIL_ERR_URL_FORMAT);
    }
    EXPECT_EQ(srv.connections(), 0u);
    EXPECT_FALSE(dltest::exists(file));
}

TEST_F(GetWire, SpacesGoOutAsPercent20AndTheSavedNameKeepsThem) {
    scripted::Server srv;
    srv.read_request().send(ok_head(2) + "ok");
    srv.start();
    int rc = dir.inside([&] { return http_download_file_ntry(srv.url("/a dir/b c.bin?q=x y").c_str(), nullptr, 0); });
    EXPECT_EQ(rc, HTTP_UTIL_OK);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.request(), get_request("/a%20dir/b%20c.bin?q=x%20y", dltest::host_of(srv)));
    EXPECT_EQ(dltest::read_file(dir.file("b c.bin")), "ok");
}

// A 416 to a Range that starts at the end of the server's file: the local
// file is already whole. A longer one, or another version of the same size,
// is dropped and fetched whole without counting a retry.
TEST_F(GetWire, UnsatisfiableRangeAtTheEndOfTheFile) {
    const std::string same_time = dltest::last_modified();
    const std::string other_time = "Last-Modified: Mon, 07 Nov 1994 08:49:37 GMT\r\n";
    struct Row {
        const char *name;
        size_t local;
        std::string fields;
        bool time_check;
        int result;
        bool fetched_whole;
    };
    const Row rows[] = {
        {"whole", 1000, "Content-Range: bytes */1000\r\n", true, HTTP_UTIL_OK, false},
        {"whole, same time", 1000, "Content-Range: bytes */1000\r\n" + same_time, true, HTTP_UTIL_OK, false},
        {"same size, another time", 1000, "Content-Range: bytes */1000\r\n" + other_time, true, HTTP_UTIL_OK, true},
        {"another time unchecked", 1000, "Content-Range: bytes */1000\r\n" + other_time, false, HTTP_UTIL_OK, false},
        {"longer than the server's", 1500, "Content-Range: bytes */1000\r\n", true, HTTP_UTIL_OK, true},
        {"shorter than the server's", 500, "Content-Range: bytes */1000\r\n", true, HTTP_UTIL_ERR_RANGE, false},
        {"no Content-Range", 1000, "", true, HTTP_UTIL_ERR_RANGE, false},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        g_http_opt.timestamp_check = r.time_check;
        dltest::write_file(file, pattern(r.local, 500));
        struct utimbuf t = {kServerTime, kServerTime};
        ASSERT_EQ(utime(file.c_str(), &t), 0);
        scripted::Server srv;
        srv.read_request()
            .send("HTTP/1.1 416 Range Not Satisfiable\r\n" + r.fields + "Content-Length: 5\r\n\r\nnope.")
            .close()
            .read_request()
            .send(ok_head(1000, same_time) + pattern(1000));
        srv.start();
        EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), file.c_str(), 0), r.result);
        EXPECT_EQ(srv.request(0),
                  get_request("/b.bin", dltest::host_of(srv), "bytes=" + std::to_string(r.local) + "-"));
        EXPECT_EQ(srv.connections(), r.fetched_whole ? 2u : 1u);
        EXPECT_EQ(srv.request(1), r.fetched_whole ? get_request("/b.bin", dltest::host_of(srv)) : "");
        EXPECT_EQ(dltest::read_file(file), r.fetched_whole ? pattern(1000) : pattern(r.local, 500));
        EXPECT_EQ(dltest::mtime_of(file), kServerTime);
        EXPECT_TRUE(interpose::pauses.empty());
    }
}

}  // namespace
