// A download whose parameters name a file to post: a raw POST of that file,
// and the reply saved as the download.
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>

#include "download/download.h"
#include "download_test_util.h"
#include "fake_device.h"
#include "http_util.h"
#include "scripted_server.h"
#include "temp_dir.h"
#include "wire_util.h"

namespace {

using dltest::ok_head;

class PostWire : public dltest::WireTest {
protected:
    TempDir dir;
    std::string file = dir.file("b.bin");
};

TEST_F(PostWire, PostFileIsSentInsteadOfAGetAndTheReplySaved) {
    std::string body = dir.write("form.txt", "payload");
    scripted::Server srv;
    srv.read_request().send(ok_head(5) + "reply");
    srv.start();
    http_util_param p{};
    p.max_redirect = 5;
    snprintf(p.post_file, sizeof p.post_file, "%s", body.c_str());
    EXPECT_EQ(http_util_internal::http_download_param(nullptr, srv.url("/p q").c_str(), file.c_str(),
                                                      &p, 0, nullptr),
              HTTP_UTIL_OK);
    ASSERT_TRUE(srv.wait());
    const std::string req = srv.request();
    EXPECT_EQ(req.rfind("POST /p%20q HTTP/1.1\r\n", 0), 0u) << req;  // a space goes out as %20
    EXPECT_NE(req.find("Content-Type: application/octet-stream\r\n"), std::string::npos) << req;
    EXPECT_EQ(req.substr(req.size() - 7), "payload");
    EXPECT_EQ(dltest::read_file(file), "reply");
    EXPECT_TRUE(fake::logged("post file " + body + ", and download to " + file));
    EXPECT_TRUE(fake::log_texts("http_get").empty());
}

}  // namespace
