// The demo's loopback file server, proven with curl.
#include <gtest/gtest.h>

#include "curl_client.h"
#include "file_server_peer.h"

namespace peer {
namespace {

constexpr time_t kMtime = 1577934245;  // Thu, 02 Jan 2020 03:04:05 GMT
constexpr const char *kMtimeText = "Thu, 02 Jan 2020 03:04:05 GMT";

class FileServerTest : public testing::Test {
protected:
    void SetUp() override {
        if (FileServerPeer::binary_path().empty())
            GTEST_SKIP() << "http-file-server not built: libcpp-httplib-dev is missing "
                            "(./scripts/install-deps installs it)";
        if (!have_curl())
            GTEST_SKIP() << "curl not found; ./scripts/install-deps installs it";
    }

    void start(const FileServerPeer::Options &options = FileServerPeer::Options()) {
        ASSERT_TRUE(server_.start(options)) << server_.error();
        data_ = server_.put_random_file("f.bin", 200000, kMtime);
        ASSERT_EQ(data_.size(), 200000u);
    }

    FileServerPeer server_;
    std::string data_;
    TempDir files_;
};

TEST_F(FileServerTest, ServesFilesWithRangesAndLastModified) {
    start();
    struct Case {
        const char *range;  // "" = none
        int status;
        const char *content_range;
        size_t body_from;  // npos = no file bytes
    } cases[] = {
        {"", 200, "", 0},
        {"bytes=1000-", 206, "bytes 1000-199999/200000", 1000},
        {"bytes=199999-", 206, "bytes 199999-199999/200000", 199999},
        {"bytes=200000-", 416, "bytes */200000", std::string::npos},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.range);
        std::vector<std::string> args = {server_.url("/f.bin")};
        if (*c.range)
            args.insert(args.begin(), {"-H", std::string("Range: ") + c.range});
        CurlResult r = curl(args);
        ASSERT_EQ(r.exit_code, 0) << r.error;
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.header("Content-Range"), c.content_range);
        EXPECT_EQ(r.header("Last-Modified"), kMtimeText);
        if (c.body_from != std::string::npos) {
            EXPECT_TRUE(r.body == data_.substr(c.body_from)) << "body differs";
        }
    }
    EXPECT_EQ(curl({server_.url("/missing.bin")}).status, 404);
    EXPECT_EQ(curl({"--path-as-is", server_.url("/../f.bin")}).status, 404);
}

TEST_F(FileServerTest, ChunkedPrefixSendsChunkedCoding) {
    start();
    CurlResult r = curl({"--raw", server_.url("/chunked/f.bin")});
    ASSERT_EQ(r.exit_code, 0) << r.error;
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.header("Transfer-Encoding"), "chunked");
    EXPECT_EQ(r.header("Last-Modified"), kMtimeText);
    std::string body;
    int chunks = 0;
    ASSERT_TRUE(decode_chunked(r.body, &body, &chunks));
    EXPECT_GT(chunks, 1);
    EXPECT_TRUE(body == data_);
}

TEST_F(FileServerTest, RedirectChainEndsAtTheFile) {
    start();
    CurlResult hop = curl({server_.url("/redirect/3/f.bin")});
    EXPECT_EQ(hop.status, 302);
    EXPECT_EQ(hop.header("Location"), server_.url("/redirect/2/f.bin"));

    CurlResult r = curl({"-L", server_.url("/redirect/3/f.bin")});
    ASSERT_EQ(r.exit_code, 0) << r.error;
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.redirects, 3);
    EXPECT_EQ(r.final_url, server_.url("/f.bin"));
    EXPECT_TRUE(r.body == data_);
}

TEST_F(FileServerTest, UploadsLandByteIdentical) {
    start();
    std::string data = random_bytes(300001, 9);
    ASSERT_TRUE(write_file(files_.file("up.bin"), data));

    // A multipart file part goes under its filename's base name, whatever
    // directories the filename names.
    CurlResult form = curl({"-F", "file1=@" + files_.file("up.bin") + ";filename=/some/dir/up.bin",
                            server_.url("/upload")});
    ASSERT_EQ(form.exit_code, 0) << form.error;
    EXPECT_EQ(form.status, 200) << form.body;
    EXPECT_TRUE(read_file(server_.upload_dir() + "/up.bin") == data);

    // Any other body goes under the URL path.
    CurlResult raw = curl({"--data-binary", "@" + files_.file("up.bin"), "-H",
                           "Content-Type: application/octet-stream", server_.url("/in/raw.bin")});
    ASSERT_EQ(raw.exit_code, 0) << raw.error;
    EXPECT_EQ(raw.status, 200) << raw.body;
    EXPECT_TRUE(read_file(server_.upload_dir() + "/in/raw.bin") == data);

    CurlResult escape = curl({"--path-as-is", "--data-binary", "x", "-H",
                              "Content-Type: application/octet-stream", server_.url("/../x")});
    EXPECT_EQ(escape.status, 400);
}

TEST_F(FileServerTest, SlowModeHoldsTheRate) {
    FileServerPeer::Options options;
    options.slow = 100000;
    start(options);
    auto begin = Clock::now();
    CurlResult r = curl({"-H", "Range: bytes=150000-", server_.url("/f.bin")});
    auto took = Clock::now() - begin;
    ASSERT_EQ(r.exit_code, 0) << r.error;
    EXPECT_TRUE(r.body == data_.substr(150000));
    // 50000 bytes at 100000 per second: half a second at the least.
    EXPECT_GE(took, milliseconds(450));
}

}  // namespace
}  // namespace peer
