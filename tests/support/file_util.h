// File helpers the end-to-end peers and their tests share.
#ifndef HTTP_UTIL_TESTS_FILE_UTIL_H
#define HTTP_UTIL_TESTS_FILE_UTIL_H

#include <stdint.h>
#include <time.h>

#include <string>

namespace peer {

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
