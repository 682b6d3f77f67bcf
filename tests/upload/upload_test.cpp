// The upload entry points' own checks, and temporary names.
#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <set>
#include <string>

#include "fake_device.h"
#include "http_util.h"
#include "scripted_server.h"
#include "temp_dir.h"

namespace {

// A server that must not be contacted: any connection shows up in it.
class Untouched : public testing::Test {
protected:
    void SetUp() override { srv_.start(); }
    void TearDown() override { EXPECT_EQ(srv_.connections(), 0u) << "a connection was made"; }
    scripted::Server srv_;
    TempDir dir_;
};

TEST_F(Untouched, NullLocalFileIsAWrongParameter) {
    EXPECT_EQ(http_upload_file(srv_.url("/x").c_str(), nullptr), HTTP_UTIL_ERR_PARAM);
    EXPECT_EQ(http_upload_file(nullptr, "/etc/hostname"), HTTP_UTIL_ERR_PARAM);
    http_util_param param{};
    EXPECT_EQ(http_upload_param(srv_.url("/x").c_str(), "/etc/hostname", nullptr, 0, nullptr),
              HTTP_UTIL_ERR_PARAM);
    (void)param;
}

TEST_F(Untouched, OtherSchemesAreRefused) {
    const std::string file = dir_.write("f", "x");
    EXPECT_EQ(http_upload_file("ftp://127.0.0.1/x", file.c_str()), HTTP_UTIL_ERR_NOT_HTTP);
    auto texts = fake::log_texts("http_upload_param");
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_EQ(texts[0], "http_create_url fail");
    EXPECT_EQ(fake::device().logs.back().module, "http_upload");
}

TEST_F(Untouched, BadTlvBlockSendsNothing) {
    const std::string file = dir_.write("f", "x");
    struct {
        uint32_t type, len;
        unsigned char value[4];
        uint32_t end_type, end_len;
    } block = {HTTP_UTIL_TLV_SRC_IP, 3, {127, 0, 0, 1}, 0, 0};
    EXPECT_EQ(http_upload_file_tlv(srv_.url("/x").c_str(), file.c_str(), &block), HTTP_UTIL_ERR_PARAM);
}

TEST(UploadEntryPoints, TlvSourceAddressIsUsed) {
    TempDir dir;
    const std::string file = dir.write("f", "abc");
    scripted::Server srv;
    srv.read_request().send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n").close();
    srv.start();
    struct {
        uint32_t type, len;
        unsigned char value[4];
        uint32_t end_type, end_len;
    } block = {HTTP_UTIL_TLV_SRC_IP, 4, {127, 0, 0, 2}, 0, 0};
    EXPECT_EQ(http_upload_file_tlv(srv.url("/x").c_str(), file.c_str(), &block), 0);
    EXPECT_TRUE(fake::logged("HTTP: bind source ip to socket success!, addr: 127.0.0.2 \r\n"));
}

TEST(UploadEntryPoints, WrappersPrintNothingAndIgnoreCtrlC) {
    TempDir dir;
    const std::string file = dir.write("f", "abc");
    scripted::Server srv;
    srv.read_request().send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n").close();
    srv.start();
    fake::device().keys = {3, 3, 3};
    EXPECT_EQ(http_upload_file(srv.url("/x").c_str(), file.c_str()), 0);
    EXPECT_EQ(fake::device().terminal, "");
    EXPECT_EQ(fake::device().polls, 0);
}

TEST(UploadEntryPoints, CallersRecordTurnsTheDisplayOn) {
    TempDir dir;
    const std::string file = dir.write("f", "abc");
    scripted::Server srv;
    srv.read_request().send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n").close();
    srv.start();
    http_util_param param{};
    param.show_progress = 1;
    EXPECT_EQ(http_upload_param(srv.url("/x").c_str(), file.c_str(), &param, 0, nullptr), 0);
    EXPECT_TRUE(std::regex_match(fake::device().terminal, std::regex("Press Ctrl\\+C to quit\n!+\n")))
        << fake::device().terminal;
}

TEST(TempName, EightCharactersForAOneLetterName) {
    std::set<std::string> seen;
    for (int i = 0; i < 20; ++i) {
        char *name = http_util_generate_tmpname("a");
        ASSERT_NE(name, nullptr);
        EXPECT_TRUE(std::regex_match(name, std::regex("a\\.[A-Za-z0-9]{6}"))) << name;
        EXPECT_NE(access(name, F_OK), 0);
        seen.insert(name);
        free(name);
    }
    EXPECT_GT(seen.size(), 15u);
}

TEST(TempName, KeepsTheDirectoryOfThePath) {
    TempDir dir;
    char *name = http_util_generate_tmpname(dir.file("dest.bin").c_str());
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(std::string(name).rfind(dir.file("dest.bin."), 0), 0u);
    free(name);
}

TEST(TempName, NullNameIsLogged) {
    EXPECT_EQ(http_util_generate_tmpname(nullptr), nullptr);
    ASSERT_FALSE(fake::device().logs.empty());
    EXPECT_EQ(fake::device().logs.back().text, "null parameter");
    EXPECT_EQ(fake::device().logs.back().module, "http_upload");
}

}  // namespace
