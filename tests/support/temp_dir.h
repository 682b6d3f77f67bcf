// The file helpers that the suites share, and a scratch directory removed
// with everything in it when the owner goes.
#ifndef HTTP_UTIL_TESTS_TEMP_DIR_H
#define HTTP_UTIL_TESTS_TEMP_DIR_H

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace files {

inline std::string read_file(const std::string &path) {
    std::ostringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}
inline void write_file(const std::string &path, const std::string &bytes) { std::ofstream(path, std::ios::binary) << bytes; }
inline time_t mtime_of(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_mtime : -1;
}
// Bytes 0, 7, 14, ... (mod 251): every offset is recognisable, and no CR LF.
inline std::string pattern(size_t n, size_t from = 0) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((from + i) * 7 % 251);
    return s;
}
// Names in a directory, without "." and "..".
inline std::vector<std::string> entries(const std::string &dir) {
    std::vector<std::string> out;
    DIR *d = opendir(dir.c_str());
    while (dirent *e = d ? readdir(d) : nullptr)
        if (std::string(".") != e->d_name && std::string("..") != e->d_name) out.push_back(e->d_name);
    if (d) closedir(d);
    return out;
}
// While one lives, descriptor 0 is free, as in a host without standard input.
struct NoStdin {
    const int in = dup(0), closed = close(0);
    ~NoStdin() { dup2(in, 0), close(in); }
};
inline std::set<std::string> open_fds() {
    std::vector<std::string> fds = entries("/proc/self/fd");
    return {fds.begin(), fds.end()};
}

}  // namespace files

class TempDir {
public:
    TempDir() : path_("/tmp/http_util_test_XXXXXX") {
        if (mkdtemp(&path_[0]) == nullptr) throw std::runtime_error("mkdtemp");
    }
    // Through remove(), whose unlink inside the C library no injected fault reaches.
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    std::string write(const std::string &name, const std::string &content) const {  // returns the path
        files::write_file(file(name), content);
        return file(name);
    }
    std::vector<std::string> entries() const { return files::entries(path_); }

private:
    std::string path_;
};

#endif
