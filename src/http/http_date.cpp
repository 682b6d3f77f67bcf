// HTTP dates in the forms servers have used, read as UTC.
#include <ctype.h>
#include <locale.h>
#include <string.h>
#include <time.h>

#include "http_util.h"

namespace {

constexpr const char *kDateFormats[] = {
    "%a, %d %b %Y %T",  // RFC 1123
    "%A, %d-%b-%y %T",  // RFC 850
    "%a %b %d %T %Y",   // asctime
    "%a, %d-%b-%Y %T",  // RFC 1123 with dashes
};

// What may follow a date: nothing, the zone GMT, or a numeric offset
// (accepted, not applied).
bool date_tail_ok(const char *p) {
    while (isspace(static_cast<unsigned char>(*p))) ++p;
    return *p == '\0' || strncmp(p, "GMT", 3) == 0 ||
           ((*p == '+' || *p == '-') && isdigit(static_cast<unsigned char>(p[1])));
}

}  // namespace

extern "C" HTTP_UTIL_API time_t http_atotm(const char *date) {
    // Day and month names are English whatever the process's locale; the
    // caller's LC_TIME comes back afterwards.
    char saved[256];
    bool restore = false;
    const char *current = setlocale(LC_TIME, nullptr);
    if (current != nullptr && strlen(current) < sizeof saved) {
        memcpy(saved, current, strlen(current) + 1);
        restore = true;
    }
    (void)setlocale(LC_TIME, "C");

    time_t result = -1;
    for (const char *format : kDateFormats) {
        struct tm tm;
        memset(&tm, 0, sizeof tm);
        const char *end = strptime(date, format, &tm);
        if (end != nullptr && date_tail_ok(end)) {
            result = timegm(&tm);
            break;
        }
    }
    if (restore) (void)setlocale(LC_TIME, saved);
    return result;
}
