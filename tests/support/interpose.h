// Faults injected into C library calls made by the library under test.
// The test binaries link the library statically, so these definitions
// take the place of the C library's for the whole process.
#ifndef HTTP_UTIL_TESTS_INTERPOSE_H
#define HTTP_UTIL_TESTS_INTERPOSE_H

#include <stddef.h>
#include <sys/time.h>
#include <sys/socket.h>
#include <time.h>

#include <atomic>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace interpose {

// open() of exactly this path fails with ENOENT while it is non-empty.
extern std::string fail_open_path;
// How many opens were failed that way.
extern int open_failures;

// calloc() of exactly this many bytes in all fails with ENOMEM while it is
// non-zero (the test binaries link with --wrap=calloc).
extern size_t fail_calloc_bytes;

// While it is not -1, the byte counts of write() and send() calls on this
// descriptor, in order.
extern int watch_write_fd;
extern std::vector<size_t> writes;

struct SockoptCall {
    int fd;
    int level;
    int name;
    int value;  // the option as a 4-byte integer (0 for other lengths)
    socklen_t len;
    int result;
};
// Every setsockopt() so far, from any thread.
std::vector<SockoptCall> sockopt_calls();
// Option names whose setsockopt() succeeds without reaching the kernel
// (set before the calls to observe).
extern std::set<int> sockopt_pretend_ok;

// While set, the readiness fast path never settles a call: recv() with
// MSG_DONTWAIT reports EAGAIN and a poll() that does not wait finds nothing
// ready, so every socket call takes the waiting path.
extern std::atomic<bool> force_waiting_path;

// bind() fails with this errno while it is non-zero.
extern int fail_bind_errno;

// While set, clock_gettime(CLOCK_MONOTONIC) answers this time instead of
// the system's, so that tests can step whole seconds without sleeping.
// Other clocks always go to the C library.
extern std::optional<timespec> fake_monotonic;
// Monotonic reads answered by the fake.
extern int fake_monotonic_reads;

// select() with no descriptors (a pause): each call's timeout is recorded;
// with skip_pauses the call returns at once instead of waiting.
extern std::vector<timeval> pauses;
extern bool skip_pauses;

// strdup() of exactly this text fails with ENOMEM while it is non-empty.
extern std::string fail_strdup_text;

// access() reports every path that begins with this text as existing
// while it is non-empty.
extern std::string taken_prefix;

// unlink() of exactly this path fails with EPERM while it is non-empty.
extern std::string fail_unlink_path;

// fsync() and rename() in the order made: "fsync PATH" (the descriptor's
// path, links resolved) and "rename FROM TO".
extern std::vector<std::string> file_calls;
// fsync() fails with this errno while it is non-zero.
extern int fail_fsync_errno;

// Allocation-failure sweep. While armed, the heap allocations that the
// arming thread makes through malloc, calloc and realloc (the test binaries
// link with --wrap for each; strdup here takes its copy from malloc) and
// through fopen (whose FILE the C library allocates where no wrapper sees
// it) are counted, and the fail_at-th one fails with ENOMEM. Other threads,
// the scripted server's among them, are never failed.
void arm_allocation_failure(int fail_at);
// Disarms and returns how many allocations were counted while armed.
int disarm_allocation_failure();

// Restores every interposed call to the C library's behaviour.
void reset();

}  // namespace interpose

#endif
