// Result codes and their messages: the texts host programs print.
#include <gtest/gtest.h>

#include "http_util.h"

namespace {

struct Row {
    int code;
    const char *text;
};

constexpr Row kRows[] = {
    {HTTP_UTIL_OK, "Success"},
    {HTTP_UTIL_ERR_NOMEM, "Alloc memory failed"},
    {HTTP_UTIL_ERR_PARAM, "Wrong parameter"},
    {HTTP_UTIL_ERR_RESOLVE, "Resolve hostname failed"},
    {HTTP_UTIL_ERR_CONNECT, "Connect to server failed"},
    {HTTP_UTIL_ERR_REDIRECT, "Server response: Redirect"},
    {HTTP_UTIL_ERR_NOT_HTTP, "Only HTTP protocol is supported"},
    {HTTP_UTIL_ERR_RECV_RSP, "Receive response failed"},
    {HTTP_UTIL_ALREADY_DONE, "Already done"},
    {HTTP_UTIL_ERR_RECV_DATA, "Receive data failed"},
    {HTTP_UTIL_NEED_RETRY, "Need retry"},
    {HTTP_UTIL_ERR_PROTOCOL, "Server response is not conformed to protocol"},
    {HTTP_UTIL_ERR_UNAUTHORIZED, "Server response: Unauthorized"},
    {HTTP_UTIL_ERR_SEND, "Send data failed"},
    {HTTP_UTIL_ERR_NO_LOCAL_FILE, "Local file doesn't exist"},
    {HTTP_UTIL_ERR_UNEXPECTED_RSP, "Unexpected server response"},
    {HTTP_UTIL_ERR_CANCELED, "Operation canceled"},
    {HTTP_UTIL_ERR_NOT_SUPPORTED, "Request not support"},
    {HTTP_UTIL_ERR_NOT_FOUND, "Server response: Not Found"},
    {HTTP_UTIL_ERR_FORBIDDEN, "Server response: Forbidden"},
    {HTTP_UTIL_ERR_RANGE, "Server response: Range Not Satisfiable"},
    {HTTP_UTIL_ERR_NOT_OK, "Server response: Not OK"},
    {HTTP_UTIL_ERR_URL_NOT_ASCII, "URLs that contain non-ascii characters are not supported"},
    {HTTP_UTIL_ERR_SAVE_FILE, "Save file failed, maybe no enough space left on device"},
    {HTTP_UTIL_ERR_READ_FILE, "Read local file failed"},
    {HTTP_UTIL_ERR_RSP_FORMAT, "Server response is not conformed to protocol"},
    {HTTP_UTIL_ERR_RSP_TIMEOUT, "Receive response timeout"},
    {HTTP_UTIL_ERR_HEAD_TOO_LONG, "Server response header is too long"},
    {HTTP_UTIL_ERR_PARAM_TOO_LONG, "Parameter is too long"},
    {HTTP_UTIL_ERR_URL_FORMAT, "Wrong URL format"},
    {HTTP_UTIL_ERR_UNKNOWN, "Unknown error"},
};

TEST(ResultCodes, EveryRowHasItsNumberAndExactText) {
    int expected_code = 0;
    for (const Row &row : kRows) {
        SCOPED_TRACE(row.code);
        EXPECT_EQ(row.code, expected_code++) << "codes are never renumbered";
        EXPECT_STREQ(http_util_strerr(row.code), row.text);
        EXPECT_STREQ(http_util_err_str[row.code], row.text);
    }
    EXPECT_EQ(expected_code, 31);
}

TEST(ResultCodes, Rows11And25AreOneText) {
    EXPECT_EQ(http_util_err_str[11], http_util_err_str[25]);
    EXPECT_EQ(http_util_strerr(11), http_util_strerr(25));
}

TEST(ResultCodes, CodesOutsideTheTableGiveUnknownError) {
    for (int code : {30, 31, -1, 1000, INT32_MIN, INT32_MAX}) {
        SCOPED_TRACE(code);
        EXPECT_EQ(http_util_strerr(code), http_util_err_str[30]);
    }
}

}  // namespace
