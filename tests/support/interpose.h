// Faults injected into C library calls of the library under test. The test
// binaries link the library statically, so these definitions take the place
// of the C library's for the whole process; reset() (before every test)
// gives every call the C library's behaviour back.
#ifndef HTTP_UTIL_TESTS_INTERPOSE_H
#define HTTP_UTIL_TESTS_INTERPOSE_H

#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>

#include <atomic>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace interpose {

extern std::string fail_open_path;    // open() of it fails with ENOENT
extern std::string fail_unlink_path;  // unlink() of it fails with EPERM
extern std::string taken_prefix;      // access() finds every path that begins with it
extern size_t fail_calloc_bytes;      // calloc() of that many bytes in all fails
extern int fail_bind_errno, fail_fsync_errno;  // bind(), fsync() fail with it

// Byte counts of write() and send() calls on watch_write_fd.
extern std::atomic<int> watch_write_fd;  // read by scripted-server threads too
extern std::vector<size_t> writes;
// fsync() and rename() in order: "fsync PATH" (links resolved), "rename FROM TO".
extern std::vector<std::string> file_calls;

struct SockoptCall {
    int level, name, value;  // value: the option as a 4-byte integer, else 0
};
std::vector<SockoptCall> sockopt_calls();  // every setsockopt() so far, from any thread
extern std::set<int> sockopt_pretend_ok;   // option names set without the kernel

// While set, the readiness fast path never settles a call: recv() with
// MSG_DONTWAIT reports EAGAIN and a poll() that does not wait finds nothing.
extern std::atomic<bool> force_waiting_path;

// While set, clock_gettime(CLOCK_MONOTONIC) answers this.
extern std::optional<timespec> fake_monotonic;

// select() with no descriptors (a pause): each timeout is recorded; with
// skip_pauses the call returns at once.
extern std::vector<timeval> pauses;
extern bool skip_pauses;

// While armed, the allocations of the arming thread (malloc, calloc,
// realloc, strdup, and fopen, whose FILE the C library allocates unseen) are
// counted and the fail_at-th fails with ENOMEM; other threads never fail.
void arm_allocation_failure(int fail_at);
int disarm_allocation_failure();  // how many were counted

void reset();

}  // namespace interpose

#endif
