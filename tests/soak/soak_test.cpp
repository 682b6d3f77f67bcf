// Transfers through a proxy that cuts connections at random offsets, by a
// close or a reset. Downloads, plain and re-chunked, must always end whole,
// resumed by Range; a cut upload must never report success. A failure
// prints the seed: HTTP_UTIL_SOAK_SEED=<seed> replays the run.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "../download/download_test_util.h"
#include "cutting_proxy.h"
#include "file_util.h"
#include "http_util.h"
#include "interpose.h"
#include "multipart_sink.h"
#include "nginx_peer.h"
#include "temp_dir.h"

namespace {

using peer::CuttingProxy;

constexpr time_t kMtime = 1600000000;
constexpr int kDownloads = 600;
constexpr int kUploads = 300;
constexpr int kManyTries = 1000;

class Soak : public testing::Test {
protected:
    void SetUp() override {
        fds_ = dltest::open_fds();
        g_http_opt.wait = 0;
        trace_ = std::make_unique<testing::ScopedTrace>(
            __FILE__, __LINE__, "replay with HTTP_UTIL_SOAK_SEED=" + std::to_string(seed_));
    }
    void TearDown() override {
        EXPECT_EQ(dltest::open_fds(), fds_) << "a transfer left a descriptor open";
    }

    const uint64_t seed_ = peer::soak_seed();
    TempDir dir_;

private:
    std::set<std::string> fds_;
    std::unique_ptr<testing::ScopedTrace> trace_;
};

TEST_F(Soak, DownloadsThroughCutsEndWholeByResuming) {
    if (peer::NginxPeer::nginx_path().empty())
        GTEST_SKIP() << "nginx not installed; ./scripts/install-deps installs it";
    peer::NginxPeer nginx;
    ASSERT_TRUE(nginx.start()) << nginx.error();
    const size_t sizes[] = {64u << 10, 100000, 180000, 256u << 10};
    std::vector<std::string> files;
    for (size_t i = 0; i < 4; ++i)
        files.push_back(nginx.put_random_file("f" + std::to_string(i), sizes[i], kMtime, i + 1));
    // Resumed by a 206; without Last-Modified (no version check); and from a
    // server that ignores Range, whose 200 restarts at byte 0.
    const char *const prefixes[] = {"/", "/nolm/", "/norange/"};
    CuttingProxy proxy({nginx.port(), CuttingProxy::Direction::Response, 30, 10, seed_});
    const std::string dst = dir_.file("dl.bin");

    // Every other run of twelve (each file under each prefix) re-chunked.
    int chunked = 0, chunked_cuts = 0;
    for (int i = 0; i < kDownloads; ++i) {
        const size_t f = static_cast<size_t>(i) % files.size();
        const bool chunk = i / 12 % 2 == 1;
        chunked += chunk;
        const std::string path = prefixes[i % 3] + ("f" + std::to_string(f)) + (chunk ? "?chunked" : "");
        SCOPED_TRACE("download " + std::to_string(i) + " of " + path);
        const int cuts = proxy.stats().cuts();
        ASSERT_EQ(http_download_file_ntry(proxy.url(path).c_str(), dst.c_str(), kManyTries),
                  HTTP_UTIL_OK);
        if (chunk) chunked_cuts += proxy.stats().cuts() - cuts;
        ASSERT_TRUE(dltest::read_file(dst) == files[f]) << "the file differs";
        if (i % 3 != 1) {
            ASSERT_EQ(dltest::mtime_of(dst), kMtime);
        }
        ASSERT_EQ(dir_.entries(), std::vector<std::string>{"dl.bin"});
        unlink(dst.c_str());
    }
    const auto s = proxy.stats();
    printf("download soak: %d downloads (%d chunked), %d connections, %d cuts survived (%d close,"
           " %d reset, %d after the last byte; %d in chunked downloads, %d of them in a size line),"
           " %d Range requests, %d 206 replies, %d replies chunked\n",
           kDownloads, chunked, s.connections, s.cuts(), s.closes, s.resets, s.whole, chunked_cuts,
           s.size_line_cuts, s.range_requests, s.partial_replies, s.chunked);
    EXPECT_GT(s.closes, kDownloads / 2);
    EXPECT_GT(s.resets, kDownloads / 2);
    EXPECT_GT(s.partial_replies, kDownloads / 4) << "partial files were resumed";
    EXPECT_GT(s.range_requests, s.partial_replies) << "the server that ignores Range was asked";
    EXPECT_GE(chunked, 100);
    EXPECT_GT(s.size_line_cuts, chunked / 2) << "chunked downloads were cut inside size lines";
    EXPECT_TRUE(interpose::pauses.empty()) << "a wait of 0 makes no pause between attempts";
}

// A cut before the last request byte ends in a failed write or a missing
// reply; a cut after it loses the reply although the whole upload went out.
// Neither may read as success: an upload is never retried.
TEST_F(Soak, CutUploadsNeverReportSuccess) {
    if (peer::MultipartSink::python_path().empty())
        GTEST_SKIP() << "python3 not installed; ./scripts/install-deps installs it";
    peer::MultipartSink sink;
    ASSERT_TRUE(sink.start()) << sink.error();
    CuttingProxy proxy({sink.port(), CuttingProxy::Direction::Request, 30, 20, seed_});
    // A host program's choice: a write to a reset connection fails with
    // EPIPE instead of ending the process.
    struct sigaction ignore = {}, old = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &old);

    std::map<int, int> cut_codes, lost_reply_codes;
    int passed = 0;
    for (int i = 0; i < kUploads; ++i) {
        const std::string data =
            peer::random_bytes(16384 + static_cast<size_t>(i) * 331, seed_ + static_cast<unsigned>(i));
        const std::string file = dir_.write("up.bin", data);
        const auto before = proxy.stats();
        const int rc = http_upload_file(proxy.url("/upload").c_str(), file.c_str());
        const auto after = proxy.stats();
        SCOPED_TRACE("upload " + std::to_string(i));
        ASSERT_EQ(after.connections, before.connections + 1);
        if (after.passed > before.passed) {
            ++passed;
            ASSERT_EQ(rc, HTTP_UTIL_OK);
            bool found = false;
            for (const auto &p : sink.parts())
                found = found || (p.size == static_cast<long long>(data.size()) &&
                                  sink.stored_bytes(p) == data);
            EXPECT_TRUE(found) << "the upload did not arrive whole";
        } else if (after.whole > before.whole) {
            ++lost_reply_codes[rc];
            EXPECT_EQ(rc, HTTP_UTIL_ERR_RECV_RSP) << "the reply was lost";
        } else {
            ++cut_codes[rc];
            EXPECT_TRUE(rc == HTTP_UTIL_ERR_SEND || rc == HTTP_UTIL_ERR_RECV_RSP) << rc;
        }
        ASSERT_EQ(dir_.entries(), std::vector<std::string>{"up.bin"});
    }
    sigaction(SIGPIPE, &old, nullptr);
    const auto s = proxy.stats();
    auto text = [](const std::map<int, int> &codes) {
        std::string out;
        for (const auto &c : codes)
            out += " " + std::to_string(c.second) + " of code " + std::to_string(c.first);
        return out;
    };
    printf("upload soak: %d uploads, %d whole, %d cut (%d close, %d reset, %d after the last"
           " byte); results of the cuts:%s; of the lost replies:%s\n",
           kUploads, passed, s.cuts(), s.closes, s.resets, s.whole, text(cut_codes).c_str(),
           text(lost_reply_codes).c_str());
    EXPECT_GT(passed, 0);
    EXPECT_GT(s.cuts(), kUploads / 2);
    EXPECT_GT(s.whole, 0) << "some replies were lost";
}

}  // namespace
