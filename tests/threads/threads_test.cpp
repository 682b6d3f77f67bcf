// Transfers on many threads at once, linked as a host program links the
// library: the shared library and the host emulation, no fakes. Each case
// runs in a process of its own, so the first transfers also race to set up
// the log. Built with ThreadSanitizer (preset tsan), a data race fails the
// case.
#include <gtest/gtest.h>
#include <locale.h>
#include <time.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "file_util.h"
#include "foreign_locale.h"
#include "http_util.h"
#include "http_util_host.h"
#include "multipart_sink.h"
#include "nginx_peer.h"
#include "temp_dir.h"

namespace {

constexpr time_t kMtime = 1600000000;

// Runs every job on a thread of its own, all released together.
void run_together(const std::vector<std::function<void()>> &jobs) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (const auto &job : jobs)
        threads.emplace_back([&go, &job] {
            while (!go.load()) std::this_thread::yield();
            job();
        });
    go = true;
    for (auto &t : threads) t.join();
}

class Threads : public testing::Test {
protected:
    void SetUp() override {
        if (peer::NginxPeer::nginx_path().empty() || peer::MultipartSink::python_path().empty())
            GTEST_SKIP() << "nginx or python3 missing; ./scripts/install-deps installs them";
        ASSERT_TRUE(nginx_.start()) << nginx_.error();
        ASSERT_TRUE(sink_.start()) << sink_.error();
        // Records of every thread go through the host's log at once.
        ASSERT_EQ(http_util_host_set_log(dir_.file("log").c_str()), 0);
        param_.max_redirect = 5;
        param_.show_progress = 2;  // no terminal display
    }
    void TearDown() override { http_util_host_set_log(nullptr); }

    peer::NginxPeer nginx_;
    peer::MultipartSink sink_;
    TempDir dir_;
    http_util_param param_{};
};

TEST_F(Threads, SixteenMixedTransfersAtOnceAllArriveWhole) {
    const std::string big = nginx_.put_random_file("f.bin", 256u << 10, kMtime);
    const std::string small = nginx_.put_random_file("s.bin", 3000, kMtime, 2);
    const std::string get = nginx_.url("/f.bin"), put = sink_.url("/up");
    // Each kind: what the server holds (empty for an upload) and the call.
    const struct {
        const std::string &expected;
        std::function<int(const std::string &local, http_util_param p)> run;
    } kinds[] = {
        {big, [&](auto &local, auto) { return http_download_file_ntry(get.c_str(), local.c_str(), 0); }},
        {small, [&](auto &local, auto) {
             return http_download_file_ntry(nginx_.url("/chunked/s.bin").c_str(), local.c_str(), 0);
         }},
        {big, [&](auto &local, auto) {  // resumed: the first part is there
             return peer::write_file(local, big.substr(0, 100000 + local.size()), kMtime)
                        ? http_download_file_ntry(get.c_str(), local.c_str(), 0) : -1;
         }},
        {{}, [&](auto &local, auto) { return http_upload_file(put.c_str(), local.c_str()); }},
        {big, [&](auto &local, auto p) { return http_util_copy(get.c_str(), local.c_str(), &p); }},
        {{}, [&](auto &local, auto p) { return http_util_copy(local.c_str(), put.c_str(), &p); }},
    };
    std::vector<std::function<void()>> jobs;
    std::vector<int> results(16, -1);
    size_t uploads = 0;
    for (size_t i = 0; i < results.size(); ++i) {
        const auto *kind = &kinds[i % 6];
        const std::string local = dir_.file("t" + std::to_string(i));
        if (kind->expected.empty()) {
            ASSERT_TRUE(peer::write_file(local, peer::random_bytes(60000 + i, i)));
            ++uploads;
        }
        jobs.push_back([&results, kind, i, local, this] { results[i] = kind->run(local, param_); });
    }
    run_together(jobs);

    for (size_t i = 0; i < results.size(); ++i) {
        const std::string local = dir_.file("t" + std::to_string(i));
        SCOPED_TRACE(local);
        EXPECT_EQ(results[i], HTTP_UTIL_OK);
        if (kinds[i % 6].expected.empty()) continue;
        EXPECT_TRUE(peer::read_file(local) == kinds[i % 6].expected) << "the file differs";
        EXPECT_EQ(peer::file_mtime(local), kMtime);
    }
    const auto parts = sink_.parts();
    EXPECT_EQ(parts.size(), uploads);
    for (const auto &part : parts)  // the part's file name is the local path
        EXPECT_TRUE(sink_.stored_bytes(part) == peer::read_file(part.filename)) << part.filename;
}

// The host formats month names in its own language on one thread while
// others parse Last-Modified dates.
TEST_F(Threads, HostTimeLocaleStaysWhileDatesAreParsed) {
    ASSERT_TRUE(peer::use_foreign_time_locale()) << "no " << peer::kForeignTimeLocale;
    constexpr int kFiles = 300, kGetters = 2;
    char own[12][32];
    for (int m = 0; m < 12; ++m) {
        struct tm tm = {};
        tm.tm_mon = m;
        strftime(own[m], sizeof own[m], "%B", &tm);
    }
    ASSERT_STREQ(own[2], "M\xc3\xa4rz");
    for (int f = 0; f < kFiles; ++f)
        ASSERT_FALSE(nginx_.put_random_file("d" + std::to_string(f), 2000, kMtime + f * 900000L,
                                            f + 1)
                         .empty());

    std::atomic<int> getters_left{kGetters};
    long checks = 0, foreign = 0;
    std::vector<std::function<void()>> jobs;
    jobs.push_back([&] {
        for (int m = 0; getters_left.load() > 0; m = (m + 1) % 12) {
            struct tm tm = {};
            tm.tm_mon = m;
            char text[32];
            strftime(text, sizeof text, "%B", &tm);
            ++checks;
            if (strcmp(text, own[m]) != 0) ++foreign;
        }
    });
    for (int g = 0; g < kGetters; ++g)
        jobs.push_back([&, g] {
            for (int f = g; f < kFiles; f += kGetters) {
                std::string name = "d" + std::to_string(f), local = dir_.file(name);
                EXPECT_EQ(http_download_file_ntry(nginx_.url("/" + name).c_str(), local.c_str(), 0),
                          HTTP_UTIL_OK);
                EXPECT_EQ(peer::file_mtime(local), kMtime + f * 900000L) << name;
            }
            --getters_left;
        });
    run_together(jobs);

    printf("host month names: %ld formats, %ld foreign\n", checks, foreign);
    EXPECT_EQ(foreign, 0) << "of " << checks << " formats";
    EXPECT_STREQ(setlocale(LC_TIME, nullptr), peer::kForeignTimeLocale);
    setlocale(LC_TIME, "C");
}

}  // namespace
