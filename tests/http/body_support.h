// What the body readers deliver, seen from the caller's side: the output
// file, the progress record's callbacks, and a loopback peer.
#ifndef HTTP_UTIL_TESTS_HTTP_BODY_SUPPORT_H
#define HTTP_UTIL_TESTS_HTTP_BODY_SUPPORT_H

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "fake_device.h"
#include "http_util.h"
#include "scripted_server.h"

namespace body {

// The caller's progress record; its own words point back here.
struct Caller {
    Caller() {
        record.priv[0] = reinterpret_cast<uintptr_t>(this);
        ref.progress = &record;
    }
    static Caller &of(http_progress *p) { return *reinterpret_cast<Caller *>(p->priv[0]); }

    void count_progress() { record.on_progress = on_progress; }
    void take_data() { record.on_data = on_data; }

    static int on_progress(http_progress *p, uint32_t count) {
        Caller &c = of(p);
        c.counts.push_back(count);
        return static_cast<int>(c.counts.size()) == c.cancel_at ? 1 : 0;
    }
    static int on_data(http_progress *p, const void *data, uint32_t len) {
        Caller &c = of(p);
        c.blocks.emplace_back(static_cast<const char *>(data), len);
        return static_cast<int>(c.blocks.size()) == c.fail_data_at ? -1 : 0;
    }

    http_progress record{};
    http_progress_ref ref{};
    std::vector<uint32_t> counts;     // on_progress, in order
    std::vector<std::string> blocks;  // on_data, in order
    int cancel_at = 0;                // on_progress call that cancels (1-based)
    int fail_data_at = 0;             // on_data call that fails (1-based)
};

inline std::string contents(FILE *f) {
    std::string out;
    rewind(f);
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    return out;
}

// A body of n bytes that shows where each byte came from.
inline std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>('a' + i % 26);
    return s;
}

inline std::string join(const std::vector<std::string> &parts) {
    std::string out;
    for (const auto &p : parts) out += p;
    return out;
}

// One reader call against a scripted server, with a temporary output file.
class BodyTest : public testing::Test {
protected:
    void SetUp() override {
        file_ = tmpfile();
        ASSERT_NE(file_, nullptr);
    }
    void TearDown() override {
        if (fd_ >= 0) close(fd_);
        if (file_) fclose(file_);
    }

    // Starts the server and runs call(fd) on a client socket.
    int run(scripted::Server &srv, const std::function<int(int)> &call) {
        srv.start();
        fd_ = srv.connect_client();
        EXPECT_GE(fd_, 0);
        int rc = call(fd_);
        done_ = true;
        return rc;
    }
    std::function<bool()> reader_done() {
        return [this] { return done_.load(); };
    }
    std::string written() { return contents(file_); }

    int fd_ = -1;
    FILE *file_ = nullptr;
    std::atomic<bool> done_{false};
    Caller caller_;
};

}  // namespace body

#endif
