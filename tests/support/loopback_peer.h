// Real peers for end-to-end tests, each a child process on a loopback port
// with a private directory, both gone with it: nginx (its locations are in
// loopback_peer.cpp) and Python's multipart parser (multipart_sink.py).
#ifndef HTTP_UTIL_TESTS_LOOPBACK_PEER_H
#define HTTP_UTIL_TESTS_LOOPBACK_PEER_H

#include <string>

#include "temp_dir.h"

namespace peer {
enum class Kind { Nginx, Sink };

class Peer {
public:
    explicit Peer(Kind kind);
    ~Peer() { stop(); }
    bool listening() const { return pid_ > 0; }
    int port() const { return port_; }
    std::string url(const std::string &path) const { return origin_ + path; }
    void put(const std::string &name, const std::string &bytes, time_t mtime) const;

private:
    void stop();
    TempDir dir_;
    pid_t pid_ = -1;
    int port_ = 0;
    std::string origin_;
};

// A TCP socket listening on (port 0: any free) or connected to 127.0.0.1:port; -1.
int tcp_socket(int port, bool connect_it);
int local_port(int fd);
void set_mtime(const std::string &path, time_t mtime);
}  // namespace peer

#endif
