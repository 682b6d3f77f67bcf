#include "cutting_proxy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <vector>

namespace peer {

namespace {

sockaddr_in loopback(int port) {
    sockaddr_in sin{};
    sin.sin_family = AF_INET;
    sin.sin_port = htons(static_cast<uint16_t>(port));
    sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return sin;
}

// Content-Length of a head, -1 when absent.
long long content_length(const std::string &head) {
    static const char kName[] = "\r\ncontent-length:";
    for (size_t i = 0; i + sizeof kName - 1 <= head.size(); ++i)
        if (strncasecmp(head.c_str() + i, kName, sizeof kName - 1) == 0)
            return strtoll(head.c_str() + i + sizeof kName - 1, nullptr, 10);
    return -1;
}

bool send_all(int fd, const char *p, size_t n) {
    while (n > 0) {
        ssize_t k = send(fd, p, n, MSG_NOSIGNAL);
        if (k <= 0) return false;
        p += k;
        n -= static_cast<size_t>(k);
    }
    return true;
}

// A reply with a Content-Length re-sent with chunked coding: the head
// without that field and with Transfer-Encoding, then the body bytes as
// they come, in chunks whose sizes and extensions were drawn up front so
// that the length of the whole is known before the first byte goes out.
class Rechunker {
public:
    // head ends in its empty line and holds a Content-Length of length.
    Rechunker(std::string head, long long length, std::mt19937_64 &random) {
        static const char kName[] = "\r\ncontent-length:";
        for (size_t i = 0; i + sizeof kName - 1 <= head.size(); ++i)
            if (strncasecmp(head.c_str() + i, kName, sizeof kName - 1) == 0) {
                head.erase(i, head.find("\r\n", i + 2) - i);
                break;
            }
        head.insert(head.size() - 2, "Transfer-Encoding: chunked\r\n");
        total_ = head.size();
        for (long long left = length; left > 0;) {
            const size_t size = std::min<size_t>(static_cast<size_t>(left), 1 + random() % 3000);
            std::string ext = random() % 4 == 0 ? ";e=" + std::string(random() % 40, 'x') : "";
            add_size_line(plan_.empty() ? 0 : 2, size_line(size, ext));
            plan_.push_back({size, ext});
            total_ += size;
            left -= static_cast<long long>(size);
        }
        add_size_line(plan_.empty() ? 0 : 2, "0\r\n");
        total_ += 2;  // the empty line after the zero chunk
        start_ = head + (length == 0 ? "0\r\n\r\n" : "");
    }
    const std::string &start() const { return start_; }
    size_t total() const { return total_; }
    // An offset inside a size line, or inside the line end before it.
    size_t size_line_offset(std::mt19937_64 &random) const {
        const auto &span = lines_[random() % lines_.size()];
        return span.first + random() % (span.second - span.first);
    }
    bool in_size_line(size_t offset) const {
        for (const auto &span : lines_)
            if (offset >= span.first && offset < span.second) return true;
        return false;
    }
    // Reply bytes for the next n body bytes.
    std::string feed(const char *p, size_t n) {
        std::string out;
        while (n > 0 && next_ < plan_.size()) {
            if (left_ == 0) {
                left_ = plan_[next_].first;
                out += size_line(left_, plan_[next_].second);
            }
            const size_t k = std::min(n, left_);
            out.append(p, k);
            p += k;
            n -= k;
            left_ -= k;
            if (left_ == 0) out += ++next_ == plan_.size() ? "\r\n0\r\n\r\n" : "\r\n";
        }
        return out;
    }

private:
    static std::string size_line(size_t size, const std::string &ext) {
        char hex[32];
        snprintf(hex, sizeof hex, "%zx", size);
        return hex + ext + "\r\n";
    }
    // A size line and the line end of the data before it (none before the
    // first) as a span of the reply.
    void add_size_line(size_t before, const std::string &line) {
        lines_.push_back({total_, total_ + before + line.size()});
        total_ += before + line.size();
    }

    std::vector<std::pair<size_t, std::string>> plan_;
    std::vector<std::pair<size_t, size_t>> lines_;
    std::string start_;
    size_t total_ = 0, next_ = 0, left_ = 0;
};

void close_with_reset(int fd) {
    linger l{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
    close(fd);
}

}  // namespace

uint64_t soak_seed() {
    if (const char *s = getenv("HTTP_UTIL_SOAK_SEED")) return strtoull(s, nullptr, 0);
    return (static_cast<uint64_t>(std::random_device()()) << 32) ^ std::random_device()();
}

CuttingProxy::CuttingProxy(const Options &options) : options_(options), random_(options.seed) {
    if (pipe2(stop_pipe_, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    listen_fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in sin = loopback(0);
    socklen_t len = sizeof sin;
    if (listen_fd_ < 0 || bind(listen_fd_, reinterpret_cast<sockaddr *>(&sin), len) != 0 ||
        listen(listen_fd_, 16) != 0 ||
        getsockname(listen_fd_, reinterpret_cast<sockaddr *>(&sin), &len) != 0)
        throw std::runtime_error("proxy listen");
    port_ = ntohs(sin.sin_port);
    thread_ = std::thread([this] { run(); });
}

CuttingProxy::~CuttingProxy() {
    (void)!write(stop_pipe_[1], "x", 1);
    thread_.join();
    close(listen_fd_);
    close(stop_pipe_[0]);
    close(stop_pipe_[1]);
}

std::string CuttingProxy::url(const std::string &path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

CuttingProxy::Stats CuttingProxy::stats() const {
    std::lock_guard<std::mutex> lock(m_);
    return stats_;
}

void CuttingProxy::run() {
    for (;;) {
        pollfd fds[2] = {{listen_fd_, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) continue;
        if (fds[1].revents != 0) return;
        int client = accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0) relay(client);
    }
}

// Relays one connection; the cut direction is held until its head is whole,
// then relayed whole or up to the chosen offset.
void CuttingProxy::relay(int client) {
    int up = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in sin = loopback(options_.upstream_port);
    if (up < 0 || connect(up, reinterpret_cast<sockaddr *>(&sin), sizeof sin) != 0) {
        if (up >= 0) close(up);
        close(client);
        return;
    }
    const bool response = options_.cut == Direction::Response;
    const int from = response ? up : client;  // the direction that is cut
    std::string held, request_head;
    bool decided = false, pass = false, by_reset = false;
    size_t cut_at = 0, forwarded = 0;
    std::optional<Rechunker> rechunk;
    char buf[65536];
    for (;;) {
        pollfd fds[3] = {{client, POLLIN, 0}, {up, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
        if (poll(fds, 3, -1) < 0) continue;
        if (fds[2].revents != 0) break;
        const int src = fds[0].revents != 0 ? client : fds[1].revents != 0 ? up : -1;
        if (src < 0) continue;
        const int dst = src == client ? up : client;
        ssize_t n = recv(src, buf, sizeof buf, 0);
        if (n <= 0) {
            if (src == from && !decided) (void)send_all(dst, held.data(), held.size());
            break;
        }
        if (src != from) {
            if (request_head.size() < 4096) request_head.append(buf, static_cast<size_t>(n));
            if (!send_all(dst, buf, static_cast<size_t>(n))) break;
            continue;
        }
        std::string chunk(buf, static_cast<size_t>(n));
        if (!decided) {
            held += chunk;
            size_t end = held.find("\r\n\r\n");
            if (end == std::string::npos) continue;
            end += 4;
            long long body = content_length(held.substr(0, end));
            const size_t marker = request_head.find("?chunked HTTP/");
            if (response && body >= 0 && marker < request_head.find("\r\n"))
                rechunk.emplace(held.substr(0, end), body, random_);
            size_t total = rechunk ? rechunk->total() : end + static_cast<size_t>(std::max(body, 0LL));
            decided = true;
            pass = random_() % 100 < options_.pass_percent;
            by_reset = random_() % 2 == 1;
            const unsigned where = random_() % 100;
            cut_at = where < options_.end_percent        ? total
                     : rechunk && where < 40 + options_.end_percent ? rechunk->size_line_offset(random_)
                                                                    : static_cast<size_t>(random_() % (total + 1));
            std::lock_guard<std::mutex> lock(m_);
            ++stats_.connections;
            if (response) {
                if (request_head.find("\r\nRange: bytes=") != std::string::npos)
                    ++stats_.range_requests;
                if (held.compare(0, 12, "HTTP/1.1 206") == 0) ++stats_.partial_replies;
            }
            if (pass) {
                ++stats_.passed;
            } else {
                ++(by_reset ? stats_.resets : stats_.closes);
                if (cut_at == total) ++stats_.whole;
                if (rechunk && rechunk->in_size_line(cut_at)) ++stats_.size_line_cuts;
            }
            if (rechunk) {
                ++stats_.chunked;
                chunk = rechunk->start() + rechunk->feed(held.data() + end, held.size() - end);
            } else {
                chunk.swap(held);
            }
        } else if (rechunk) {
            chunk = rechunk->feed(buf, static_cast<size_t>(n));
        }
        if (pass) {
            if (!send_all(dst, chunk.data(), chunk.size())) break;
            continue;
        }
        size_t k = std::min(cut_at - forwarded, chunk.size());
        if (!send_all(dst, chunk.data(), k)) break;
        forwarded += k;
        if (forwarded == cut_at) {
            if (by_reset)
                close_with_reset(client);
            else
                close(client);
            close(up);
            return;
        }
    }
    close(client);
    close(up);
}

}  // namespace peer
