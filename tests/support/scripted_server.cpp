#include "scripted_server.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <linux/tcp.h>
#include <netdb.h>
#include <poll.h>
#include <string.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <stdexcept>

#include "fake_device.h"

namespace scripted {

namespace {

socklen_t addr_len(const sockaddr_storage &ss) { return ss.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6); }

sockaddr_storage loopback(Family family, uint16_t port) {
    return family == Family::IPv4 ? fake::ipv4("127.0.0.1", port) : fake::ipv6("::1", port);
}

uint16_t port_of(int fd) {
    sockaddr_in a{};  // the port sits at the same place for both families
    socklen_t len = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len);
    return ntohs(a.sin_port);
}

// Content-Length of a request head, 0 when absent.
size_t content_length(const std::string &head) {
    for (size_t at = 0; (at = head.find("\r\n", at)) != std::string::npos;)
        if (strncasecmp(head.c_str() + (at += 2), "content-length:", 15) == 0) return strtoul(head.c_str() + at + 15, nullptr, 10);
    return 0;
}

std::string name_and_peer(int fd, int (*get)(int, sockaddr *, socklen_t *)) {
    sockaddr_storage ss{};
    socklen_t len = sizeof ss;
    return get(fd, reinterpret_cast<sockaddr *>(&ss), &len) == 0 ? std::string(reinterpret_cast<char *>(&ss), len) : "";
}

// The socket of this process at the other end of the loopback connection fd, or -1.
int local_peer_of(int fd) {
    const std::string self = name_and_peer(fd, getsockname), peer = name_and_peer(fd, getpeername);
    int found = -1;
    DIR *dir = opendir("/proc/self/fd");
    while (dirent *e = found < 0 && dir && !self.empty() ? readdir(dir) : nullptr) {
        int other = atoi(e->d_name);
        if (e->d_name[0] != '.' && other != fd && name_and_peer(other, getsockname) == peer &&
            name_and_peer(other, getpeername) == self)
            found = other;
    }
    if (dir) closedir(dir);
    return found;
}

// True once client, this process's end of the loopback connection to server,
// has received the n bytes server sent and holds none of them unread.
bool taken_off(int client, int server, size_t n) {
    // Received first, queued second: bytes that arrive in between only make
    // the answer later, never wrong.
    tcp_info info{};
    socklen_t len = sizeof info;
    int queued = 0, unacked = 0;
    if (getsockopt(client, IPPROTO_TCP, TCP_INFO, &info, &len) != 0 || ioctl(client, FIONREAD, &queued) != 0) return false;
    if (len >= offsetof(tcp_info, tcpi_bytes_received) + sizeof info.tcpi_bytes_received)
        return info.tcpi_bytes_received >= n && queued == 0;
    // qemu user emulation passes back only the first word of TCP_INFO. Then
    // "arrived" is told by the sending end: nothing it sent is unacknowledged.
    return ioctl(server, TIOCOUTQ, &unacked) == 0 && unacked == 0 && queued == 0;
}

}  // namespace

Server::Server(Family family) : family_(family) {
    listen_fd_ = socket(family == Family::IPv4 ? AF_INET : AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_storage ss = loopback(family, 0);
    if (pipe2(stop_pipe_, O_CLOEXEC) != 0 || listen_fd_ < 0 || bind(listen_fd_, reinterpret_cast<sockaddr *>(&ss), addr_len(ss)) != 0)
        throw std::runtime_error("scripted server");
    port_ = port_of(listen_fd_);
}

Server::~Server() {
    (void)!write(stop_pipe_[1], "x", 1);
    if (thread_.joinable()) thread_.join();
    ::close(listen_fd_);
    ::close(stop_pipe_[0]);
    ::close(stop_pipe_[1]);
}

std::string Server::url(const std::string &path) const {
    return (family_ == Family::IPv4 ? "http://127.0.0.1:" : "http://[::1]:") + std::to_string(port_) + path;
}
sockaddr_storage Server::address() const { return loopback(family_, port_); }

void Server::start() {
    if (listen(listen_fd_, 16) != 0) throw std::runtime_error("listen");
    thread_ = std::thread([this] { run(); });
}

int Server::connect_client() {
    sockaddr_storage ss = address();
    int fd = socket(ss.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr *>(&ss), addr_len(ss)) != 0) {
        ::close(fd);
        return -1;
    }
    if (fd >= 0) fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    return fd;
}

bool Server::wait() {
    std::unique_lock<std::mutex> lock(m_);
    return cv_.wait_for(lock, std::chrono::seconds(10), [this] { return done_; });
}

std::string Server::at(const std::vector<std::string> &v, size_t i) const {
    std::lock_guard<std::mutex> lock(m_);
    return i < v.size() ? v[i] : std::string();
}
size_t Server::connections() const {
    std::lock_guard<std::mutex> lock(m_);
    return received_.size();
}

int Server::accept_one() {
    pollfd p[2] = {{listen_fd_, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
    sockaddr_storage from{};
    socklen_t len = sizeof from;
    int fd = poll(p, 2, 60000) > 0 && !(p[1].revents & POLLIN)
                 ? accept4(listen_fd_, reinterpret_cast<sockaddr *>(&from), &len, SOCK_CLOEXEC) : -1;
    char text[INET6_ADDRSTRLEN] = "";
    getnameinfo(reinterpret_cast<sockaddr *>(&from), len, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
    std::lock_guard<std::mutex> lock(m_);
    if (fd >= 0) {
        received_.emplace_back();
        peers_.emplace_back(text);
    }
    return fd;
}

bool Server::read_some(int fd, size_t conn, size_t want) {
    pollfd p[2] = {{fd, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
    char buf[65536];
    ssize_t n = poll(p, 2, 60000) > 0 && !(p[1].revents & POLLIN) ? recv(fd, buf, std::min(want, sizeof buf), 0) : -1;
    std::lock_guard<std::mutex> lock(m_);
    if (n > 0) received_[conn].append(buf, static_cast<size_t>(n));
    return n > 0;
}

void Server::run() {
    int fd = -1;
    size_t conn = 0, consumed = 0, sent = 0;  // consumed: taken by earlier reads
    bool stopping = false;
    auto hold = [&](const std::function<bool()> &ready) {
        pollfd p = {stop_pipe_[0], POLLIN, 0};
        while (!stopping && !ready()) stopping = poll(&p, 1, 1) != 0;
    };
    for (const Step &step : steps_) {
        if (step.kind == Kind::Next) {
            if (fd >= 0) ::close(fd);
            fd = -1;
            continue;
        }
        if (step.kind == Kind::WaitUntil) hold(step.ready);
        if (step.kind != Kind::WaitUntil && fd < 0 && !stopping) {
            stopping = (fd = accept_one()) < 0;
            conn = connections() - 1;
            consumed = sent = 0;
        }
        if (stopping) break;
        if (step.kind == Kind::ReadRequest) {
            size_t end;
            while ((end = request(conn).find("\r\n\r\n", consumed)) == std::string::npos && read_some(fd, conn, 65536)) {
            }
            if (end == std::string::npos) continue;
            consumed = end + 4 + content_length(request(conn).substr(consumed, end + 4 - consumed));
            while (request(conn).size() < consumed && read_some(fd, conn, consumed - request(conn).size())) {
            }
        } else if (step.kind == Kind::ReadUntilClose) {
            while (read_some(fd, conn, 65536)) {
            }
        } else if (step.kind == Kind::Send) {
            size_t off = 0;
            for (ssize_t n; off < step.bytes.size() && (n = ::send(fd, &step.bytes[off], step.bytes.size() - off, MSG_NOSIGNAL)) > 0;)
                off += static_cast<size_t>(n);
            sent += off;
        } else if (step.kind == Kind::Taken) {
            hold([&] {
                int client = local_peer_of(fd);
                return client < 0 || taken_off(client, fd, sent);
            });
        } else if (step.kind == Kind::Close || step.kind == Kind::Reset) {
            linger lg = {1, 0};
            if (step.kind == Kind::Reset) setsockopt(fd, SOL_SOCKET, SO_LINGER, &lg, sizeof lg);
            ::close(fd);
            fd = -1;
        }
    }
    if (fd >= 0) ::close(fd);
    std::lock_guard<std::mutex> lock(m_);
    done_ = true;
    cv_.notify_all();
}

uint16_t unused_port() {
    // Bound but never listening: connections to it are refused. Its holder
    // stays open for the process.
    static int holder = -1;
    if (holder < 0) {
        holder = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_storage ss = loopback(Family::IPv4, 0);
        bind(holder, reinterpret_cast<sockaddr *>(&ss), sizeof(sockaddr_in));
    }
    return port_of(holder);
}

}  // namespace scripted
