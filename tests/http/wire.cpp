#include "wire.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace wire {

bool taken_off(int fd, size_t n) {
    // Received first, queued second: bytes that arrive in between only make
    // the answer later, never wrong.
    tcp_info info{};
    socklen_t len = sizeof info;
    if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &len) != 0) return false;
    int queued = 0;
    if (ioctl(fd, FIONREAD, &queued) != 0) return false;
    return info.tcpi_bytes_received >= n && queued == 0;
}

int next_byte(int fd) {
    pollfd p = {fd, POLLIN, 0};
    if (poll(&p, 1, 5000) != 1) return -1;
    unsigned char c;
    return recv(fd, &c, 1, 0) == 1 ? c : -1;
}

std::string rest(int fd) {
    std::string out;
    for (int c; (c = next_byte(fd)) >= 0;) out += static_cast<char>(c);
    return out;
}

}  // namespace wire
