// Faults injected into C library calls made by the library under test.
// The test binaries link the library statically, so these definitions
// take the place of the C library's for the whole process.
#ifndef HTTP_UTIL_TESTS_INTERPOSE_H
#define HTTP_UTIL_TESTS_INTERPOSE_H

#include <time.h>

#include <optional>
#include <string>

namespace interpose {

// open() of exactly this path fails with ENOENT while it is non-empty.
extern std::string fail_open_path;
// How many opens were failed that way.
extern int open_failures;

// While set, clock_gettime(CLOCK_MONOTONIC) answers this time instead of
// the system's, so that tests can step whole seconds without sleeping.
// Other clocks always go to the C library.
extern std::optional<timespec> fake_monotonic;
// Monotonic reads answered by the fake.
extern int fake_monotonic_reads;

// Restores every interposed call to the C library's behaviour.
void reset();

}  // namespace interpose

#endif
