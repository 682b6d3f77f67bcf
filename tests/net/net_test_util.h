// Helpers shared by the connection-layer tests.
#ifndef HTTP_UTIL_TESTS_NET_TEST_UTIL_H
#define HTTP_UTIL_TESTS_NET_TEST_UTIL_H

#include <dirent.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "fake_device.h"
#include "http_util.h"

namespace nettest {

using Record = std::pair<std::string, std::string>;  // function, text

// Log records in order, as (function, text).
inline std::vector<Record> records() {
    std::vector<Record> out;
    for (const auto &r : fake::device().logs) out.emplace_back(r.func, r.text);
    return out;
}

// Open descriptors of this process.
inline int open_fds() {
    DIR *d = opendir("/proc/self/fd");
    if (d == nullptr) return -1;
    int n = 0;
    while (readdir(d) != nullptr) ++n;
    closedir(d);
    return n;
}

inline double seconds_since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

}  // namespace nettest

#endif
