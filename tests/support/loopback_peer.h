// Real peers for end-to-end tests, written by nobody here, each a child
// process on a loopback port with a private directory, both gone with it.
// Nginx serves www/NAME with ranges and Last-Modified, also under /chunked/
// (chunked coding), /nolm/ (no Last-Modified), /norange/ (Range ignored), and
// /301/NAME through 302, 303 (a relative Location) and 307. Sink (Python's
// multipart parser) answers a POST 200 only when Host names it and the body
// is one clean part, field file1, named after a local file with its bytes.
#ifndef HTTP_UTIL_TESTS_LOOPBACK_PEER_H
#define HTTP_UTIL_TESTS_LOOPBACK_PEER_H

#include <sys/types.h>
#include <time.h>

#include <string>

#include "temp_dir.h"

namespace peer {

enum class Kind { Nginx, Sink, Sink6 };

class Peer {
public:
    explicit Peer(Kind kind);
    ~Peer() { stop(); }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    bool listening() const { return pid_ > 0; }
    int port() const { return port_; }
    std::string url(const std::string &path) const { return origin_ + path; }
    // Serves NAME with these bytes and this modification time.
    void put(const std::string &name, const std::string &bytes, time_t mtime) const;

private:
    void stop();

    TempDir dir_;
    pid_t pid_ = -1;
    int port_ = 0;
    std::string origin_;
};

// A TCP socket bound (port 0: any free port) or connected to host:port; -1
// when that fails. local_port() tells the port of a bound one.
int tcp_socket(const char *host, int port, bool connect_it);
int local_port(int fd);

std::string random_bytes(size_t size, unsigned seed = 1);
void set_mtime(const std::string &path, time_t mtime);
time_t mtime(const std::string &path);  // -1 when there is no file
size_t open_fds();

}  // namespace peer

#endif
