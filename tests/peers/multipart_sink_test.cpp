// The upload sink, proven with curl as the uploader: what it records is
// what was sent.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "curl_client.h"
#include "multipart_sink.h"

namespace peer {
namespace {

class MultipartSinkTest : public testing::Test {
protected:
    void SetUp() override {
        if (MultipartSink::python_path().empty() || !have_curl())
            GTEST_SKIP() << "python3 or curl not installed; ./scripts/install-deps installs them";
    }

    void start(const MultipartSink::Options &options = MultipartSink::Options()) {
        ASSERT_TRUE(sink_.start(options)) << sink_.error();
    }

    TempDir files_;
    MultipartSink sink_;
};

TEST_F(MultipartSinkTest, StoresUploadsByteIdenticalWithNameAndFilename) {
    start();
    const size_t sizes[] = {0, 1, 1023, 1024, 1025, 3 << 20};
    std::vector<std::string> sent;
    for (size_t size : sizes) {
        std::string name = "f" + std::to_string(size) + ".bin";
        sent.push_back(random_bytes(size, size + 7));
        ASSERT_TRUE(write_file(files_.file(name), sent.back()));
        CurlResult r = curl({"-F", "file1=@" + files_.file(name), sink_.url("/upload")});
        ASSERT_EQ(r.exit_code, 0) << r.error;
        EXPECT_EQ(r.status, 200) << name;
        EXPECT_EQ(r.body, "OK\n");
    }

    auto parts = sink_.parts();
    ASSERT_EQ(parts.size(), std::size(sizes));
    for (size_t i = 0; i < parts.size(); ++i) {
        const auto &p = parts[i];
        SCOPED_TRACE("size " + std::to_string(sizes[i]));
        EXPECT_EQ(p.request, static_cast<int>(i + 1));
        EXPECT_EQ(p.mode, "multipart");
        EXPECT_EQ(p.method, "POST");
        EXPECT_EQ(p.path, "/upload");
        EXPECT_EQ(p.name, "file1");
        EXPECT_EQ(p.filename, "f" + std::to_string(sizes[i]) + ".bin");
        EXPECT_EQ(p.size, static_cast<long long>(sizes[i]));
        EXPECT_EQ(p.defects, "");
        EXPECT_EQ(p.content_type.rfind("multipart/form-data; boundary=", 0), 0u) << p.content_type;
        EXPECT_GT(std::atoll(p.content_length.c_str()), p.size);
        EXPECT_TRUE(sink_.stored_bytes(p) == sent[i]) << "stored part differs";
    }
}

TEST_F(MultipartSinkTest, KeepsFilenameExactlyAsSent) {
    start();
    ASSERT_TRUE(write_file(files_.file("x"), "\r\n--"));
    const std::string filename = "/tmp/some dir/sub/x.bin";
    CurlResult r = curl({"-F", "file1=@" + files_.file("x") + ";filename=" + filename, sink_.url()});
    ASSERT_EQ(r.exit_code, 0) << r.error;
    auto parts = sink_.parts();
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts[0].filename, filename);
    EXPECT_EQ(parts[0].disposition, "form-data; name=\"file1\"; filename=\"" + filename + "\"");
    EXPECT_EQ(sink_.stored_bytes(parts[0]), "\r\n--");
}

TEST_F(MultipartSinkTest, StoresOctetStreamBodyAsIs) {
    start();
    std::string data = random_bytes(70000, 3);
    ASSERT_TRUE(write_file(files_.file("raw"), data));
    CurlResult r = curl({"--data-binary", "@" + files_.file("raw"), "-H",
                         "Content-Type: application/octet-stream", sink_.url("/raw/path")});
    ASSERT_EQ(r.exit_code, 0) << r.error;
    EXPECT_EQ(r.status, 200);
    auto parts = sink_.parts();
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts[0].mode, "raw");
    EXPECT_EQ(parts[0].path, "/raw/path");
    EXPECT_EQ(parts[0].content_type, "application/octet-stream");
    EXPECT_EQ(parts[0].content_length, "70000");
    EXPECT_TRUE(sink_.stored_bytes(parts[0]) == data);
}

TEST_F(MultipartSinkTest, AnswersTheConfiguredStatusAndBody) {
    MultipartSink::Options options;
    options.status = 201;
    options.reply = "created here\n";
    options.reply_chunked = true;
    start(options);
    ASSERT_TRUE(write_file(files_.file("one"), "1"));
    CurlResult r = curl({"--raw", "-F", "file1=@" + files_.file("one"), sink_.url()});
    ASSERT_EQ(r.exit_code, 0) << r.error;
    EXPECT_EQ(r.status, 201);
    EXPECT_EQ(r.header("Transfer-Encoding"), "chunked");
    std::string body;
    int chunks = 0;
    ASSERT_TRUE(decode_chunked(r.body, &body, &chunks));
    EXPECT_EQ(body, "created here\n");

    sink_.stop();
    options = MultipartSink::Options();
    options.status = 404;
    start(options);
    EXPECT_EQ(curl({"-F", "file1=@" + files_.file("one"), sink_.url()}).status, 404);
}

TEST_F(MultipartSinkTest, DiscardModeCountsBytesAndKeepsNothing) {
    MultipartSink::Options options;
    options.discard = true;
    start(options);
    ASSERT_TRUE(write_file(files_.file("d"), random_bytes(200000)));
    CurlResult r = curl({"--data-binary", "@" + files_.file("d"), sink_.url()});
    ASSERT_EQ(r.exit_code, 0) << r.error;
    EXPECT_EQ(r.status, 200);
    auto parts = sink_.parts();
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts[0].mode, "discard");
    EXPECT_EQ(parts[0].size, 200000);
    EXPECT_EQ(parts[0].stored, "");
}

// The faults an uploader can make in the form: the sink must notice them.
TEST_F(MultipartSinkTest, MissingClosingDelimiterIsRecordedAndAnswered400) {
    start();
    const std::string boundary = "--------------------ABCDEFGHIJKLMNOPQRSTUVW";
    std::string body = "--" + boundary +
                       "\r\nContent-Disposition: form-data; name=\"file1\"; filename=\"a\"\r\n"
                       "Content-Type: application/octet-stream\r\n\r\nabc";
    ASSERT_TRUE(write_file(files_.file("form"), body));
    CurlResult r = curl({"--data-binary", "@" + files_.file("form"), "-H",
                         "Content-Type: multipart/form-data; boundary=" + boundary, sink_.url()});
    EXPECT_EQ(r.status, 400);
    auto parts = sink_.parts();
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_NE(parts[0].defects.find("CloseBoundaryNotFoundDefect"), std::string::npos)
        << parts[0].defects;
}

TEST_F(MultipartSinkTest, UploadCutOffHalfWayIsRecordedAsShort) {
    start();
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in a = {};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(sink_.port()));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&a), sizeof a), 0);
    std::string request = "POST /cut HTTP/1.1\r\nHost: x\r\nContent-Type: application/octet-stream\r\n"
                          "Content-Length: 1000\r\n\r\n0123456789";
    ASSERT_EQ(write(fd, request.data(), request.size()), static_cast<ssize_t>(request.size()));
    close(fd);

    ASSERT_TRUE(sink_.wait_requests(1, milliseconds(10000)));
    auto parts = sink_.parts();
    ASSERT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts[0].mode, "error");
    EXPECT_EQ(parts[0].defects, "ShortBody");
    EXPECT_EQ(parts[0].size, 10);
}

}  // namespace
}  // namespace peer
