// A scratch directory removed with everything in it when the owner goes.
#ifndef HTTP_UTIL_TESTS_TEMP_DIR_H
#define HTTP_UTIL_TESTS_TEMP_DIR_H

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

class TempDir {
public:
    TempDir() {
        char tmpl[] = "/tmp/http_util_test_XXXXXX";
        if (mkdtemp(tmpl) == nullptr) throw std::runtime_error("mkdtemp");
        path_ = tmpl;
    }
    ~TempDir() { remove_tree(path_); }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }

    // Writes a file and returns its path.
    std::string write(const std::string &name, const std::string &content) const {
        std::string p = file(name);
        std::ofstream(p, std::ios::binary) << content;
        return p;
    }

    static std::string read(const std::string &p) {
        std::ifstream in(p, std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }

    // Runs f with this directory as the working directory (where a call
    // given no local file saves), and returns what f returns; the old
    // working directory is back however f ends.
    template <class F>
    auto inside(F f) const {
        struct Back {
            int fd;
            ~Back() {
                if (fchdir(fd) != 0) abort();
                close(fd);
            }
        };
        int old = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (old < 0) throw std::runtime_error("open .");
        Back back{old};
        if (chdir(path_.c_str()) != 0) throw std::runtime_error("chdir");
        return f();
    }

    // Names in the directory, without "." and "..".
    std::vector<std::string> entries() const {
        std::vector<std::string> out;
        if (DIR *d = opendir(path_.c_str())) {
            while (dirent *e = readdir(d)) {
                std::string n = e->d_name;
                if (n != "." && n != "..") out.push_back(n);
            }
            closedir(d);
        }
        return out;
    }

private:
    static void remove_tree(const std::string &p) {
        if (DIR *d = opendir(p.c_str())) {
            while (dirent *e = readdir(d)) {
                std::string n = e->d_name;
                if (n == "." || n == "..") continue;
                std::string child = p + "/" + n;
                struct stat st;
                if (lstat(child.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
                    remove_tree(child);
                else
                    unlink(child.c_str());
            }
            closedir(d);
        }
        rmdir(p.c_str());
    }

    std::string path_;
};

#endif
