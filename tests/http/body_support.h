// The body readers seen from the caller's side: the output file, the
// progress record's callbacks, and a scripted loopback peer.
#ifndef HTTP_UTIL_TESTS_HTTP_BODY_SUPPORT_H
#define HTTP_UTIL_TESTS_HTTP_BODY_SUPPORT_H

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "fake_device.h"
#include "http_util.h"
#include "scripted_server.h"

namespace body {

// A body of n bytes that shows where each byte came from.
inline std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>('a' + i % 26);
    return s;
}

// One reader call per case against a fresh scripted server, with a fresh
// temporary output file and the caller's progress record.
class BodyTest : public testing::Test {
protected:
    void SetUp() override {
        record_.priv[0] = reinterpret_cast<uintptr_t>(this);
        ref_.progress = &record_;
    }
    void TearDown() override {
        close_client();
        fresh_file(nullptr);
    }

    // The server for the next case; the script may wait until reader_done().
    scripted::Server &server() {
        srv_.reset();
        close_client();
        fake::reset();
        fresh_file(tmpfile());
        counts_.clear();
        done_ = false;
        srv_ = std::make_unique<scripted::Server>();
        return *srv_;
    }
    std::function<bool()> reader_done() {
        return [this] { return done_.load(); };
    }
    template <typename Call>
    int run(Call call) {
        srv_->start();
        fd_ = srv_->connect_client();
        int rc = call(fd_);
        done_ = true;
        return rc;
    }
    std::string written() {
        std::string out;
        rewind(file_);
        for (int c; (c = fgetc(file_)) != EOF;) out += static_cast<char>(c);
        return out;
    }
    void close_client() {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }
    void fresh_file(FILE *f) {
        if (file_) fclose(file_);
        file_ = f;
    }
    // Counts body bytes through on_progress; cancels at the given call.
    void count_progress(size_t cancel_at = 0) {
        cancel_at_ = cancel_at;
        record_.on_progress = [](http_progress *p, uint32_t count) {
            auto *self = reinterpret_cast<BodyTest *>(p->priv[0]);
            self->counts_.push_back(count);
            return self->counts_.size() == self->cancel_at_ ? 1 : 0;
        };
    }
    // Takes body blocks through on_data; fails at the given call.
    void take_data(size_t fail_at = 0) {
        fail_at_ = fail_at;
        record_.on_data = [](http_progress *p, const void *data, uint32_t len) {
            auto *self = reinterpret_cast<BodyTest *>(p->priv[0]);
            self->taken_.append(static_cast<const char *>(data), len);
            return ++self->data_calls_ == self->fail_at_ ? -1 : 0;
        };
    }

    std::unique_ptr<scripted::Server> srv_;
    int fd_ = -1;
    FILE *file_ = nullptr;
    std::atomic<bool> done_{false};
    http_progress record_{};
    http_progress_ref ref_{};
    std::vector<uint32_t> counts_;  // on_progress counts, in order
    size_t cancel_at_ = 0;
    std::string taken_;             // what on_data took
    size_t data_calls_ = 0, fail_at_ = 0;
};

}  // namespace body

#endif
