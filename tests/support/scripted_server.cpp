#include "scripted_server.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/tcp.h>
#include <poll.h>
#include <string.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <stdexcept>

namespace scripted {

namespace {

socklen_t addr_len(const sockaddr_storage &ss) {
    return ss.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
}

sockaddr_storage loopback(Family family, uint16_t port) {
    sockaddr_storage ss{};
    if (family == Family::IPv4) {
        auto *sin = reinterpret_cast<sockaddr_in *>(&ss);
        sin->sin_family = AF_INET;
        sin->sin_port = htons(port);
        sin->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    } else {
        auto *sin6 = reinterpret_cast<sockaddr_in6 *>(&ss);
        sin6->sin6_family = AF_INET6;
        sin6->sin6_port = htons(port);
        sin6->sin6_addr = in6addr_loopback;
    }
    return ss;
}

// Content-Length of a request head, 0 when absent.
size_t content_length(const std::string &head) {
    size_t pos = 0;
    while ((pos = head.find("\r\n", pos)) != std::string::npos) {
        pos += 2;
        static const char kName[] = "content-length:";
        if (strncasecmp(head.c_str() + pos, kName, sizeof kName - 1) == 0)
            return strtoul(head.c_str() + pos + sizeof kName - 1, nullptr, 10);
    }
    return 0;
}

}  // namespace

Server::Server(Family family) : family_(family) {
    if (pipe2(stop_pipe_, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    listen_fd_ = socket(family == Family::IPv4 ? AF_INET : AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listen_fd_ < 0) throw std::runtime_error("socket");
    int one = 1;
    setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_storage ss = loopback(family, 0);
    if (bind(listen_fd_, reinterpret_cast<sockaddr *>(&ss), addr_len(ss)) != 0)
        throw std::runtime_error("bind");
    socklen_t len = sizeof ss;
    getsockname(listen_fd_, reinterpret_cast<sockaddr *>(&ss), &len);
    port_ = ntohs(family == Family::IPv4 ? reinterpret_cast<sockaddr_in *>(&ss)->sin_port
                                         : reinterpret_cast<sockaddr_in6 *>(&ss)->sin6_port);
}

Server::~Server() {
    if (stop_pipe_[1] >= 0) (void)!write(stop_pipe_[1], "x", 1);
    if (thread_.joinable()) thread_.join();
    if (listen_fd_ >= 0) ::close(listen_fd_);
    ::close(stop_pipe_[0]);
    ::close(stop_pipe_[1]);
}

std::string Server::host() const { return family_ == Family::IPv4 ? "127.0.0.1" : "::1"; }

std::string Server::url(const std::string &path) const {
    std::string h = family_ == Family::IPv4 ? host() : "[" + host() + "]";
    return "http://" + h + ":" + std::to_string(port_) + path;
}

sockaddr_storage Server::address() const { return loopback(family_, port_); }

Server &Server::read_request() { steps_.push_back({Kind::ReadRequest, {}, 0, {}}); return *this; }
Server &Server::read_bytes(size_t n) { steps_.push_back({Kind::ReadBytes, {}, n, {}}); return *this; }
Server &Server::read_until_close() { steps_.push_back({Kind::ReadUntilClose, {}, 0, {}}); return *this; }
Server &Server::send(const std::string &bytes) { steps_.push_back({Kind::Send, bytes, 0, {}}); return *this; }
Server &Server::pause(milliseconds d) { steps_.push_back({Kind::Pause, {}, 0, d}); return *this; }
Server &Server::stall(milliseconds d) { return pause(d); }
Server &Server::wait_until(std::function<bool()> ready) {
    steps_.push_back({Kind::WaitUntil, {}, 0, {}, std::move(ready)});
    return *this;
}
Server &Server::taken() { steps_.push_back({Kind::Taken, {}, 0, {}}); return *this; }
Server &Server::half_close() { steps_.push_back({Kind::HalfClose, {}, 0, {}}); return *this; }
Server &Server::close() { steps_.push_back({Kind::Close, {}, 0, {}}); return *this; }
Server &Server::reset() { steps_.push_back({Kind::Reset, {}, 0, {}}); return *this; }
Server &Server::next_connection() { steps_.push_back({Kind::NextConnection, {}, 0, {}}); return *this; }
Server &Server::small_receive_buffer() { small_rcvbuf_ = true; return *this; }

void Server::start() {
    if (small_rcvbuf_) {
        int size = 4096;  // inherited by accepted sockets, fixes the window
        setsockopt(listen_fd_, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    }
    if (listen(listen_fd_, 16) != 0) throw std::runtime_error("listen");
    thread_ = std::thread([this] { run(); });
}

int Server::connect_client(bool nonblock) {
    sockaddr_storage ss = address();
    int fd = socket(ss.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (connect(fd, reinterpret_cast<sockaddr *>(&ss), addr_len(ss)) != 0) {
        ::close(fd);
        return -1;
    }
    if (nonblock) fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    return fd;
}

bool Server::wait() {
    std::unique_lock<std::mutex> lock(m_);
    return cv_.wait_for(lock, std::chrono::seconds(60), [this] { return done_; });
}

std::string Server::request(size_t conn) const { return received(conn); }

size_t Server::connections() const {
    std::lock_guard<std::mutex> lock(m_);
    return received_.size();
}

std::string Server::received(size_t conn) const {
    std::lock_guard<std::mutex> lock(m_);
    return conn < received_.size() ? received_[conn] : std::string();
}

void Server::append(size_t conn, const char *data, size_t n) {
    std::lock_guard<std::mutex> lock(m_);
    received_[conn].append(data, n);
}

bool Server::sleep_for(milliseconds d) {
    pollfd p = {stop_pipe_[0], POLLIN, 0};
    return poll(&p, 1, static_cast<int>(d.count())) == 0;
}

int Server::accept_one() {
    pollfd p[2] = {{listen_fd_, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
    if (poll(p, 2, 60000) <= 0 || (p[1].revents & POLLIN)) return -1;
    int fd = accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
        std::lock_guard<std::mutex> lock(m_);
        received_.emplace_back();
    }
    return fd;
}

// Reads at most want bytes; false when the peer closed, an error happened
// or the server is stopping.
bool Server::read_some(int fd, size_t conn, size_t want) {
    pollfd p[2] = {{fd, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
    if (poll(p, 2, 60000) <= 0 || (p[1].revents & POLLIN)) return false;
    char buf[65536];
    ssize_t n = recv(fd, buf, want < sizeof buf ? want : sizeof buf, 0);
    if (n <= 0) return false;
    append(conn, buf, static_cast<size_t>(n));
    return true;
}

void Server::run() {
    int fd = -1;
    size_t conn = 0;
    size_t consumed = 0;  // bytes of this connection taken by earlier read steps
    size_t sent = 0;      // bytes sent on this connection
    bool stopping = false;
    auto ensure_connection = [&] {
        if (fd < 0 && !stopping) {
            fd = accept_one();
            if (fd < 0) stopping = true;
            conn = connections() - 1;
            consumed = 0;
            sent = 0;
        }
        return fd >= 0;
    };
    for (const Step &step : steps_) {
        if (stopping) break;
        switch (step.kind) {
        case Kind::NextConnection:
            if (fd >= 0) ::close(fd);
            fd = -1;
            break;
        case Kind::Pause:
            if (!sleep_for(step.delay)) stopping = true;
            break;
        case Kind::WaitUntil:
            while (!step.ready())
                if (!sleep_for(milliseconds(1))) {
                    stopping = true;
                    break;
                }
            break;
        case Kind::ReadRequest: {
            if (!ensure_connection()) break;
            size_t end;
            while ((end = received(conn).find("\r\n\r\n", consumed)) == std::string::npos)
                if (!read_some(fd, conn, 65536)) break;
            if (end == std::string::npos) break;
            size_t want = end + 4 + content_length(received(conn).substr(consumed, end + 4 - consumed));
            while (received(conn).size() < want)
                if (!read_some(fd, conn, want - received(conn).size())) break;
            consumed = want;
            break;
        }
        case Kind::ReadBytes: {
            if (!ensure_connection()) break;
            size_t want = consumed + step.count;
            while (received(conn).size() < want)
                if (!read_some(fd, conn, want - received(conn).size())) break;
            consumed = want;
            break;
        }
        case Kind::ReadUntilClose:
            if (!ensure_connection()) break;
            while (read_some(fd, conn, 65536)) {
            }
            consumed = received(conn).size();
            break;
        case Kind::Send: {
            if (!ensure_connection()) break;
            size_t off = 0;
            while (off < step.bytes.size()) {
                ssize_t n = ::send(fd, step.bytes.data() + off, step.bytes.size() - off, MSG_NOSIGNAL);
                if (n <= 0) break;
                off += static_cast<size_t>(n);
            }
            sent += off;
            break;
        }
        case Kind::Taken:
            for (int peer; fd >= 0 && (peer = local_peer_of(fd)) >= 0 && !taken_off(peer, sent);)
                if (!sleep_for(milliseconds(1))) {
                    stopping = true;
                    break;
                }
            break;
        case Kind::HalfClose:
            if (ensure_connection()) shutdown(fd, SHUT_WR);
            break;
        case Kind::Close:
            if (ensure_connection()) ::close(fd);
            fd = -1;
            break;
        case Kind::Reset:
            if (ensure_connection()) {
                linger lg = {1, 0};
                setsockopt(fd, SOL_SOCKET, SO_LINGER, &lg, sizeof lg);
                ::close(fd);
            }
            fd = -1;
            break;
        }
    }
    if (fd >= 0) ::close(fd);
    std::lock_guard<std::mutex> lock(m_);
    done_ = true;
    cv_.notify_all();
}

namespace {

bool same_address(const sockaddr_storage &a, socklen_t alen, const sockaddr_storage &b,
                  socklen_t blen) {
    return alen == blen && memcmp(&a, &b, alen) == 0;
}

}  // namespace

int local_peer_of(int fd) {
    sockaddr_storage self{}, peer{};
    socklen_t self_len = sizeof self, peer_len = sizeof peer;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&self), &self_len) != 0 ||
        getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &peer_len) != 0)
        return -1;
    int found = -1;
    DIR *dir = opendir("/proc/self/fd");
    if (!dir) return -1;
    while (dirent *e = readdir(dir)) {
        int other = atoi(e->d_name);
        if (e->d_name[0] == '.' || other == fd || other == dirfd(dir)) continue;
        sockaddr_storage a{}, b{};
        socklen_t a_len = sizeof a, b_len = sizeof b;
        if (getsockname(other, reinterpret_cast<sockaddr *>(&a), &a_len) == 0 &&
            getpeername(other, reinterpret_cast<sockaddr *>(&b), &b_len) == 0 &&
            same_address(a, a_len, peer, peer_len) && same_address(b, b_len, self, self_len)) {
            found = other;
            break;
        }
    }
    closedir(dir);
    return found;
}

bool taken_off(int fd, size_t n) {
    // Received first, queued second: bytes that arrive in between only make
    // the answer later, never wrong.
    tcp_info info{};
    socklen_t len = sizeof info;
    if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &len) != 0) return false;
    int queued = 0;
    if (ioctl(fd, FIONREAD, &queued) != 0) return false;
    if (len >= offsetof(tcp_info, tcpi_bytes_received) + sizeof info.tcpi_bytes_received)
        return info.tcpi_bytes_received >= n && queued == 0;
    // qemu user emulation passes back only the first word of TCP_INFO. Then
    // "arrived" is told by the sending end: nothing it sent is unacknowledged.
    // The caller checks after sending exactly n bytes, so that stands for n.
    int peer = local_peer_of(fd);
    int unacked = 0;
    if (peer < 0 || ioctl(peer, TIOCOUTQ, &unacked) != 0) return false;
    return unacked == 0 && queued == 0;
}

uint16_t unused_port() {
    // Bound but never listening: connections to it are refused.
    static int holder = -1;
    static uint16_t port = 0;
    if (holder < 0) {
        holder = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_storage ss = loopback(Family::IPv4, 0);
        bind(holder, reinterpret_cast<sockaddr *>(&ss), sizeof(sockaddr_in));
        socklen_t len = sizeof ss;
        getsockname(holder, reinterpret_cast<sockaddr *>(&ss), &len);
        port = ntohs(reinterpret_cast<sockaddr_in *>(&ss)->sin_port);
    }
    return port;
}

}  // namespace scripted
