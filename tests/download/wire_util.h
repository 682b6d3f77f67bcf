// Helpers of the download and copy wire tests: a fixture that checks no
// descriptor is left open, one GET attempt made by hand, and response heads.
#ifndef HTTP_UTIL_TESTS_DOWNLOAD_WIRE_UTIL_H
#define HTTP_UTIL_TESTS_DOWNLOAD_WIRE_UTIL_H

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <set>
#include <string>

#include "download/download.h"
#include "download_test_util.h"
#include "http_util.h"
#include "interpose.h"
#include "scripted_server.h"

namespace dltest {

// "Sun, 06 Nov 1994 08:49:37 GMT", the time every scripted server file has.
constexpr time_t kServerTime = 784111777;
constexpr const char *kServerDate = "Sun, 06 Nov 1994 08:49:37 GMT";

// Pauses are recorded, not waited for; every descriptor a test opens is
// closed by the time it ends.
class WireTest : public testing::Test {
protected:
    void SetUp() override {
        interpose::skip_pauses = true;
        (void)scripted::unused_port();  // its holder stays open for the process
        fds_ = open_fds();
    }
    void TearDown() override {
        EXPECT_EQ(open_fds(), fds_) << "a descriptor was left open";
        // A test's own directory goes after this: an unlink it made fail
        // would leave the directory behind.
        interpose::fail_unlink_path.clear();
    }

private:
    std::set<std::string> fds_;
};

// One attempt through http_get, with the URL record's port pointed at the
// scripted server while the Host line keeps the URL's own port.
class Attempt {
public:
    Attempt(const std::string &url, const std::string &local, uint16_t real_port)
        : text_(url), local_(local) {
        http_util_param p{};
        int err = 0;
        url_ = http_create_url_param(text_.c_str(), &err, &p, 0, nullptr);
        if (url_ != nullptr) {
            if (url_->ip_addr.ss_family == AF_INET)
                reinterpret_cast<sockaddr_in *>(&url_->ip_addr)->sin_port = htons(real_port);
            else
                reinterpret_cast<sockaddr_in6 *>(&url_->ip_addr)->sin6_port = htons(real_port);
        }
        util_ = http_create_util();
        ref_ = {&progress_, 0, &local_[0], 0};
    }
    ~Attempt() {
        http_free_util(util_);
        free(url_);
    }
    Attempt(const Attempt &) = delete;
    Attempt &operator=(const Attempt &) = delete;

    bool ok() const { return url_ != nullptr && util_ != nullptr; }
    int run() { return http_util_internal::http_get(url_, util_, &ref_); }
    const http_rsp &rsp() const { return util_->rsp; }
    const http_progress_ref &ref() const { return ref_; }
    const http_progress &progress() const { return progress_; }

private:
    std::string text_;
    std::string local_;
    http_url_param *url_ = nullptr;
    http_util *util_ = nullptr;
    http_progress progress_{};
    http_progress_ref ref_{};
};

inline std::string get_request(const std::string &target, const std::string &host,
                               const std::string &range = "") {
    std::string r = "GET " + target + " HTTP/1.1\r\nHost: " + host + "\r\n";
    if (!range.empty()) r += "Range: " + range + "\r\n";
    return r + "Accept: */*\r\n\r\n";
}

inline std::string host_of(const scripted::Server &srv) {
    return srv.host() + ":" + std::to_string(srv.port());
}

inline std::string ok_head(size_t len, const std::string &extra = "") {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(len) + "\r\n" + extra + "\r\n";
}

// The second half of a 2000-byte file, as a 206 answer to bytes=1000-.
inline std::string second_half(const std::string &extra = "") {
    return "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 1000-1999/2000\r\n"
           "Content-Length: 1000\r\n" + extra + "\r\n" + pattern(1000, 1000);
}

inline std::string last_modified() {
    return std::string("Last-Modified: ") + kServerDate + "\r\n";
}

}  // namespace dltest

#endif
