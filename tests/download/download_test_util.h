// Small helpers shared by the download and copy tests.
#ifndef HTTP_UTIL_TESTS_DOWNLOAD_TEST_UTIL_H
#define HTTP_UTIL_TESTS_DOWNLOAD_TEST_UTIL_H

#include <dirent.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace dltest {

inline std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void write_file(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline bool exists(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

inline time_t mtime_of(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_mtime : -1;
}

// Bytes 0, 1, ... 255, 0, ... : every offset is recognisable.
inline std::string pattern(size_t n, size_t from = 0) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((from + i) * 7 % 251);
    return s;
}

// Open descriptors of this process.
inline std::set<std::string> open_fds() {
    std::set<std::string> out;
    if (DIR *d = opendir("/proc/self/fd")) {
        int own = dirfd(d);
        while (dirent *e = readdir(d)) {
            std::string n = e->d_name;
            if (n != "." && n != ".." && n != std::to_string(own)) out.insert(n);
        }
        closedir(d);
    }
    return out;
}

}  // namespace dltest

#endif
