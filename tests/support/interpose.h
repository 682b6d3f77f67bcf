// Faults injected into C library calls made by the library under test.
// The test binaries link the library statically, so these definitions
// take the place of the C library's for the whole process.
#ifndef HTTP_UTIL_TESTS_INTERPOSE_H
#define HTTP_UTIL_TESTS_INTERPOSE_H

#include <sys/time.h>

#include <string>
#include <vector>

namespace interpose {

// open() of exactly this path fails with ENOENT while it is non-empty.
extern std::string fail_open_path;
// How many opens were failed that way.
extern int open_failures;

// select() with no descriptors (a pause): each call's timeout is recorded;
// with skip_pauses the call returns at once instead of waiting.
extern std::vector<timeval> pauses;
extern bool skip_pauses;

// strdup() of exactly this text fails with ENOMEM while it is non-empty.
extern std::string fail_strdup_text;

// access() reports every path that begins with this text as existing
// while it is non-empty.
extern std::string taken_prefix;

// Restores every interposed call to the C library's behaviour.
void reset();

}  // namespace interpose

#endif
