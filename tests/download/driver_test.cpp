// The driver's decisions that need no server: what each attempt result
// leads to, the pauses, the time text and the refusals made before any
// connection.
#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>

#include <regex>

#include "download/download.h"
#include "download_test_util.h"
#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"

namespace {

using http_util_internal::RetryAction;

// Pauses are recorded, not waited for.
class Driver : public testing::Test {
protected:
    void SetUp() override { interpose::skip_pauses = true; }
};

double seconds(const timeval &tv) { return tv.tv_sec + tv.tv_usec / 1e6; }

TEST_F(Driver, EveryResultCodeHasItsRetryAction) {
    struct Row {
        int code;
        RetryAction action;
    };
    const Row rows[] = {
        {HTTP_UTIL_OK, RetryAction::Done},
        {HTTP_UTIL_ERR_NOMEM, RetryAction::Unknown},
        {HTTP_UTIL_ERR_PARAM, RetryAction::Unknown},
        {HTTP_UTIL_ERR_RESOLVE, RetryAction::Unknown},
        {HTTP_UTIL_ERR_CONNECT, RetryAction::Count},
        {HTTP_UTIL_ERR_REDIRECT, RetryAction::Redirect},
        {HTTP_UTIL_ERR_NOT_HTTP, RetryAction::Unknown},
        {HTTP_UTIL_ERR_RECV_RSP, RetryAction::Count},
        {HTTP_UTIL_ALREADY_DONE, RetryAction::Unknown},
        {HTTP_UTIL_ERR_RECV_DATA, RetryAction::Count},
        {HTTP_UTIL_NEED_RETRY, RetryAction::Restart},
        {HTTP_UTIL_ERR_PROTOCOL, RetryAction::Count},
        {HTTP_UTIL_ERR_UNAUTHORIZED, RetryAction::Fatal},
        {HTTP_UTIL_ERR_SEND, RetryAction::Count},
        {HTTP_UTIL_ERR_NO_LOCAL_FILE, RetryAction::Unknown},
        {HTTP_UTIL_ERR_UNEXPECTED_RSP, RetryAction::Fatal},
        {HTTP_UTIL_ERR_CANCELED, RetryAction::Done},
        {HTTP_UTIL_ERR_NOT_SUPPORTED, RetryAction::Unknown},
        {HTTP_UTIL_ERR_NOT_FOUND, RetryAction::Unknown},
        {HTTP_UTIL_ERR_FORBIDDEN, RetryAction::Unknown},
        {HTTP_UTIL_ERR_RANGE, RetryAction::Unknown},
        {HTTP_UTIL_ERR_NOT_OK, RetryAction::Unknown},
        {HTTP_UTIL_ERR_URL_NOT_ASCII, RetryAction::Unknown},
        {HTTP_UTIL_ERR_SAVE_FILE, RetryAction::SaveFailed},
        {HTTP_UTIL_ERR_READ_FILE, RetryAction::Unknown},
        {HTTP_UTIL_ERR_RSP_FORMAT, RetryAction::Unknown},
        {HTTP_UTIL_ERR_RSP_TIMEOUT, RetryAction::Unknown},
        {HTTP_UTIL_ERR_HEAD_TOO_LONG, RetryAction::Unknown},
        {HTTP_UTIL_ERR_PARAM_TOO_LONG, RetryAction::Unknown},
        {HTTP_UTIL_ERR_URL_FORMAT, RetryAction::Unknown},
        {HTTP_UTIL_ERR_UNKNOWN, RetryAction::Unknown},
        {-1, RetryAction::Unknown},
    };
    for (const Row &r : rows)
        EXPECT_EQ(http_util_internal::retry_action(r.code), r.action) << "code " << r.code;
}

TEST_F(Driver, RandomPauseLiesBetweenHalfAndOneAndAHalfWaits) {
    struct Row {
        uint32_t draws[4];
        int wait;
        double expected;
    };
    const Row rows[] = {
        {{0, 0, 0, 0}, 10, 5.0},
        {{5000, 0, 0, 0}, 10, 10.0},
        {{2500, 5000, 0, 0}, 1, 0.75005},
        {{0, 0, 0, 1}, 1, 0.5 + 1e-16},
        {{9999, 9999, 9999, 9999}, 10, 15.0},  // just below, within a double's reach
    };
    for (const Row &r : rows) {
        double s = http_util_internal::random_pause_seconds(r.wait, r.draws);
        EXPECT_NEAR(s, r.expected, 1e-9) << r.draws[0];
        EXPECT_GE(s, 0.5 * r.wait);
        EXPECT_LE(s, 1.5 * r.wait);
    }
}

TEST_F(Driver, OnlyTheFirstPauseIsRandomisedAndLogged) {
    g_http_opt.wait = 10;
    g_http_opt.random_wait = 1;
    for (int k = 1; k <= 3; ++k) http_util_internal::http_sleep_between_retrievals(k);
    ASSERT_EQ(interpose::pauses.size(), 3u);
    double first = seconds(interpose::pauses[0]);
    EXPECT_GE(first, 5.0);
    EXPECT_LT(first, 15.0);
    EXPECT_EQ(seconds(interpose::pauses[1]), 10.0);
    EXPECT_EQ(seconds(interpose::pauses[2]), 10.0);

    auto logs = fake::log_texts("http_sleep_between_retrievals");
    ASSERT_EQ(logs.size(), 1u);
    double logged = 0;
    ASSERT_EQ(sscanf(logs[0].c_str(), "sleep_between_retrievals: avg=10,sleep=%lf", &logged), 1)
        << logs[0];
    EXPECT_NEAR(logged, first, 1e-5) << "the pause made is the pause logged";
}

TEST_F(Driver, TimeTextIsTheDeviceClockInLocalTime) {
    char text[32];
    const char *t = http_util_internal::download_time_text(text);
    ASSERT_NE(t, nullptr);
    EXPECT_TRUE(std::regex_match(t, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)"))) << t;
    ASSERT_FALSE(fake::device().time_calls.empty());
    EXPECT_EQ(fake::device().time_calls.back(), 2);
}

TEST_F(Driver, TimeTextIsAbsentWhenTheClockCannotBeConverted) {
    if (sizeof(time_t) < 8) GTEST_SKIP() << "every 32-bit time converts";
    fake::device().now = static_cast<time_t>(LLONG_MAX);
    char text[32];
    EXPECT_EQ(http_util_internal::download_time_text(text), nullptr);
}

TEST_F(Driver, NullUrlIsRefusedBeforeAnyResolution) {
    http_util_param p{};
    p.max_redirect = 5;
    EXPECT_EQ(http_util_internal::http_download_param(nullptr, nullptr, "x", &p, 0, nullptr),
              HTTP_UTIL_ERR_PARAM);
    EXPECT_TRUE(fake::device().resolver_calls.empty());
}

TEST_F(Driver, NegativeRetryCountIsRefusedBeforeAnyResolution) {
    http_util_param p{};
    p.ntry = -1;
    EXPECT_EQ(http_util_internal::http_download_param(nullptr, "http://files.example/a.bin", "x",
                                                      &p, 0, nullptr),
              HTTP_UTIL_ERR_PARAM);
    EXPECT_TRUE(fake::device().resolver_calls.empty());
    EXPECT_TRUE(fake::device().hostname_checks.empty());
}

TEST_F(Driver, EntryPointsPassNegativeCountsToTheRefusal) {
    EXPECT_EQ(http_download_file_ntry("http://files.example/a.bin", "x", -1), HTTP_UTIL_ERR_PARAM);
    EXPECT_EQ(http_download_file_progress(nullptr, "http://files.example/a", "x", -3),
              HTTP_UTIL_ERR_PARAM);
    EXPECT_EQ(http_mngt_download_file_ntry("http://files.example/a", "x", -1),
              HTTP_UTIL_ERR_PARAM);
    // The calls without a count read the option at the moment of the call.
    g_http_opt.ntry = -1;
    EXPECT_EQ(http_download_file("http://files.example/a.bin", "x"), HTTP_UTIL_ERR_PARAM);
    EXPECT_EQ(http_mgnt_download_file("http://files.example/a.bin", "x"), HTTP_UTIL_ERR_PARAM);
    EXPECT_TRUE(fake::device().resolver_calls.empty());
}

TEST_F(Driver, EntryPointsRefuseANullUrl) {
    EXPECT_EQ(http_download_file(nullptr, "x"), HTTP_UTIL_ERR_PARAM);
    EXPECT_EQ(http_mgnt_download_file_progress_byname(nullptr, nullptr, "x", 0, "mgmt0"),
              HTTP_UTIL_ERR_PARAM);
}

}  // namespace
