// Downloads through a proxy that cuts each reply at random, by a close or a
// reset, must all end whole with the server's time, resumed by Range. Replies
// to a target ending in "?chunked" are re-sent chunked (random sizes, some
// extensions), and many of their cuts fall inside a size line. A failure
// prints the seed: HTTP_UTIL_SOAK_SEED=<seed> replays the run.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <thread>

#include "http_util.h"
#include "loopback_peer.h"

namespace {

constexpr time_t kMtime = 1600000000;
constexpr int kDownloads = 600;

// Reads from fd onto s until done(s); false when the peer ends first.
template <class Done>
bool read_until(int fd, std::string &s, Done done) {
    char buf[65536];
    for (ssize_t n; !done(s); s.append(buf, static_cast<size_t>(n)))
        if ((n = recv(fd, buf, sizeof buf, 0)) <= 0) return false;
    return true;
}

// One connection at a time: the request goes to nginx, its whole reply (it
// sends a Content-Length) comes back and goes on whole or up to a random
// offset, ended by a close or a reset. Counts are read after finish().
struct CuttingProxy {
    CuttingProxy(int upstream, uint64_t seed) : upstream_(upstream), random_(seed) {}
    ~CuttingProxy() {
        finish();
        close(listen_);
    }
    std::string url(const std::string &path) const {
        return "http://127.0.0.1:" + std::to_string(peer::local_port(listen_)) + path;
    }
    void finish() {
        shutdown(listen_, SHUT_RDWR);  // ends the accept
        if (thread_.joinable()) thread_.join();
    }

    void relay(int client) {
        std::string request, reply;
        auto has_head = [](const std::string &s) { return s.find("\r\n\r\n") != s.npos; };
        bool ok = read_until(client, request, has_head);
        const int up = ok ? peer::tcp_socket("127.0.0.1", upstream_, true) : -1;
        ok = up >= 0 && send(up, request.data(), request.size(), MSG_NOSIGNAL) > 0 &&
             read_until(up, reply, has_head);
        const size_t head = reply.find("\r\n\r\n") + 4, length = reply.find("Content-Length: ");
        const size_t total = ok ? head + strtoul(reply.c_str() + length + 16, nullptr, 10) : 0;
        ok = ok && read_until(up, reply, [&](const std::string &s) { return s.size() >= total; });
        close(up);
        std::vector<std::pair<size_t, size_t>> lines;  // each with the line end before it
        if (ok && request.find("?chunked ") < request.find("\r\n")) {
            const size_t eol = reply.find("\r\n", length);
            std::string out = reply.substr(0, length) + "Transfer-Encoding: chunked" +
                              reply.substr(eol, head - eol);
            for (size_t at = head, n = 1; n > 0; at += n) {
                n = std::min<size_t>(total - at, 1 + random_() % 3000);
                char line[32];
                snprintf(line, sizeof line, "%s%zx%s\r\n", at > head ? "\r\n" : "", n,
                         random_() % 4 ? "" : ";e=x");
                lines.emplace_back(out.size(), out.size() + strlen(line));
                out.append(line).append(reply, at, n);
            }
            reply = out + "\r\n";
            ++chunked;
        }
        size_t cut = random_() % (reply.size() + 1);
        const unsigned pick = random_() % 10;
        if (pick < 3) {
            cut = reply.size();
        } else if (pick < 6 && !lines.empty()) {
            const auto &line = lines[random_() % lines.size()];
            cut = line.first + random_() % (line.second - line.first);
            ++in_size_line;
        }
        const bool reset = random_() % 2 == 1;
        ++connections;
        partial += reply.compare(0, 12, "HTTP/1.1 206") == 0;
        if (cut < reply.size() || reset) ++(reset ? resets : closes);
        for (ssize_t sent = 0, n = 0; ok && static_cast<size_t>(sent) < cut; sent += n)
            ok = (n = send(client, reply.data() + sent, cut - sent, MSG_NOSIGNAL)) > 0;
        const linger now = {1, 0};
        if (reset) setsockopt(client, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        close(client);
    }

    const int upstream_;
    std::mt19937_64 random_;
    const int listen_ = [] {
        const int fd = peer::tcp_socket("127.0.0.1", 0, false);
        return listen(fd, 8) == 0 ? fd : -1;
    }();

    int connections = 0, closes = 0, resets = 0, partial = 0, chunked = 0, in_size_line = 0;
    std::thread thread_{[this] {
        for (int c; (c = accept4(listen_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) relay(c);
    }};
};

TEST(Soak, DownloadsThroughCutsEndWhole) {
    const char *replay = getenv("HTTP_UTIL_SOAK_SEED");
    const uint64_t seed = replay ? strtoull(replay, nullptr, 0) : std::random_device()();
    SCOPED_TRACE("replay with HTTP_UTIL_SOAK_SEED=" + std::to_string(seed));
    peer::Peer nginx(peer::Kind::Nginx);
    ASSERT_TRUE(nginx.listening());
    const std::string files[] = {peer::random_bytes(60000), peer::random_bytes(260000, 2)};
    nginx.put("f0", files[0], kMtime);
    nginx.put("f1", files[1], kMtime);
    CuttingProxy proxy(nginx.port(), seed);
    g_http_opt.wait = 0;  // no pause between attempts
    TempDir dir;
    const std::string dst = dir.file("dl");
    const size_t fds = peer::open_fds();
    // Resumed by a 206; with no Last-Modified; from a server that ignores
    // Range, whose 200 starts again at byte 0.
    const char *const prefixes[] = {"/", "/nolm/", "/norange/"};
    for (int i = 0; i < kDownloads; ++i) {
        const std::string path = prefixes[i % 3] + ("f" + std::to_string(i % 2)) +
                                 (i / 6 % 2 ? "?chunked" : "");
        ASSERT_EQ(http_download_file_ntry(proxy.url(path).c_str(), dst.c_str(), 1000),
                  HTTP_UTIL_OK) << path;
        ASSERT_TRUE(TempDir::read(dst) == files[i % 2]) << path << ": the file differs";
        if (i % 3 != 1) {
            ASSERT_EQ(peer::mtime(dst), kMtime) << path;
        }
        ASSERT_EQ(dir.entries().size(), 1u) << path;
        unlink(dst.c_str());
    }
    proxy.finish();
    const CuttingProxy &s = proxy;
    EXPECT_EQ(peer::open_fds(), fds) << "a descriptor was left open";
    printf("soak: %d downloads through %d connections: %d cut by a close, %d by a reset, %d "
           "inside a size line of %d chunked replies; %d replies 206\n",
           kDownloads, s.connections, s.closes, s.resets, s.in_size_line, s.chunked, s.partial);
    EXPECT_GT(s.closes + s.resets, kDownloads);
    EXPECT_GT(s.partial, kDownloads / 4) << "partial files were resumed";
    EXPECT_GT(s.in_size_line, kDownloads / 10);
}

}  // namespace
