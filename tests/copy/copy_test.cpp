// http_util_copy: the checks made before anything is transferred.
#include <gtest/gtest.h>

#include <string>

#include "../download/download_test_util.h"
#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"

namespace {

class Copy : public testing::Test {
protected:
    http_util_param param{};
};

TEST_F(Copy, NullArgumentsAreRefused) {
    EXPECT_EQ(http_util_copy(nullptr, "b", &param), HTTP_UTIL_ERR_PARAM);
    EXPECT_EQ(http_util_copy("http://h/a", nullptr, &param), HTTP_UTIL_ERR_PARAM);
    EXPECT_EQ(http_util_copy("http://h/a", "b", nullptr), HTTP_UTIL_ERR_PARAM);
    EXPECT_EQ(fake::log_texts("http_util_copy"), std::vector<std::string>(3, "null parameter"));
}

TEST_F(Copy, LengthIsCheckedBeforeTheDirection) {
    const std::string local255(255, 'a'), local256(256, 'a');
    const std::string url256 = "http://h/" + std::string(247, 'u');
    ASSERT_EQ(url256.size(), 256u);
    struct Row {
        std::string src, dst;
        int expected;
    };
    const Row rows[] = {
        {local255, "/tmp/b", HTTP_UTIL_ERR_NOT_SUPPORTED},  // accepted, then refused
        {"/tmp/a", local255, HTTP_UTIL_ERR_NOT_SUPPORTED},
        {local256, "/tmp/b", HTTP_UTIL_ERR_PARAM_TOO_LONG},
        {"/tmp/a", local256, HTTP_UTIL_ERR_PARAM_TOO_LONG},
        {url256, "/tmp/b", HTTP_UTIL_ERR_PARAM_TOO_LONG},
        {"/tmp/a", url256, HTTP_UTIL_ERR_PARAM_TOO_LONG},
        {"/tmp/a", "/tmp/b", HTTP_UTIL_ERR_NOT_SUPPORTED},
        {"ftp://h/a", "/tmp/b", HTTP_UTIL_ERR_NOT_SUPPORTED},
        {"/tmp/a", "https://h/b", HTTP_UTIL_ERR_NOT_SUPPORTED},
    };
    for (const Row &r : rows) {
        fake::device().logs.clear();
        EXPECT_EQ(http_util_copy(r.src.c_str(), r.dst.c_str(), &param), r.expected)
            << r.src.size() << " / " << r.dst.size();
        EXPECT_EQ(fake::log_texts("http_util_copy"),
                  std::vector<std::string>{r.expected == HTTP_UTIL_ERR_PARAM_TOO_LONG
                                               ? "parameter too long"
                                               : "src or dst not supported"});
    }
    EXPECT_EQ(param.show_progress, 0) << "nothing changed before a transfer";
}

TEST_F(Copy, NonAsciiUploadUrlIsRefusedWithoutConnecting) {
    param.show_progress = 0;
    EXPECT_EQ(http_util_copy("/tmp/a", "http://h\xc3\xa9/b", &param), HTTP_UTIL_ERR_URL_NOT_ASCII);
    EXPECT_EQ(fake::log_texts("http_util_copy"), std::vector<std::string>{"url not ascii"});
    EXPECT_TRUE(fake::device().resolver_calls.empty());
    EXPECT_EQ(param.show_progress, 0);
}

TEST_F(Copy, NoMemoryForAWorkingCopy) {
    interpose::fail_strdup_text = "http://127.0.0.1:1/b";
    EXPECT_EQ(http_util_copy("/tmp/a", "http://127.0.0.1:1/b", &param), HTTP_UTIL_ERR_NOMEM);
    interpose::fail_strdup_text = "/tmp/a";
    EXPECT_EQ(http_util_copy("/tmp/a", "http://127.0.0.1:1/b", &param), HTTP_UTIL_ERR_NOMEM);
    EXPECT_EQ(param.show_progress, 0);
}

}  // namespace
