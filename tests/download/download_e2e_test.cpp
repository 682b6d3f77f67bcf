// Downloads from nginx on a loopback port: a server nobody here wrote.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "download_test_util.h"
#include "fake_device.h"
#include "file_util.h"
#include "http_util.h"
#include "nginx_peer.h"
#include "temp_dir.h"

namespace {

using peer::NginxPeer;

constexpr time_t kMtime = 1600000000;  // Sun, 13 Sep 2020 12:26:40 GMT
constexpr size_t kBig = 5u << 20;

class DownloadE2e : public testing::Test {
protected:
    void SetUp() override {
        if (NginxPeer::nginx_path().empty())
            GTEST_SKIP() << "nginx not installed; ./scripts/install-deps installs it";
        fds_ = dltest::open_fds();
        ASSERT_TRUE(nginx_.start()) << nginx_.error();
    }
    void TearDown() override {
        if (NginxPeer::nginx_path().empty()) return;
        nginx_.stop();
        EXPECT_EQ(dltest::open_fds(), fds_) << "a transfer left a descriptor open";
    }

    // Lines of nginx's access log: METHOD URI STATUS RANGE BYTES.
    std::vector<std::string> access_lines(size_t n) {
        EXPECT_TRUE(nginx_.wait_access_log(n, peer::milliseconds(5000)));
        std::vector<std::string> out;
        std::string log = nginx_.access_log();
        for (size_t pos = 0, nl; (nl = log.find('\n', pos)) != std::string::npos; pos = nl + 1)
            out.push_back(log.substr(pos, nl - pos));
        return out;
    }

    NginxPeer nginx_;
    TempDir dir_;
    std::string file_ = dir_.file("big.bin");

private:
    std::set<std::string> fds_;
};

TEST_F(DownloadE2e, FiveMebibytesArriveByteIdenticalWithTheServerTime) {
    std::string data = nginx_.put_random_file("big.bin", kBig, kMtime);
    ASSERT_EQ(data.size(), kBig);
    EXPECT_EQ(http_download_file_ntry(nginx_.url("/big.bin").c_str(), file_.c_str(), 0),
              HTTP_UTIL_OK);
    EXPECT_TRUE(dltest::read_file(file_) == data) << "the file differs";
    EXPECT_EQ(dltest::mtime_of(file_), kMtime);
}

TEST_F(DownloadE2e, PartialCopyWithTheServerTimeIsResumed) {
    std::string data = nginx_.put_random_file("big.bin", kBig, kMtime);
    ASSERT_TRUE(peer::write_file(file_, data.substr(0, 2u << 20), kMtime));
    EXPECT_EQ(http_download_file_ntry(nginx_.url("/big.bin").c_str(), file_.c_str(), 0),
              HTTP_UTIL_OK);
    EXPECT_TRUE(dltest::read_file(file_) == data) << "the file differs";
    EXPECT_EQ(dltest::mtime_of(file_), kMtime);
    EXPECT_EQ(access_lines(1),
              std::vector<std::string>{"GET\t/big.bin\t206\tbytes=2097152-\t3145728"});
}

TEST_F(DownloadE2e, PartialCopyWithAnotherTimeIsFetchedWhole) {
    std::string data = nginx_.put_random_file("big.bin", kBig, kMtime);
    ASSERT_TRUE(peer::write_file(file_, peer::random_bytes(2u << 20, 99), kMtime - 3600));
    EXPECT_EQ(http_download_file_ntry(nginx_.url("/big.bin").c_str(), file_.c_str(), 0),
              HTTP_UTIL_OK);
    EXPECT_TRUE(dltest::read_file(file_) == data) << "the file differs";
    EXPECT_EQ(dltest::mtime_of(file_), kMtime);
    auto lines = access_lines(2);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].rfind("GET\t/big.bin\t206\tbytes=2097152-\t", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1], "GET\t/big.bin\t200\t-\t" + std::to_string(kBig));
}

TEST_F(DownloadE2e, RedirectionChainsAreFollowed) {
    std::string data = nginx_.put_random_file("t.bin", 3000, kMtime);
    // 0: 307, 303, 302, 301 in turn, then the file; -1: relative Locations
    // (absolute_redirect off; return 302 /path).
    for (int code : {301, 302, 303, 307, 0, -1}) {
        SCOPED_TRACE("code " + std::to_string(code));
        unlink(file_.c_str());
        std::string url = nginx_.url(code < 0 ? "/redirect-rel/302/3/t.bin"
                                              : NginxPeer::redirect_path(code, code ? 3 : 4, "t.bin"));
        EXPECT_EQ(http_download_file_ntry(url.c_str(), file_.c_str(), 0), HTTP_UTIL_OK);
        EXPECT_TRUE(dltest::read_file(file_) == data);
    }
}

TEST_F(DownloadE2e, RefusingLocationsGiveTheirCodes) {
    struct Row {
        const char *path;
        int expected;
    };
    const Row rows[] = {
        {"/status/401", HTTP_UTIL_ERR_UNAUTHORIZED},
        {"/status/403", HTTP_UTIL_ERR_FORBIDDEN},
        {"/status/404", HTTP_UTIL_ERR_NOT_FOUND},
        {"/no-such-file.bin", HTTP_UTIL_ERR_NOT_FOUND},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.path);
        EXPECT_EQ(http_download_file_ntry(nginx_.url(r.path).c_str(), file_.c_str(), 2),
                  r.expected);
        EXPECT_FALSE(dltest::exists(file_));
    }
    EXPECT_EQ(access_lines(4).size(), 4u) << "none retried";
}

// Asked from its end, nginx answers 416 with bytes */SIZE: a complete file
// is left as it is, a longer one replaced by the server's.
TEST_F(DownloadE2e, AFileAlreadyThereIsKeptWhenWholeAndReplacedWhenLonger) {
    std::string data = nginx_.put_random_file("big.bin", 100000, kMtime);
    ASSERT_EQ(http_download_file_ntry(nginx_.url("/big.bin").c_str(), file_.c_str(), 0), HTTP_UTIL_OK);
    EXPECT_EQ(http_download_file_ntry(nginx_.url("/big.bin").c_str(), file_.c_str(), 0), HTTP_UTIL_OK);
    EXPECT_TRUE(dltest::read_file(file_) == data) << "the file differs";
    EXPECT_EQ(dltest::mtime_of(file_), kMtime);
    ASSERT_TRUE(peer::write_file(file_, data + "more", kMtime));
    EXPECT_EQ(http_download_file_ntry(nginx_.url("/big.bin").c_str(), file_.c_str(), 0), HTTP_UTIL_OK);
    EXPECT_TRUE(dltest::read_file(file_) == data) << "the file differs";
    auto lines = access_lines(4);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[1].rfind("GET\t/big.bin\t416\tbytes=100000-\t", 0), 0u) << lines[1];
    EXPECT_EQ(lines[2].rfind("GET\t/big.bin\t416\tbytes=100004-\t", 0), 0u) << lines[2];
    EXPECT_EQ(lines[3], "GET\t/big.bin\t200\t-\t100000");
}

TEST_F(DownloadE2e, AFileNamedWithASpaceIsServed) {
    std::string data = nginx_.put_random_file("a b.bin", 3000, kMtime);
    int rc = dir_.inside([&] { return http_download_file_ntry(nginx_.url("/a b.bin").c_str(), nullptr, 0); });
    EXPECT_EQ(rc, HTTP_UTIL_OK);
    EXPECT_TRUE(dltest::read_file(dir_.file("a b.bin")) == data) << "the file differs";
    EXPECT_EQ(access_lines(1), std::vector<std::string>{"GET\t/a%20b.bin\t200\t-\t3000"});
}

int count_blocks(http_progress *p, uint32_t) {
    ++p->priv[0];
    return 0;
}

// Every exported call once, each through a location of its own. The chunked
// body is large enough for nginx to write it in many pieces, so that size
// lines arrive cut between segments.
TEST_F(DownloadE2e, EveryDownloadCallRunsEndToEnd) {
    std::string data = nginx_.put_random_file("f.bin", 300000, kMtime);
    fake::device().ifindex["mgmt0"] = 3;
    fake::device().if_vrf[3] = 0;
    const uint32_t tlv[] = {HTTP_UTIL_TLV_SRC_IP, 4, htonl(INADDR_LOOPBACK), HTTP_UTIL_TLV_END, 0};
    http_progress progress{};
    progress.on_progress = count_blocks;
    struct Row {
        const char *name;
        const char *path;
        std::function<int(const char *url, const char *file)> run;
        bool with_progress;
    };
    const Row rows[] = {
        {"http_download_file", "/f.bin",
         [](const char *u, const char *f) { return http_download_file(u, f); }, false},
        {"http_download_file_tlv", "/chunked/f.bin",
         [&](const char *u, const char *f) { return http_download_file_tlv(u, f, tlv); }, false},
        {"http_download_file_ntry", "/nolm/f.bin",
         [](const char *u, const char *f) { return http_download_file_ntry(u, f, 1); }, false},
        {"http_download_file_ntry_tlv", "/norange/f.bin",
         [&](const char *u, const char *f) { return http_download_file_ntry_tlv(u, f, 1, tlv); },
         false},
        {"http_download_file_progress", "/f.bin",
         [&](const char *u, const char *f) {
             return http_download_file_progress(&progress, u, f, 1);
         },
         true},
        {"http_download_file_progress_tlv", "/chunked/f.bin",
         [&](const char *u, const char *f) {
             return http_download_file_progress_tlv(&progress, u, f, 1, tlv);
         },
         true},
        {"http_mgnt_download_file_progress", "/f.bin",
         [&](const char *u, const char *f) {
             return http_mgnt_download_file_progress(&progress, u, f, 1);
         },
         true},
        {"http_mgnt_download_file_progress_byname", "/redirect/302/2/f.bin",
         [&](const char *u, const char *f) {
             return http_mgnt_download_file_progress_byname(&progress, u, f, 1, "mgmt0");
         },
         true},
        {"http_mgnt_download_file", "/f.bin",
         [](const char *u, const char *f) { return http_mgnt_download_file(u, f); }, false},
        {"http_mngt_download_file_ntry", "/f.bin",
         [](const char *u, const char *f) { return http_mngt_download_file_ntry(u, f, 0); },
         false},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        std::string local = dir_.file(std::string(r.name) + ".bin");
        progress.done = progress.total = 0;
        progress.priv[0] = 0;
        EXPECT_EQ(r.run(nginx_.url(r.path).c_str(), local.c_str()), HTTP_UTIL_OK);
        EXPECT_TRUE(dltest::read_file(local) == data) << "the file differs";
        if (r.with_progress) {
            EXPECT_EQ(progress.done, data.size());
            EXPECT_GT(progress.priv[0], 0u) << "the callback ran";
        }
    }
}

}  // namespace
