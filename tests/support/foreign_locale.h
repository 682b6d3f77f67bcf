// A German LC_TIME for the host side of a test, compiled by the build into
// its own tree: no system locale is needed or changed.
#ifndef HTTP_UTIL_TESTS_FOREIGN_LOCALE_H
#define HTTP_UTIL_TESTS_FOREIGN_LOCALE_H

#include <locale.h>
#include <stdlib.h>

namespace peer {
constexpr const char *kForeignTimeLocale = "de_DE.UTF-8";
// Switches the process's LC_TIME to it while it has one thread.
inline bool use_foreign_time_locale() {
    setenv("LOCPATH", HTTP_UTIL_TEST_LOCPATH ":/usr/lib/locale", 1);
    return setlocale(LC_TIME, kForeignTimeLocale) != nullptr;
}
}  // namespace peer

#endif
