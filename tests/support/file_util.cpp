#include "file_util.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>

namespace peer {

std::string random_bytes(size_t size, uint64_t seed) {
    std::mt19937_64 gen(seed * 0x9E3779B97F4A7C15ull + size);
    std::string out(size, '\0');
    size_t i = 0;
    while (i < size) {
        uint64_t v = gen();
        for (int b = 0; b < 8 && i < size; ++b, ++i)
            out[i] = static_cast<char>((v >> (8 * b)) & 0xff);
    }
    return out;
}

bool make_dirs(const std::string &path) {
    struct stat st;
    if (path.empty() || stat(path.c_str(), &st) == 0)
        return !path.empty() && S_ISDIR(st.st_mode);
    size_t slash = path.find_last_of('/');
    if (slash != std::string::npos && slash > 0 && !make_dirs(path.substr(0, slash)))
        return false;
    return mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

bool write_file(const std::string &path, const std::string &data, time_t mtime) {
    size_t slash = path.find_last_of('/');
    if (slash != std::string::npos && slash > 0 && !make_dirs(path.substr(0, slash)))
        return false;
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            close(fd);
            return false;
        }
        done += static_cast<size_t>(n);
    }
    bool ok = close(fd) == 0;
    if (ok && mtime != -1) {
        timespec times[2] = {{0, UTIME_NOW}, {mtime, 0}};
        ok = utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
    }
    return ok;
}

std::string read_file(const std::string &path, bool *ok) {
    std::string out;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (ok)
        *ok = fd >= 0;
    if (fd < 0)
        return out;
    char buf[65536];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && ok)
            *ok = false;
        if (n <= 0)
            break;
        out.append(buf, static_cast<size_t>(n));
    }
    close(fd);
    return out;
}

time_t file_mtime(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_mtime : -1;
}

}  // namespace peer
