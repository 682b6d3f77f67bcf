// Pauses between attempts, really waited for (wait of 1 second).
#include <gtest/gtest.h>
#include <stdio.h>

#include <chrono>
#include <string>

#include "download_test_util.h"
#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"
#include "scripted_server.h"
#include "temp_dir.h"

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

TEST(DriverWireSlow, TwoRetriesWaitTwoPauses) {
    TempDir dir;
    g_http_opt.wait = 1;
    g_http_opt.random_wait = 0;
    scripted::Server srv;
    srv.read_request().close().read_request().close().read_request().close();
    srv.start();
    auto t0 = Clock::now();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), dir.file("b").c_str(), 2),
              HTTP_UTIL_ERR_RECV_RSP);
    double elapsed = since(t0);
    EXPECT_EQ(srv.connections(), 3u);
    EXPECT_GE(elapsed, 2.0);
    EXPECT_LT(elapsed, 4.0);
}

TEST(DriverWireSlow, RandomFirstPauseIsLoggedAndWaited) {
    TempDir dir;
    g_http_opt.wait = 1;
    g_http_opt.random_wait = 1;
    scripted::Server srv;
    srv.read_request().close().read_request().close();
    srv.start();
    auto t0 = Clock::now();
    EXPECT_EQ(http_download_file_ntry(srv.url("/b.bin").c_str(), dir.file("b").c_str(), 1),
              HTTP_UTIL_ERR_RECV_RSP);
    double elapsed = since(t0);
    auto logs = fake::log_texts("http_sleep_between_retrievals");
    ASSERT_EQ(logs.size(), 1u);
    double pause = 0;
    ASSERT_EQ(sscanf(logs[0].c_str(), "sleep_between_retrievals: avg=1,sleep=%lf", &pause), 1);
    EXPECT_GE(pause, 0.5);
    EXPECT_LT(pause, 1.5);
    EXPECT_GE(elapsed, pause);
    EXPECT_LT(elapsed, pause + 1.0);
}

}  // namespace
