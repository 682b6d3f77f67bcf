// The library end to end, linked as a host program links it, against nginx
// and Python's multipart parser.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "foreign_locale.h"
#include "http_util.h"
#include "http_util_host.h"
#include "temp_dir.h"

namespace {

constexpr time_t kMtime = 1600000000;

// A TCP socket listening on (port 0: any free) or connected to 127.0.0.1:port; -1.
int tcp_socket(int port, bool connect_it) {
    sockaddr_in a = {};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto *sa = reinterpret_cast<const sockaddr *>(&a);
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && (connect_it ? connect(fd, sa, sizeof a) : bind(fd, sa, sizeof a) || listen(fd, 8)) != 0) {
        close(fd);
        fd = -1;
    }
    return fd;
}

int local_port(int fd) {
    sockaddr_in a = {};
    socklen_t len = sizeof a;
    return getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len) == 0 ? ntohs(a.sin_port) : 0;
}

void set_mtime(const std::string &path, time_t t) {
    const timespec times[2] = {{0, UTIME_NOW}, {t, 0}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
}

// Relative paths are under the peer's directory (nginx -p). /301/NAME goes
// through 302, 303 (a relative Location) and 307 to /NAME.
constexpr char kNginxConf[] = R"(daemon off; master_process off; pid pid;
events {} http { access_log off; default_type application/octet-stream;
client_body_temp_path t; proxy_temp_path t; fastcgi_temp_path t; uwsgi_temp_path t;
scgi_temp_path t;
server { listen 127.0.0.1:%d; root www;
location /chunked/ { alias www/; ssi on; ssi_types *; ssi_last_modified on; }
location /nolm/ { alias www/; add_header Last-Modified ""; etag off; if_modified_since off; }
location /norange/ { alias www/; max_ranges 0; }
location ~ ^/301/(.*) { return 301 /302/$1; } location ~ ^/302/(.*) { return 302 /303/$1; }
location ~ ^/303/(.*) { absolute_redirect off; return 303 /307/$1; }
location ~ ^/307/(.*) { return 307 /$1; } } })";

// A real peer, nginx or the multipart sink, as a child process on a loopback
// port with a private directory, both gone with it.
class Peer {
public:
    explicit Peer(bool nginx) {
        const int fd = tcp_socket(0, false);
        port_ = local_port(fd);
        close(fd);
        const std::string port = std::to_string(port_);
        mkdir(dir_.file("www").c_str(), 0755);
        char conf[sizeof kNginxConf + 8];
        snprintf(conf, sizeof conf, kNginxConf, port_);
        dir_.write("nginx.conf", conf);
        const char *nginx_argv[] = {"/usr/sbin/nginx", "-p", dir_.path().c_str(), "-c", "nginx.conf",
                                    "-e", "error.log", nullptr};
        const char *sink_argv[] = {"/usr/bin/python3", HTTP_UTIL_SINK, "127.0.0.1", port.c_str(), nullptr};
        const char *const *argv = nginx ? nginx_argv : sink_argv;
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);  // a crashed test leaves no peer behind
            execv(argv[0], const_cast<char *const *>(argv));
            _exit(127);
        }
        // Neither peer tells when it listens; a refused connect comes at once.
        for (int tries = 0; pid_ > 0 && tries < 1000; ++tries) {
            const int c = tcp_socket(port_, true);
            if (c >= 0 && close(c) == 0) return;
            if (waitpid(pid_, nullptr, WNOHANG) != 0) pid_ = -1;
            poll(nullptr, 0, 10);
        }
        stop();
    }
    ~Peer() { stop(); }
    bool listening() const { return pid_ > 0; }
    int port() const { return port_; }
    std::string url(const std::string &path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }
    void put(const std::string &name, const std::string &bytes, time_t t) const { set_mtime(dir_.write("www/" + name, bytes), t); }

private:
    void stop() {
        if (pid_ > 0 && kill(pid_, SIGKILL) == 0) waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    TempDir dir_;
    pid_t pid_ = -1;
    int port_ = 0;
};

class E2e : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(nginx_.listening() && sink_.listening()); }
    void TearDown() override { EXPECT_EQ(files::open_fds(), fds_) << "a descriptor was left open"; }

    Peer nginx_{true}, sink_{false};
    TempDir dir_;
    const std::set<std::string> fds_ = files::open_fds();
};

// The peers asked by curl (-f: fails on a status of 400 or more): nginx
// serves a range; the sink refuses bytes that are not the named file's.
TEST_F(E2e, PeersAnswerCurl) {
    nginx_.put("p", "peer", kMtime);
    const std::string f = dir_.write("f", "abc"), g = dir_.write("g", "abd");
    auto curl = [](std::string args) { return system(("curl -sfo /dev/null " + args).c_str()); };
    EXPECT_EQ(curl("-r 1-2 " + nginx_.url("/p")), 0);
    EXPECT_EQ(curl("-F 'file1=@" + f + ";filename=" + f + "' " + sink_.url("/")), 0);
    EXPECT_NE(curl("-F 'file1=@" + g + ";filename=" + f + "' " + sink_.url("/")), 0);
}

// One connection at a time: nginx's whole reply (with a Content-Length) goes
// on whole or up to a random offset, then a close or a reset. A reply to a
// target ending in "?chunked" is re-sent chunked (random sizes, some
// extensions), many of its cuts inside a size line. Cuts counted: after finish().
struct CuttingProxy {
    CuttingProxy(int upstream, uint64_t seed) : upstream_(upstream), random_(seed) {}
    ~CuttingProxy() {
        finish();
        close(listen_);
    }
    std::string url(const std::string &path) const {
        return "http://127.0.0.1:" + std::to_string(local_port(listen_)) + path;
    }
    void finish() {
        shutdown(listen_, SHUT_RDWR);  // ends the accept
        if (thread_.joinable()) thread_.join();
    }

    void relay(int client) {
        std::string request, reply;
        auto read_until = [](int fd, std::string &s, auto done) {  // false: ended first
            char buf[65536];
            for (ssize_t n; !done(s); s.append(buf, static_cast<size_t>(n)))
                if ((n = recv(fd, buf, sizeof buf, 0)) <= 0) return false;
            return true;
        };
        auto has_head = [](const std::string &s) { return s.find("\r\n\r\n") != s.npos; };
        const int up = read_until(client, request, has_head) ? tcp_socket(upstream_, true) : -1;
        bool ok = up >= 0 && send(up, request.data(), request.size(), MSG_NOSIGNAL) > 0 &&
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
        }
        size_t cut = random_() % 10 < 3 ? reply.size() : random_() % (reply.size() + 1);
        if (cut < reply.size() && !lines.empty() && random_() % 2) {
            const auto &line = lines[random_() % lines.size()];
            cut = line.first + random_() % (line.second - line.first);
        }
        const bool reset = random_() % 2 == 1;
        cuts += cut < reply.size() || reset;
        for (ssize_t sent = 0, n = 0; ok && static_cast<size_t>(sent) < cut; sent += n)
            ok = (n = send(client, reply.data() + sent, cut - sent, MSG_NOSIGNAL)) > 0;
        const linger now = {1, 0};
        if (reset) setsockopt(client, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        close(client);
    }

    const int upstream_;
    std::mt19937_64 random_;
    const int listen_ = tcp_socket(0, false);
    int cuts = 0;
    std::thread thread_{[this] {
        for (int c; (c = accept4(listen_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) relay(c);
    }};
};

class Soak : public E2e {};

// Every download through the cuts ends whole with the server's time. A
// failure prints the seed: HTTP_UTIL_SOAK_SEED=<seed> replays the run.
TEST_F(Soak, DownloadsThroughCutsEndWhole) {
    const char *replay = getenv("HTTP_UTIL_SOAK_SEED");
    const uint64_t seed = replay ? strtoull(replay, nullptr, 0) : std::random_device()();
    SCOPED_TRACE("replay with HTTP_UTIL_SOAK_SEED=" + std::to_string(seed));
    std::string data(200000, '\0');
    std::generate(data.begin(), data.end(), std::mt19937(static_cast<unsigned>(seed)));
    nginx_.put("f", data, kMtime);
    g_http_opt.wait = 0;  // no pause between attempts
    const std::string dst = dir_.file("dl");
    // Resumed by a 206; with no Last-Modified; from a server that ignores
    // Range, whose 200 starts again at byte 0.
    const char *const prefixes[] = {"/", "/nolm/", "/norange/"};
    constexpr int kDownloads = 600;
    CuttingProxy proxy(nginx_.port(), seed);
    for (int i = 0; i < kDownloads; ++i) {
        const std::string path = prefixes[i % 3] + std::string(i / 3 % 2 ? "f?chunked" : "f");
        ASSERT_EQ(http_download_file_ntry(proxy.url(path).c_str(), dst.c_str(), 1000),
                  HTTP_UTIL_OK) << path;
        ASSERT_TRUE(files::read_file(dst) == data) << path << ": the file differs";
        if (i % 3 != 1) {  // /nolm/ gives no time
            ASSERT_EQ(files::mtime_of(dst), kMtime) << path;
        }
        ASSERT_EQ(dir_.entries().size(), 1u) << path;
        unlink(dst.c_str());
    }
    proxy.finish();
    EXPECT_GT(proxy.cuts, kDownloads) << "the proxy cut too little";
}

class Threads : public E2e {};

// Transfers of every kind on threads at once (the first racing to set up the
// log) while the host formats month names in its own language. Under
// ThreadSanitizer (preset tsan) a data race fails the case.
TEST_F(Threads, TransfersAtOnceWhileTheHostKeepsItsTimeLocale) {
    ASSERT_TRUE(peer::use_foreign_time_locale()) << peer::kForeignTimeLocale;
    ASSERT_EQ(http_util_host_set_log(dir_.file("log").c_str()), 0);  // one log for all
    // Dates over some years, so that every month's name is parsed. By f % 10:
    // downloads (1 chunked; 2 resumed; 6 over a part of another version; 7 over
    // a longer file, 8 over the whole one, both of the server's time; 9 through
    // four redirections), 3 a copy down, and uploads (5 by a copy) that the sink checks.
    constexpr int kFiles = 120;
    auto date = [](int f) { return kMtime + f * 900000L; };
    const std::string data = files::pattern(20000);
    for (int f = 0; f < kFiles; ++f) {
        const std::string name = std::to_string(f);
        const int k = f % 10;
        nginx_.put(name, data, date(f));
        if (k == 2 || k == 6) set_mtime(dir_.write(name, k == 2 ? data.substr(0, 9999) : files::pattern(9999, 1)), date(f) - (k == 6));
        if (k == 7 || k == 8) set_mtime(dir_.write(name, k == 7 ? data + "more" : data), date(f));
        if (k == 4 || k == 5) dir_.write(name, data);
    }
    http_util_param param{};
    param.show_progress = 2;  // no terminal display
    param.max_redirect = 5;
    std::atomic<int> busy{3};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            for (int f = t; f < kFiles; f += 3) {
                const int k = f % 10;
                const std::string name = std::to_string(f), local = dir_.file(name);
                const std::string url = nginx_.url((k == 1 ? "/chunked/" : k == 9 ? "/301/" : "/") + name);
                const std::string up = sink_.url("/");  // param is only read
                EXPECT_EQ(k == 3   ? http_util_copy(url.c_str(), local.c_str(), &param)
                          : k == 4 ? http_upload_file(up.c_str(), local.c_str())
                          : k == 5 ? http_util_copy(local.c_str(), up.c_str(), &param)
                                   : http_download_file_ntry(url.c_str(), local.c_str(), 0),
                          HTTP_UTIL_OK) << f;
                EXPECT_TRUE(files::read_file(local) == data) << f;  // uploads: as they were
                if (k != 4 && k != 5) {  // an upload leaves its file as it was
                    EXPECT_EQ(files::mtime_of(local), date(f)) << f;
                }
            }
            --busy;
        });
    long foreign = 0;
    struct tm march = {};
    march.tm_mon = 2;
    for (char text[32]; busy > 0;) {
        strftime(text, sizeof text, "%B", &march);
        foreign += strcmp(text, "M\xc3\xa4rz") != 0;
    }
    for (auto &t : threads) t.join();
    http_util_host_set_log(nullptr);
    setlocale(LC_TIME, "C");
    EXPECT_EQ(foreign, 0) << "the host's month names changed";
}

}  // namespace
