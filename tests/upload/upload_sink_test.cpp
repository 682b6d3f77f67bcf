// Uploads checked by peers nobody here wrote: Python's email package behind
// a loopback HTTP server, and nginx.
#include <dirent.h>
#include <gtest/gtest.h>

#include <string>

#include "file_util.h"
#include "http_util.h"
#include "multipart_sink.h"
#include "nginx_peer.h"
#include "temp_dir.h"

namespace {

size_t open_descriptors() {
    size_t n = 0;
    if (DIR *d = opendir("/proc/self/fd")) {
        while (readdir(d) != nullptr) ++n;
        closedir(d);
    }
    return n;
}

class UploadToSink : public testing::TestWithParam<size_t> {
protected:
    void SetUp() override {
        if (peer::MultipartSink::python_path().empty()) GTEST_SKIP() << "no python3";
        ASSERT_TRUE(sink_.start()) << sink_.error();
    }
    peer::MultipartSink sink_;
    TempDir dir_;
};

TEST_P(UploadToSink, ArrivesByteIdenticalWithFieldAndFilename) {
    const size_t size = GetParam();
    const std::string data = peer::random_bytes(size, static_cast<unsigned>(size) + 7);
    const std::string file = dir_.write("payload " + std::to_string(size) + ".bin", data);
    const size_t fds = open_descriptors();
    ASSERT_EQ(http_upload_file(sink_.url("/upload").c_str(), file.c_str()), HTTP_UTIL_OK);
    EXPECT_EQ(open_descriptors(), fds) << "a descriptor was left open";
    auto parts = sink_.parts();
    ASSERT_EQ(parts.size(), 1u);
    const auto &p = parts[0];
    EXPECT_EQ(p.mode, "multipart");
    EXPECT_EQ(p.name, "file1");
    EXPECT_EQ(p.filename, file) << "the filename carries the path as passed";
    EXPECT_EQ(p.defects, "");
    EXPECT_EQ(p.size, static_cast<long long>(size));
    EXPECT_TRUE(sink_.stored_bytes(p) == data) << "payload differs";
}

INSTANTIATE_TEST_SUITE_P(Sizes, UploadToSink,
                         testing::Values(0, 1, 1023, 1024, 1025, 3u << 20),
                         [](const testing::TestParamInfo<size_t> &i) {
                             return "bytes_" + std::to_string(i.param);
                         });

TEST(UploadToSinkAnswers, NonOkStatusIsReported) {
    if (peer::MultipartSink::python_path().empty()) GTEST_SKIP() << "no python3";
    peer::MultipartSink sink;
    peer::MultipartSink::Options o;
    o.status = 201;
    ASSERT_TRUE(sink.start(o)) << sink.error();
    TempDir dir;
    const std::string file = dir.write("f", "abc");
    EXPECT_EQ(http_upload_file(sink.url("/u").c_str(), file.c_str()), HTTP_UTIL_ERR_NOT_OK);
    ASSERT_EQ(sink.parts().size(), 1u);
    EXPECT_EQ(sink.stored_bytes(sink.parts()[0]), "abc") << "the upload itself went through";
}

TEST(UploadToSinkAnswers, ChunkedReplySavedByThePostDriver) {
    if (peer::MultipartSink::python_path().empty()) GTEST_SKIP() << "no python3";
    peer::MultipartSink sink;
    peer::MultipartSink::Options o;
    o.reply = "stored and thanked\n";
    o.reply_chunked = true;
    ASSERT_TRUE(sink.start(o)) << sink.error();
    TempDir dir;
    const std::string file = dir.write("f", std::string(5000, 'q'));
    const std::string url = sink.url("/u");
    http_util_param param{};
    int err = 0;
    http_url_param *rec = http_create_url_param(url.c_str(), &err, &param, 0, nullptr);
    ASSERT_NE(rec, nullptr);
    const std::string save = dir.file("reply");
    EXPECT_EQ(http_post_loop(rec, file.c_str(), save.c_str()), HTTP_UTIL_OK);
    free(rec);
    EXPECT_EQ(TempDir::read(save), "stored and thanked\n");
    ASSERT_EQ(sink.parts().size(), 1u);
    EXPECT_EQ(sink.parts()[0].mode, "raw") << "multipart byte left 0: the raw body";
    EXPECT_EQ(sink.stored_bytes(sink.parts()[0]), std::string(5000, 'q'));
}

// A strict server refuses a Host without brackets round an IPv6 literal;
// nginx answers this location with the Host it was sent.
TEST(UploadToNginx, Ipv6LiteralHostIsBracketed) {
    if (peer::NginxPeer::nginx_path().empty()) GTEST_SKIP() << "no nginx";
    if (!peer::ipv6_loopback_available()) GTEST_SKIP() << "no IPv6 loopback address";
    peer::NginxPeer nginx;
    peer::NginxPeer::Options o;
    o.ipv6 = true;
    ASSERT_TRUE(nginx.start(o)) << nginx.error();
    TempDir dir;
    const std::string file = dir.write("f", std::string(5000, 'q')), save = dir.file("reply");
    const std::string url = nginx.url6("/host");
    http_util_param param{};
    int err = 0;
    http_url_param *rec = http_create_url_param(url.c_str(), &err, &param, 0, nullptr);
    ASSERT_NE(rec, nullptr);
    rec->multipart = 1;
    EXPECT_EQ(http_post_loop(rec, file.c_str(), save.c_str()), HTTP_UTIL_OK);
    free(rec);
    EXPECT_EQ(TempDir::read(save), "[::1]:" + std::to_string(nginx.port()));
}

}  // namespace
