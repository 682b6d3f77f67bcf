#include "loopback_peer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace peer {
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

Peer::Peer(Kind kind) {
    const int fd = tcp_socket(0, false);
    port_ = local_port(fd);
    close(fd);
    const std::string port = std::to_string(port_);
    origin_ = "http://127.0.0.1:" + port;
    mkdir(dir_.file("www").c_str(), 0755);
    char conf[sizeof kNginxConf + 8];
    snprintf(conf, sizeof conf, kNginxConf, port_);
    dir_.write("nginx.conf", conf);
    const char *nginx[] = {"/usr/sbin/nginx", "-p", dir_.path().c_str(), "-c", "nginx.conf",
                           "-e", "error.log", nullptr};
    const char *sink[] = {"/usr/bin/python3", HTTP_UTIL_SINK, "127.0.0.1", port.c_str(), nullptr};
    const char *const *argv = kind == Kind::Nginx ? nginx : sink;
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

void Peer::stop() {
    if (pid_ > 0 && kill(pid_, SIGKILL) == 0) waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

void Peer::put(const std::string &name, const std::string &bytes, time_t t) const {
    set_mtime(dir_.write("www/" + name, bytes), t);
}

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
    sockaddr_in6 a = {};  // the port sits at the same place for both families
    socklen_t len = sizeof a;
    return getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len) == 0 ? ntohs(a.sin6_port) : 0;
}

void set_mtime(const std::string &path, time_t t) {
    const timespec times[2] = {{0, UTIME_NOW}, {t, 0}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
}
}  // namespace peer
