// The readiness fast path must change nothing a caller can see. Every
// scripted scenario runs twice, once with each socket call behind its wait
// and once with the fast path, and the two traces must be identical: result,
// errno, log records, terminal output and polls, progress counts, the bytes
// the server received, the file written and what is left in the socket.
#include <arpa/inet.h>
#include <dirent.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "../http/body_support.h"
#include "../http/wire.h"
#include "download/download.h"
#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"
#include "scripted_server.h"
#include "temp_dir.h"

namespace {

using body::pattern;

std::string head(size_t len, const std::string &extra = "") {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(len) + "\r\n" + extra + "\r\n";
}

const std::string kChunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

std::string chunk(const std::string &data) {
    char size[16];
    snprintf(size, sizeof size, "%zx", data.size());
    return size + std::string("\r\n") + data + "\r\n";
}

// The library's end of the connection to port: the socket of this process
// whose peer is that port.
int client_socket(uint16_t port) {
    int found = -1;
    DIR *dir = opendir("/proc/self/fd");
    if (dir == nullptr) return -1;
    while (dirent *e = readdir(dir)) {
        if (e->d_name[0] == '.') continue;
        int fd = atoi(e->d_name);
        sockaddr_storage peer{};
        socklen_t len = sizeof peer;
        if (fd == dirfd(dir) || getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &len) != 0 ||
            peer.ss_family != AF_INET)
            continue;
        if (ntohs(reinterpret_cast<sockaddr_in *>(&peer)->sin_port) == port) {
            found = fd;
            break;
        }
    }
    closedir(dir);
    return found;
}

// The server's side of a scenario. A piece is seen on its own: the next step
// waits until the library has taken every byte sent so far (or has returned).
class Script {
public:
    Script(scripted::Server &srv, const std::atomic<bool> &done) : srv_(srv), done_(done) {}
    Script &request() {
        srv_.read_request();
        return *this;
    }
    Script &send(const std::string &bytes) {
        sent_ += bytes.size();
        srv_.send(bytes);
        return *this;
    }
    Script &piece(const std::string &bytes) {
        send(bytes);
        size_t n = sent_;
        uint16_t port = srv_.port();
        const std::atomic<bool> *done = &done_;
        srv_.wait_until([n, port, done] {
            if (*done) return true;
            int fd = client_socket(port);
            return fd >= 0 && wire::taken_off(fd, n);
        });
        return *this;
    }
    Script &bytewise(const std::string &bytes) {
        for (char c : bytes) piece(std::string(1, c));
        return *this;
    }
    Script &close() {
        srv_.close();
        return *this;
    }
    Script &reset() {
        srv_.reset();
        return *this;
    }
    // Holds the connection open until the library has returned.
    Script &until_done() {
        const std::atomic<bool> *done = &done_;
        srv_.wait_until([done] { return done->load(); });
        return *this;
    }

private:
    scripted::Server &srv_;
    const std::atomic<bool> &done_;
    size_t sent_ = 0;
};

enum class Call { Identity, Chunked, Head, Download, Upload };

struct Scenario {
    Scenario(const char *n, Call c, std::function<void(Script &)> s)
        : name(n), call(c), script(std::move(s)) {}
    Scenario &length(int32_t n) { toread = n; return *this; }
    Scenario &skipping(uint32_t n) { skip = n; return *this; }
    Scenario &to_sink() { sink = true; return *this; }
    Scenario &cancel_at_call(size_t n) { cancel_at = n; return *this; }
    Scenario &typed(std::vector<int> k) { keys = std::move(k); return *this; }
    Scenario &file(const std::string &bytes) { existing = bytes; return *this; }
    Scenario &raw_body() { raw = true; return *this; }
    Scenario &no_save() { save = false; return *this; }
    Scenario &read_late() { late = true; return *this; }

    const char *name;
    Call call;
    std::function<void(Script &)> script;
    int32_t toread = 0;         // Identity: the length to read
    uint32_t skip = 0;          // Identity, Chunked
    bool sink = false;          // body through on_data instead of the file
    size_t cancel_at = 0;       // on_progress call that cancels (0: none)
    std::vector<int> keys;      // typed keys, one per poll of the terminal
    std::string existing;       // Download: partial local file; Upload: the file sent
    bool raw = false;           // Upload: no multipart framing
    bool save = true;           // Upload: keep the answer's body
    bool late = false;          // readers: start once the script has been played
};

// Everything a caller or a peer can observe, as text, so that a mismatch
// shows as a readable diff.
struct Outcome {
    int rc = 0;
    int err = 0;
    std::string result;  // head text, or what the file holds
    std::string left;    // bytes left in the socket after a reader returned
    std::string request;
};

std::string normalised(std::string s, uint16_t port) {
    const std::string p = std::to_string(port);
    for (size_t at; (at = s.find(p)) != std::string::npos;) s.replace(at, p.size(), "<port>");
    static const std::regex boundary("-{20}[A-Za-z0-9]{23}");
    return std::regex_replace(s, boundary, "<boundary>");
}

class FastPathTrace : public testing::Test {
protected:
    // The whole observable trace of one scenario run one way.
    std::string trace(const Scenario &sc, bool fast) {
        fake::reset();
        interpose::reset();
        interpose::skip_pauses = true;
        // One fixed second: the terminal shows the first tick only, and no
        // deadline runs out, however long a run takes.
        interpose::fake_monotonic = timespec{5000, 0};
        for (int k : sc.keys) fake::device().keys.push_back(k);
        interpose::force_waiting_path = !fast;
        counts_.clear();
        taken_.clear();
        cancel_at_ = sc.cancel_at;

        std::atomic<bool> done{false};
        scripted::Server srv;
        Script script(srv, done);
        sc.script(script);
        srv.start();
        Outcome run = perform(sc, srv, done);
        srv.wait();
        run.request = srv.request();
        interpose::force_waiting_path = false;
        interpose::fake_monotonic.reset();
        return normalised(describe(run), srv.port());
    }

private:
    Outcome perform(const Scenario &sc, scripted::Server &srv, std::atomic<bool> &done) {
        Outcome run;
        const std::string out = dir_.file("out.bin");
        unlink(out.c_str());
        http_progress record{};
        record.priv[0] = reinterpret_cast<uintptr_t>(this);
        record.on_progress = [](http_progress *p, uint32_t count) {
            auto *self = reinterpret_cast<FastPathTrace *>(p->priv[0]);
            self->counts_.push_back(count);
            return self->counts_.size() == self->cancel_at_ ? 1 : 0;
        };
        if (sc.sink)
            record.on_data = [](http_progress *p, const void *data, uint32_t len) {
                auto *self = reinterpret_cast<FastPathTrace *>(p->priv[0]);
                self->taken_.append(static_cast<const char *>(data), len);
                return 0;
            };
        http_progress_ref ref = {&record, 0, nullptr, -1};
        http_util_param param{};
        param.show_progress = 1;
        param.max_redirect = 5;
        int err = 0;
        const std::string url_text = srv.url("/f.bin");
        http_url_param *url = http_create_url_param(url_text.c_str(), &err, &param, 0, nullptr);
        if (url == nullptr) {
            ADD_FAILURE() << "no URL record: " << err;
            done = true;
            return run;
        }

        switch (sc.call) {
        case Call::Identity:
        case Call::Chunked:
        case Call::Head: {
            int fd = srv.connect_client();
            // Everything, a reset included, is then in the socket before
            // the first call looks.
            if (sc.late) srv.wait();
            FILE *file = fopen(out.c_str(), "w+");
            errno = 0;
            if (sc.call == Call::Identity) {
                run.rc = http_fd_read_body(url, fd, file, &ref, sc.toread, sc.skip);
            } else if (sc.call == Call::Chunked) {
                run.rc = http_fd_read_body_chunked(url, fd, file, &ref, sc.skip);
            } else {
                int code = HTTP_UTIL_ERR_RECV_RSP;
                char *text = http_read_http_response_head(fd, url, &code);
                run.rc = text != nullptr ? 0 : code;
                run.result = text != nullptr ? "head: " + std::string(text) : "no head";
                free(text);
            }
            run.err = errno;
            done = true;
            if (file != nullptr) fclose(file);
            if (sc.call != Call::Head) run.result = TempDir::read(out);
            run.left = wire::rest(fd);
            close(fd);
            break;
        }
        case Call::Download: {
            if (!sc.existing.empty()) dir_.write("out.bin", sc.existing);
            param.ntry = 0;
            errno = 0;
            run.rc = http_util_internal::http_download_param(&record, url_text.c_str(), out.c_str(),
                                                             &param, 0, nullptr);
            run.err = errno;
            done = true;
            run.result = access(out.c_str(), F_OK) == 0 ? TempDir::read(out) : "(no file)";
            break;
        }
        case Call::Upload: {
            const std::string sent = dir_.write("up.bin", sc.existing);
            url->multipart = sc.raw ? 0 : 1;
            errno = 0;
            run.rc = http_post_loop(url, sent.c_str(), sc.save ? out.c_str() : nullptr);
            run.err = errno;
            done = true;
            run.result = access(out.c_str(), F_OK) == 0 ? TempDir::read(out) : "(no file)";
            break;
        }
        }
        free(url);
        return run;
    }

    std::string describe(const Outcome &run) const {
        std::string s = "rc " + std::to_string(run.rc) + ", errno " + std::to_string(run.err) + "\n";
        for (const fake::LogRecord &r : fake::device().logs)
            s += "log " + r.module + " " + r.func + ":" + std::to_string(r.line) + " " + r.text + "\n";
        for (const fake::SyslogRecord &r : fake::device().syslogs) s += "syslog " + r.text + "\n";
        s += "terminal [" + fake::device().terminal + "], polls " +
             std::to_string(fake::device().polls) + ", flushes " +
             std::to_string(fake::device().flushes) + "\n";
        s += "progress";
        for (uint32_t c : counts_) s += " " + std::to_string(c);
        s += "\nresult [" + run.result + "]\nsink [" + taken_ + "]\nleft [" + run.left +
             "]\nrequest [" + run.request + "]\n";
        return s;
    }

    TempDir dir_;
    std::vector<uint32_t> counts_;
    size_t cancel_at_ = 0;
    std::string taken_;
};

std::vector<Scenario> scenarios() {
    const std::string body = pattern(3000);
    const std::string big = pattern(40000);
    const std::string resp = head(12) + "hello, world";
    const size_t end = resp.find("\r\n\r\n") + 3;
    using C = Call;
    using S = Script;
    return {
        // ---- identity bodies ----
        Scenario("identity empty", C::Identity, [](S &s) { s.send("NEXT").until_done(); }),
        Scenario("identity 1 byte", C::Identity, [](S &s) { s.send("x").until_done(); }).length(1),
        Scenario("identity 1023", C::Identity, [=](S &s) { s.send(body.substr(0, 1023)).until_done(); }).length(1023),
        Scenario("identity 1024", C::Identity, [=](S &s) { s.send(body.substr(0, 1024)).until_done(); }).length(1024),
        Scenario("identity 1025 and more", C::Identity,
                 [=](S &s) { s.send(body.substr(0, 1025) + "NEXT").until_done(); }).length(1025),
        Scenario("identity 3000 whole", C::Identity, [=](S &s) { s.send(body).until_done(); }).length(3000),
        Scenario("identity 40000 in pieces", C::Identity,
                 [=](S &s) { s.piece(big.substr(0, 20000)).piece(big.substr(20000)).until_done(); })
            .length(40000),
        Scenario("identity split 1/700/rest", C::Identity,
                 [=](S &s) {
                     s.piece(body.substr(0, 1)).piece(body.substr(1, 700)).piece(body.substr(701)).until_done();
                 }).length(3000),
        Scenario("identity byte by byte", C::Identity, [=](S &s) { s.bytewise(body.substr(0, 40)).until_done(); })
            .length(40),
        Scenario("identity to the close", C::Identity,
                 [=](S &s) { s.piece(body.substr(0, 1500)).send(body.substr(1500)).close(); }).length(-1),
        Scenario("identity close mid-body", C::Identity, [=](S &s) { s.piece(body.substr(0, 100)).close(); })
            .length(2500),
        Scenario("identity close at once", C::Identity, [](S &s) { s.close(); }).length(10),
        Scenario("identity reset mid-body", C::Identity, [=](S &s) { s.piece(body.substr(0, 100)).reset(); })
            .length(2500),
        Scenario("identity reset, read late", C::Identity, [=](S &s) { s.send(body.substr(0, 100)).reset(); })
            .length(2500).read_late(),
        Scenario("identity close, read late", C::Identity, [=](S &s) { s.send(body.substr(0, 100)).close(); })
            .length(2500).read_late(),
        Scenario("identity skip", C::Identity, [=](S &s) { s.send(body).until_done(); }).length(3000).skipping(1500),
        Scenario("identity sink", C::Identity,
                 [=](S &s) { s.piece(body.substr(0, 2000)).send(body.substr(2000)).until_done(); })
            .length(3000).skipping(1500).to_sink(),
        Scenario("identity cancel after block 2", C::Identity, [=](S &s) { s.send(body).until_done(); })
            .length(3000).cancel_at_call(2),
        Scenario("identity Ctrl+C at poll 2", C::Identity, [=](S &s) { s.send(body).until_done(); })
            .length(3000).typed({0, 3}),
        // ---- chunked bodies ----
        Scenario("chunked one chunk", C::Chunked, [](S &s) { s.send("5\r\nhello\r\n0\r\n\r\nNEXT").until_done(); }),
        Scenario("chunked sizes", C::Chunked,
                 [=](S &s) {
                     s.send(chunk(body) + chunk("x") + chunk(body.substr(0, 1024)) + chunk(body.substr(0, 1023)) +
                            "0\r\n\r\n").until_done();
                 }),
        Scenario("chunked extension and 0x", C::Chunked,
                 [](S &s) { s.send("0x3;ext=1\r\nabc\r\nA\r\n0123456789\r\n0\r\n\r\n").until_done(); }),
        Scenario("chunked each line apart", C::Chunked,
                 [=](S &s) {
                     s.piece("BB8\r\n").piece(body).piece("\r\n1\r\n").piece("z").piece("\r\n0\r\n\r\n").until_done();
                 }),
        Scenario("chunked data byte by byte", C::Chunked,
                 [](S &s) { s.piece("6\r\n").bytewise("abcdef").piece("\r\n0\r\n\r\n").until_done(); }),
        Scenario("chunked size line split", C::Chunked,
                 [](S &s) { s.piece("1").piece("0;x=y\r").piece("\n0123456789abcdef\r").piece("\n0\n").until_done(); }),
        Scenario("chunked size lines byte by byte", C::Chunked,
                 [](S &s) { s.bytewise("3;a=b\r\nabc\r\n0\r\n").until_done(); }),
        Scenario("chunked size line too long", C::Chunked,
                 [](S &s) { s.send(std::string(300, '0') + "5\r\nhello\r\n").until_done(); }),
        Scenario("chunked size line cut", C::Chunked, [](S &s) { s.piece("3\r\nabc\r\n1").close(); }),
        Scenario("chunked not hex", C::Chunked, [](S &s) { s.send("zz\r\n").until_done(); }),
        Scenario("chunked too big", C::Chunked, [](S &s) { s.send("80000000\r\n").until_done(); }),
        Scenario("chunked close before size", C::Chunked, [](S &s) { s.piece("3\r\nabc").close(); }),
        Scenario("chunked close in data", C::Chunked, [](S &s) { s.piece("a\r\nabc").close(); }),
        Scenario("chunked reset before size", C::Chunked, [](S &s) { s.piece("3\r\nabc").reset(); }),
        Scenario("chunked reset in data", C::Chunked, [](S &s) { s.piece("a\r\nabc").reset(); }),
        Scenario("chunked reset, read late", C::Chunked, [](S &s) { s.send("3\r\nabc").reset(); }).read_late(),
        Scenario("chunked reset in data, read late", C::Chunked, [](S &s) { s.send("9\r\nabc").reset(); }).read_late(),
        Scenario("chunked skip", C::Chunked,
                 [](S &s) { s.send("4\r\nabcd\r\n8\r\nefghijkl\r\n0\r\n\r\n").until_done(); }).skipping(10),
        Scenario("chunked sink", C::Chunked,
                 [](S &s) { s.send("4\r\nabcd\r\n8\r\nefghijkl\r\n0\r\n\r\n").until_done(); }).skipping(10).to_sink(),
        Scenario("chunked cancel", C::Chunked, [=](S &s) { s.send(chunk(body) + "0\r\n\r\n").until_done(); })
            .cancel_at_call(2),
        // ---- response heads ----
        Scenario("head whole with body", C::Head, [=](S &s) { s.send(resp).until_done(); }),
        Scenario("head split in its end", C::Head,
                 [=](S &s) { s.piece(resp.substr(0, end)).send(resp.substr(end)).until_done(); }),
        Scenario("head split early", C::Head,
                 [=](S &s) { s.piece(resp.substr(0, 2)).piece(resp.substr(2, 9)).send(resp.substr(11)).until_done(); }),
        Scenario("head byte by byte", C::Head, [](S &s) { s.bytewise(head(0)).send("rest").until_done(); }),
        Scenario("head LF LF", C::Head, [](S &s) { s.send("HTTP/1.0 200 OK\nX: y\n\nbody").until_done(); }),
        Scenario("head after interim heads", C::Head,
                 [=](S &s) { s.piece("HTTP/1.1 100 Continue\r\n\r\n").send("HTTP/1.1 103 Early\n\n" + resp).until_done(); }),
        Scenario("head not HTTP", C::Head, [](S &s) { s.send("SSH-2.0\r\n\r\n").until_done(); }),
        Scenario("head close at once", C::Head, [](S &s) { s.close(); }),
        Scenario("head close inside", C::Head, [](S &s) { s.piece("HTTP/1.1 200 OK\r\n").close(); }),
        Scenario("head reset at once", C::Head, [](S &s) { s.reset(); }),
        Scenario("head reset inside", C::Head, [](S &s) { s.piece("HTTP/1.1 200 OK\r\n").reset(); }),
        Scenario("head reset, read late", C::Head, [](S &s) { s.send("HTTP/1.1 200 OK\r\n").reset(); }).read_late(),
        Scenario("head close, read late", C::Head, [](S &s) { s.send("HTTP/1.1 200 OK\r\n").close(); }).read_late(),
        Scenario("head too long", C::Head,
                 [](S &s) {
                     s.piece("HTTP/1.1 200 OK\r\n" + std::string(2500, 'h')).piece(std::string(2500, 'h')).until_done();
                 }),
        Scenario("head Ctrl+C", C::Head, [=](S &s) { s.piece(resp.substr(0, 5)).send(resp.substr(5)).until_done(); })
            .typed({-1, 3}),
        // ---- downloads ----
        Scenario("download 3000", C::Download, [=](S &s) { s.request().send(head(3000) + body); }),
        Scenario("download 40000 in pieces", C::Download,
                 [=](S &s) {
                     s.request().piece(head(40000)).piece(big.substr(0, 9999)).piece(big.substr(9999)).until_done();
                 }),
        Scenario("download chunked", C::Download,
                 [=](S &s) { s.request().send(kChunkedHead + chunk(body) + chunk("tail") + "0\r\n\r\n").until_done(); }),
        Scenario("download to the close", C::Download,
                 [=](S &s) {
                     s.request().piece("HTTP/1.1 200 OK\r\n\r\n").piece(body.substr(0, 10)).send(body.substr(10)).close();
                 }),
        Scenario("download close mid-body", C::Download,
                 [=](S &s) { s.request().piece(head(3000) + body.substr(0, 1500)).close(); }),
        Scenario("download reset mid-body", C::Download,
                 [=](S &s) { s.request().piece(head(3000) + body.substr(0, 1500)).reset(); }),
        Scenario("download 404", C::Download,
                 [](S &s) { s.request().send("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n"); }),
        Scenario("download resumed", C::Download,
                 [=](S &s) {
                     s.request().send("HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 1000-2999/3000\r\n"
                                      "Content-Length: 2000\r\n\r\n" + body.substr(1000));
                 }).file(body.substr(0, 1000)),
        Scenario("download Ctrl+C", C::Download, [=](S &s) { s.request().send(head(3000) + body).until_done(); })
            .typed({-1, -1, -1, -1, 3}),
        Scenario("download reset before the head", C::Download, [](S &s) { s.request().reset(); }),
        // ---- uploads ----
        Scenario("upload multipart", C::Upload, [=](S &s) { s.request().send(resp); }).file(body),
        Scenario("upload raw empty", C::Upload, [=](S &s) { s.request().send(resp); }).file("").raw_body(),
        Scenario("upload 40000 raw", C::Upload, [=](S &s) { s.request().send(resp); }).file(big).raw_body(),
        Scenario("upload answer in pieces", C::Upload,
                 [=](S &s) { s.request().piece(resp.substr(0, 7)).piece(resp.substr(7, 40)).send(resp.substr(47)); })
            .file(body),
        Scenario("upload chunked answer", C::Upload,
                 [](S &s) { s.request().send(kChunkedHead + "3\r\nabc\r\n0\r\n\r\n"); }).file("abc"),
        Scenario("upload 201", C::Upload,
                 [](S &s) { s.request().send("HTTP/1.1 201 Created\r\nContent-Length: 2\r\n\r\nok"); }).file("x"),
        Scenario("upload 404", C::Upload,
                 [](S &s) { s.request().send("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n"); }).file("x"),
        Scenario("upload reset before the answer", C::Upload, [](S &s) { s.request().reset(); }).file(body),
        Scenario("upload close in the answer body", C::Upload,
                 [](S &s) { s.request().send(head(100) + "short").close(); }).file(body),
        Scenario("upload Ctrl+C while sending", C::Upload, [](S &s) { s.request(); })
            .file(pattern(5000)).typed({-1, 3}),
        Scenario("upload without save path", C::Upload, [=](S &s) { s.request().send(resp); }).file(body).no_save(),
    };
}

TEST_F(FastPathTrace, EveryScenarioLooksTheSameBothWays) {
    for (const Scenario &sc : scenarios()) {
        const std::string written = trace(sc, false);
        const std::string fast = trace(sc, true);
        EXPECT_EQ(written, fast) << sc.name;
    }
}

// Regression: a fast read that met a reset took the error off the socket and
// then waited, so the waiting path read the end of the stream instead and
// reported a close where the reset belongs.
TEST_F(FastPathTrace, AResetIsReportedAsAResetNotAsAClose) {
    const Scenario sc =
        Scenario("reset", Call::Identity, [](Script &s) { s.send("abc").reset(); }).length(2500).read_late();
    const std::string fast = trace(sc, true);
    EXPECT_NE(fast.find("aborting (Connection reset by peer)."), std::string::npos) << fast;
    EXPECT_EQ(fast, trace(sc, false));
}

}  // namespace
