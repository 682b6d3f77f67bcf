// A scratch directory removed with everything in it when the owner goes,
// and the file helpers that the suites share.
#ifndef HTTP_UTIL_TESTS_TEMP_DIR_H
#define HTTP_UTIL_TESTS_TEMP_DIR_H

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

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
    // unlinkat, not unlink: the tests make unlink fail, and the folder must
    // go whatever a test left armed.
    ~TempDir() { remove_tree(AT_FDCWD, path_.c_str()); }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    std::string write(const std::string &name, const std::string &content) const {  // returns the path
        files::write_file(file(name), content);
        return file(name);
    }
    std::vector<std::string> entries() const { return files::entries(path_); }

    // Runs f with this directory as the working directory (where a call
    // given no local file saves); the old one is back however f ends.
    template <class F>
    auto inside(F f) const {
        struct Back {
            int fd;
            ~Back() {
                if (fchdir(fd) != 0) abort();
                close(fd);
            }
        } back{open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
        if (back.fd < 0 || chdir(path_.c_str()) != 0) throw std::runtime_error("chdir");
        return f();
    }

private:
    static void remove_tree(int at, const char *name) {
        int fd = openat(at, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        DIR *d = fd >= 0 ? fdopendir(fd) : nullptr;
        while (dirent *e = d ? readdir(d) : nullptr)
            if (std::string(".") != e->d_name && std::string("..") != e->d_name && unlinkat(fd, e->d_name, 0) != 0)
                remove_tree(fd, e->d_name);
        d ? (void)closedir(d) : fd >= 0 ? (void)close(fd) : (void)0;
        unlinkat(at, name, AT_REMOVEDIR);
    }

    std::string path_;
};

#endif
