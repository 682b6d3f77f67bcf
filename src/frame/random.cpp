// Small random numbers for boundaries, temporary names and pauses.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include "http_util.h"

extern "C" HTTP_UTIL_API uint32_t random_number(uint32_t n) {
    uint32_t raw = 0;  // bytes a short read leaves out stay zero
    bool have = false;
    int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        have = read(fd, &raw, sizeof raw) > 0;
        (void)close(fd);
    }
    if (!have) {
        // No random device: the monotonic clock is unpredictable enough for
        // short names and pause lengths.
        struct timespec ts = {0, 0};
        (void)clock_gettime(CLOCK_MONOTONIC, &ts);
        raw = static_cast<uint32_t>(ts.tv_sec) ^ static_cast<uint32_t>(ts.tv_nsec);
    }
    return raw % n;
}
