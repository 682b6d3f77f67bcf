// Transfers of every kind on threads at once, while the host formats month
// names in its own language on another. The case runs in a process of its
// own, so the first transfers also race to set up the log; under
// ThreadSanitizer (preset tsan) a data race fails it.
#include <gtest/gtest.h>
#include <string.h>

#include <atomic>
#include <thread>
#include <vector>

#include "foreign_locale.h"
#include "http_util.h"
#include "http_util_host.h"
#include "loopback_peer.h"

TEST(Threads, TransfersAtOnceWhileTheHostKeepsItsTimeLocale) {
    ASSERT_TRUE(peer::use_foreign_time_locale()) << peer::kForeignTimeLocale;
    peer::Peer nginx(peer::Kind::Nginx), sink(peer::Kind::Sink);
    ASSERT_TRUE(nginx.listening() && sink.listening());
    TempDir dir;
    ASSERT_EQ(http_util_host_set_log(dir.file("log").c_str()), 0);  // one log for all
    // Dates over some years, so that every month's name is parsed.
    constexpr int kFiles = 120;
    auto date = [](int f) { return 1600000000 + f * 900000L; };
    const std::string data = peer::random_bytes(20000);
    for (int f = 0; f < kFiles; ++f) {
        nginx.put(std::to_string(f), data, date(f));
        if (f % 6 == 2) peer::set_mtime(dir.write(std::to_string(f), data.substr(0, 9999)), date(f));
        if (f % 6 >= 4) dir.write(std::to_string(f), data);
    }
    // Downloads (one kind resumed), a copy down, and uploads: the sink
    // checks those.
    auto transfer = [&](int f) {
        const std::string local = dir.file(std::to_string(f)), up = sink.url("/");
        const std::string url = nginx.url((f % 6 == 1 ? "/chunked/" : "/") + std::to_string(f));
        http_util_param param{};
        param.show_progress = 2;  // no terminal display
        switch (f % 6) {
        case 3: return http_util_copy(url.c_str(), local.c_str(), &param);
        case 4: return http_upload_file(up.c_str(), local.c_str());
        case 5: return http_util_copy(local.c_str(), up.c_str(), &param);
        default: return http_download_file_ntry(url.c_str(), local.c_str(), 0);
        }
    };
    std::atomic<int> busy{3};
    long foreign = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            for (int f = t; f < kFiles; f += 3) EXPECT_EQ(transfer(f), HTTP_UTIL_OK) << f;
            --busy;
        });
    struct tm march = {};
    march.tm_mon = 2;
    for (char text[32]; busy > 0;) {
        strftime(text, sizeof text, "%B", &march);
        foreign += strcmp(text, "M\xc3\xa4rz") != 0;
    }
    for (auto &t : threads) t.join();
    http_util_host_set_log(nullptr);
    EXPECT_EQ(foreign, 0) << "the host's month names changed";
    for (int f = 0; f < kFiles; ++f) {
        if (f % 6 >= 4) continue;  // uploads
        EXPECT_TRUE(TempDir::read(dir.file(std::to_string(f))) == data) << f;
        EXPECT_EQ(peer::mtime(dir.file(std::to_string(f))), date(f)) << f;
    }
    setlocale(LC_TIME, "C");
}
