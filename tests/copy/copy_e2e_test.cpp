// The copy command against real peers: a download from nginx and an upload
// that the Python multipart sink parses.
#include <gtest/gtest.h>
#include <time.h>

#include <set>
#include <string>
#include <vector>

#include "../download/download_test_util.h"
#include "file_util.h"
#include "http_util.h"
#include "multipart_sink.h"
#include "nginx_peer.h"
#include "temp_dir.h"

namespace {

class CopyE2e : public testing::Test {
protected:
    void SetUp() override {
        fds_ = dltest::open_fds();
        param_.max_redirect = 5;
        param_.show_progress = 2;  // keep the test's terminal quiet
    }
    void TearDown() override {
        EXPECT_EQ(dltest::open_fds(), fds_) << "a transfer left a descriptor open";
    }

    TempDir dir_;
    http_util_param param_{};

private:
    std::set<std::string> fds_;
};

TEST_F(CopyE2e, DownloadReplacesTheDestinationWithTheServerFile) {
    if (peer::NginxPeer::nginx_path().empty())
        GTEST_SKIP() << "nginx not installed; ./scripts/install-deps installs it";
    {
        peer::NginxPeer nginx;
        ASSERT_TRUE(nginx.start()) << nginx.error();
        std::string data = nginx.put_random_file("fw.bin", 1u << 20, 1600000000);
        std::string dst = dir_.write("fw.bin", "old firmware");
        EXPECT_EQ(http_util_copy(nginx.url("/fw.bin").c_str(), dst.c_str(), &param_),
                  HTTP_UTIL_OK);
        EXPECT_TRUE(dltest::read_file(dst) == data) << "the file differs";
        EXPECT_EQ(dltest::mtime_of(dst), 1600000000);
        EXPECT_EQ(dir_.entries(), std::vector<std::string>{"fw.bin"});

        EXPECT_EQ(http_util_copy(nginx.url("/status/404").c_str(), dst.c_str(), &param_),
                  HTTP_UTIL_ERR_NOT_FOUND);
        EXPECT_TRUE(dltest::read_file(dst) == data) << "a failed copy changed the file";
        EXPECT_EQ(dir_.entries(), std::vector<std::string>{"fw.bin"});
    }
}

TEST_F(CopyE2e, UploadArrivesByteIdenticalAtTheMultipartSink) {
    if (peer::MultipartSink::python_path().empty())
        GTEST_SKIP() << "python3 not installed; ./scripts/install-deps installs it";
    peer::MultipartSink sink;
    ASSERT_TRUE(sink.start()) << sink.error();
    std::string data = peer::random_bytes(3u << 20, 5);
    std::string src = dir_.write("up.bin", data);
    EXPECT_EQ(http_util_copy(src.c_str(), sink.url("/upload").c_str(), &param_), HTTP_UTIL_OK);
    auto parts = sink.parts();
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts[0].mode, "multipart");
    EXPECT_EQ(parts[0].path, "/upload");
    EXPECT_EQ(parts[0].defects, "");
    EXPECT_EQ(parts[0].size, static_cast<long long>(data.size()));
    EXPECT_TRUE(sink.stored_bytes(parts[0]) == data) << "the stored part differs";
}

}  // namespace
