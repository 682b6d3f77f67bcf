#include "wire.h"

#include <poll.h>
#include <sys/socket.h>

namespace wire {

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
