// nginx as the download peer, proven with curl: what later end-to-end tests
// rely on it to send.
#include <gtest/gtest.h>
#include <time.h>

#include "curl_client.h"
#include "nginx_peer.h"

namespace peer {
namespace {

constexpr time_t kMtime = 1600000000;  // Sun, 13 Sep 2020 12:26:40 GMT
constexpr const char *kMtimeText = "Sun, 13 Sep 2020 12:26:40 GMT";

class NginxPeerTest : public testing::Test {
protected:
    void SetUp() override {
        if (NginxPeer::nginx_path().empty())
            GTEST_SKIP() << "nginx not found and not installed here; ./scripts/install-deps "
                            "installs it";
        if (!have_curl())
            GTEST_SKIP() << "curl not found; ./scripts/install-deps installs it";
        ASSERT_TRUE(nginx_.start()) << nginx_.error();
    }

    NginxPeer nginx_;
};

TEST_F(NginxPeerTest, ServesFiveMebibytesByteIdenticalWithLastModified) {
    std::string data = nginx_.put_random_file("big.bin", 5 << 20, kMtime);
    ASSERT_EQ(data.size(), 5u << 20);

    CurlResult r = curl({nginx_.url("/big.bin")});
    ASSERT_EQ(r.exit_code, 0) << r.error;
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.header("Content-Length"), std::to_string(data.size()));
    EXPECT_EQ(r.header("Last-Modified"), kMtimeText);
    EXPECT_TRUE(r.body == data) << "body differs from the file";
}

TEST_F(NginxPeerTest, RangeRequestsAnswerAsTheFileAllows) {
    const size_t size = 100000;
    std::string data = nginx_.put_random_file("f.bin", size, kMtime);
    struct Case {
        const char *path;
        const char *range;
        int status;
        const char *content_range;  // "" = none
        size_t body_from;           // npos = no file bytes expected
    } cases[] = {
        {"/f.bin", "bytes=1000-", 206, "bytes 1000-99999/100000", 1000},
        {"/f.bin", "bytes=99999-", 206, "bytes 99999-99999/100000", 99999},
        {"/f.bin", "bytes=0-", 206, "bytes 0-99999/100000", 0},
        {"/f.bin", "bytes=100000-", 416, "bytes */100000", std::string::npos},
        {"/norange/f.bin", "bytes=1000-", 200, "", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.path) + " " + c.range);
        CurlResult r = curl({"-H", std::string("Range: ") + c.range, nginx_.url(c.path)});
        ASSERT_EQ(r.exit_code, 0) << r.error;
        EXPECT_EQ(r.status, c.status);
        bool has_range = false;
        EXPECT_EQ(r.header("Content-Range", &has_range), c.content_range);
        EXPECT_EQ(has_range, *c.content_range != '\0');
        if (c.body_from != std::string::npos) {
            EXPECT_TRUE(r.body == data.substr(c.body_from)) << "body differs";
            EXPECT_EQ(r.header("Last-Modified"), kMtimeText);
        }
    }
}

TEST_F(NginxPeerTest, RedirectChainsEndAtTheFile) {
    std::string data = nginx_.put_random_file("target.bin", 3000);
    for (int code : {301, 302, 303, 307, 308, 0}) {
        SCOPED_TRACE("code " + std::to_string(code));
        std::string first = NginxPeer::redirect_path(code, 3, "target.bin");

        CurlResult hop = curl({nginx_.url(first)});
        ASSERT_EQ(hop.exit_code, 0) << hop.error;
        EXPECT_EQ(hop.status, code ? code : 303);
        EXPECT_EQ(hop.header("Location"),
                  nginx_.url(NginxPeer::redirect_path(code, 2, "target.bin")));

        CurlResult all = curl({"-L", nginx_.url(first)});
        ASSERT_EQ(all.exit_code, 0) << all.error;
        EXPECT_EQ(all.status, 200);
        EXPECT_EQ(all.redirects, 3);
        EXPECT_EQ(all.final_url, nginx_.url("/target.bin"));
        EXPECT_TRUE(all.body == data);
    }
    // The mixed chain answers 301, 302, 303, 307 at hop counts 1, 2, 3, 4, ...
    EXPECT_EQ(curl({nginx_.url(NginxPeer::redirect_path(0, 2, "target.bin"))}).status, 302);

    CurlResult rel = curl({nginx_.url("/redirect-rel/302/2/target.bin")});
    EXPECT_EQ(rel.status, 302);
    EXPECT_EQ(rel.header("Location"), "/redirect-rel/302/1/target.bin");
    CurlResult last = curl({nginx_.url("/redirect/307/1/target.bin")});
    EXPECT_EQ(last.header("Location"), nginx_.url("/target.bin"));
}

TEST_F(NginxPeerTest, RefusingLocationsAnswerTheirStatus) {
    struct Case {
        const char *path;
        int status;
    } cases[] = {{"/status/401", 401}, {"/status/403", 403}, {"/status/404", 404},
                 {"/status/500", 500}, {"/no-such-file", 404}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        CurlResult r = curl({nginx_.url(c.path)});
        ASSERT_EQ(r.exit_code, 0) << r.error;
        EXPECT_EQ(r.status, c.status);
    }
    EXPECT_EQ(curl({nginx_.url("/status/401")}).header("WWW-Authenticate"), "Basic realm=\"peer\"");
}

TEST_F(NginxPeerTest, ChunkedLocationSendsChunkedCoding) {
    std::string data = nginx_.put_random_file("c.bin", 300000, kMtime);

    CurlResult r = curl({"--raw", nginx_.url("/chunked/c.bin")});
    ASSERT_EQ(r.exit_code, 0) << r.error;
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.header("Transfer-Encoding"), "chunked");
    bool has_length = true;
    r.header("Content-Length", &has_length);
    EXPECT_FALSE(has_length);
    EXPECT_EQ(r.header("Last-Modified"), kMtimeText);
    std::string body;
    int chunks = 0;
    ASSERT_TRUE(decode_chunked(r.body, &body, &chunks));
    EXPECT_GT(chunks, 1);
    EXPECT_TRUE(body == data);
}

TEST_F(NginxPeerTest, NoLastModifiedLocationLeavesItOut) {
    std::string data = nginx_.put_random_file("n.bin", 1000, kMtime);
    CurlResult r = curl({nginx_.url("/nolm/n.bin")});
    ASSERT_EQ(r.exit_code, 0) << r.error;
    bool found = true;
    r.header("Last-Modified", &found);
    EXPECT_FALSE(found);
    EXPECT_TRUE(r.body == data);
}

TEST_F(NginxPeerTest, AccessLogShowsTheRangeAsked) {
    nginx_.put_random_file("a.bin", 5000);
    curl({"-H", "Range: bytes=100-", nginx_.url("/a.bin")});
    ASSERT_TRUE(nginx_.wait_access_log(1, milliseconds(5000)));
    EXPECT_EQ(nginx_.access_log(), "GET\t/a.bin\t206\tbytes=100-\t4900\n");
}

TEST(NginxPeerIpv6, ServesOnIpv6Loopback) {
    if (NginxPeer::nginx_path().empty() || !have_curl())
        GTEST_SKIP() << "nginx or curl not installed; ./scripts/install-deps installs them";
    if (!ipv6_loopback_available())
        GTEST_SKIP() << "no IPv6 loopback address here";
    NginxPeer nginx;
    NginxPeer::Options options;
    options.ipv6 = true;
    ASSERT_TRUE(nginx.start(options)) << nginx.error();
    std::string data = nginx.put_random_file("six.bin", 2048);
    for (const std::string &url : {nginx.url("/six.bin"), nginx.url6("/six.bin")}) {
        CurlResult r = curl({url});
        ASSERT_EQ(r.exit_code, 0) << url << ": " << r.error;
        EXPECT_TRUE(r.body == data) << url;
    }
}

}  // namespace
}  // namespace peer
