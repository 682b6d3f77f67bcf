// The library end to end against nginx and Python's multipart parser.
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>

#include "http_util.h"
#include "loopback_peer.h"

namespace {

using peer::Kind;
constexpr time_t kMtime = 1600000000;

class E2e : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(nginx_.listening() && sink_.listening());
        param_.show_progress = 2;  // no terminal display
        param_.max_redirect = 5;
    }
    void TearDown() override { EXPECT_EQ(peer::open_fds(), fds_) << "a descriptor was left open"; }

    peer::Peer nginx_{Kind::Nginx}, sink_{Kind::Sink};
    TempDir dir_;
    http_util_param param_{};
    const size_t fds_ = peer::open_fds();
};

// The peers asked by curl: nginx serves ranges; the sink takes a sound
// upload and refuses one whose bytes are not the named file's.
TEST_F(E2e, PeersAnswerCurl) {
    nginx_.put("p", "peer", kMtime);
    const std::string f = dir_.write("f", "abc"), g = dir_.write("g", "abd");
    auto curl = [](const std::string &args) {
        std::string out(64, '\0');
        FILE *p = popen(("curl -s " + args).c_str(), "r");
        out.resize(fread(&out[0], 1, out.size(), p));
        pclose(p);
        return out;
    };
    EXPECT_EQ(curl("-r 1-2 " + nginx_.url("/p")), "ee");
    EXPECT_EQ(curl("-F 'file1=@" + f + ";filename=" + f + "' " + sink_.url("/")), "OK\n");
    EXPECT_NE(curl("-F 'file1=@" + g + ";filename=" + f + "' " + sink_.url("/")), "OK\n");
}

// What a download leaves by what was there: a part of the server's version
// is resumed with Range (its own bytes show it), a part of another version
// fetched anew, a whole copy kept, a longer one replaced. A copy replaces
// its destination only with the whole file.
TEST_F(E2e, Downloads) {
    const std::string data = peer::random_bytes(1 << 20), mine = peer::random_bytes(1 << 20, 2);
    const std::string part = mine.substr(0, 300000);
    nginx_.put("f", data, kMtime);
    nginx_.put("a b", data, kMtime);
    const struct {
        bool copy;
        const char *path, *local;  // local nullptr: named after the URL
        std::string before, after;  // "": no file
        time_t before_mtime;
        int rc;
    } rows[] = {
        {false, "/f", "f", "", data, 0, HTTP_UTIL_OK},
        {false, "/f", "f", part, part + data.substr(part.size()), kMtime, HTTP_UTIL_OK},
        {false, "/f", "f", part, data, kMtime - 3600, HTTP_UTIL_OK},
        {false, "/f", "f", mine, mine, kMtime, HTTP_UTIL_OK},
        {false, "/f", "f", data + "more", data, kMtime, HTTP_UTIL_OK},
        {false, "/chunked/f", "f", "", data, 0, HTTP_UTIL_OK},
        {false, "/301/f", "f", "", data, 0, HTTP_UTIL_OK},
        {false, "/a b", nullptr, "", data, 0, HTTP_UTIL_OK},
        {false, "/none", "f", "", "", 0, HTTP_UTIL_ERR_NOT_FOUND},
        {true, "/none", "f", "old", "old", kMtime, HTTP_UTIL_ERR_NOT_FOUND},
        {true, "/301/f", "f", "old", data, 0, HTTP_UTIL_OK},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(std::string(r.copy ? "copy " : "") + r.path + " over " + r.before);
        const std::string file = dir_.file(r.local ? r.local : r.path + 1);
        if (!r.before.empty()) peer::set_mtime(dir_.write(r.local, r.before), r.before_mtime);
        const std::string url = nginx_.url(r.path);
        EXPECT_EQ(dir_.inside([&] {
                      return r.copy ? http_util_copy(url.c_str(), r.local, &param_)
                                    : http_download_file_ntry(url.c_str(), r.local, 0);
                  }),
                  r.rc);
        EXPECT_TRUE(TempDir::read(file) == r.after) << "the file differs";
        EXPECT_EQ(dir_.entries().size(), r.after.empty() ? 0u : 1u);
        EXPECT_EQ(peer::mtime(file), r.after.empty() ? -1 : kMtime);
        unlink(file.c_str());
    }
}

// The sink compares each upload with the file it names.
TEST_F(E2e, Uploads) {
    for (size_t size : {0, 1, 1024, 1025, 3 << 20}) {
        const std::string file = dir_.write("up " + std::to_string(size),
                                            peer::random_bytes(size, static_cast<unsigned>(size)));
        const std::string url = sink_.url("/upload");
        EXPECT_EQ(http_upload_file(url.c_str(), file.c_str()), HTTP_UTIL_OK) << size;
        EXPECT_EQ(http_util_copy(file.c_str(), url.c_str(), &param_), HTTP_UTIL_OK) << size;
    }
}

// A strict server refuses a Host without brackets round an IPv6 literal.
TEST(E2eIpv6, UploadHostIsBracketed) {
    const int fd = peer::tcp_socket("::1", 0, false);
    if (fd < 0 || close(fd) != 0) GTEST_SKIP() << "no IPv6 loopback address";
    peer::Peer sink(Kind::Sink6);
    TempDir dir;
    EXPECT_EQ(http_upload_file(sink.url("/u").c_str(), dir.write("f", "abc").c_str()), HTTP_UTIL_OK);
}

}  // namespace
