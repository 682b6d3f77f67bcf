// A private temporary directory that is removed with everything in it when
// the owner goes out of scope, and the file helpers the peers' tests share.
#ifndef HTTP_UTIL_TESTS_TEMP_DIR_H
#define HTTP_UTIL_TESTS_TEMP_DIR_H

#include <stdint.h>
#include <time.h>

#include <string>

namespace peer {

class TempDir {
public:
    // Creates $TMPDIR/<prefix>.XXXXXX (or under /tmp); path() is empty on failure.
    explicit TempDir(const std::string &prefix = "http_util_test");
    ~TempDir() { remove(); }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }
    // Removes the directory tree now (also done by the destructor).
    void remove();

private:
    std::string path_;
};

// Bytes of a reproducible pseudo-random sequence: the same seed and size
// give the same bytes.
std::string random_bytes(size_t size, uint64_t seed = 1);

// Writes `data` to `path` (created or truncated; parent directories made);
// sets its modification time when `mtime` is not -1. False on any failure.
bool write_file(const std::string &path, const std::string &data, time_t mtime = -1);

// The whole file; empty and *ok false when it cannot be read.
std::string read_file(const std::string &path, bool *ok = nullptr);

// Modification time of a file, -1 when it cannot be read.
time_t file_mtime(const std::string &path);

bool make_dirs(const std::string &path);

}  // namespace peer

#endif
