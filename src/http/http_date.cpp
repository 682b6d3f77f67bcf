// HTTP dates in the forms servers have used, read as UTC.
//
// The day and month names are the English ones, fixed here: the parse never
// looks at a locale, let alone sets one, so a host thread that formats or
// parses dates in its own language meanwhile is not disturbed. The formats
// are read exactly as the C library's strptime reads them in the "C"
// locale: names in any letter case, full or abbreviated (the longest that
// fits); numbers of one digit or more, white space allowed before them,
// read no further than the field's width and range; white space in a
// format matches any run of white space, none included; the day name is
// not checked against the date.
#include <stdint.h>
#include <string.h>
#include <time.h>

#include "http_util.h"

namespace {

constexpr const char *kDateFormats[] = {
    "%a, %d %b %Y %T",  // RFC 1123 (IMF-fixdate)
    "%A, %d-%b-%y %T",  // RFC 850
    "%a %b %d %T %Y",   // asctime
    "%a, %d-%b-%Y %T",  // RFC 1123 with dashes
};

// Rows of a fixed width rather than pointers: no relocations to load.
using Name = char[10];
constexpr Name kDays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                          "Thursday", "Friday", "Saturday"};
constexpr Name kMonths[] = {"January", "February", "March",     "April",
                            "May",     "June",     "July",      "August",
                            "September", "October", "November", "December"};

// The C locale's classes: the same bytes in every locale the host may use.
bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool is_digit(char c) { return c >= '0' && c <= '9'; }
char fold(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

struct Date {
    int year, mon, mday, hour, min, sec;
};

class Reader {
public:
    explicit Reader(const char *p) : p_(p) {}
    const char *pos() const { return p_; }

    // One format; false when the text does not fit it.
    bool read(const char *format, Date *d) {
        for (const char *f = format; *f != '\0'; ++f) {
            if (is_space(*f)) {
                while (is_space(*p_)) ++p_;
            } else if (*f != '%') {
                if (*p_++ != *f) return false;
            } else if (!field(*++f, d)) {
                return false;
            }
        }
        return true;
    }

private:
    bool field(char conv, Date *d) {
        int v = 0;
        switch (conv) {
        case 'a':
        case 'A':
            return name(kDays, 7) >= 0;
        case 'b':
            return (d->mon = name(kMonths, 12)) >= 0;
        case 'd':
            return number(1, 31, 2, &d->mday);
        case 'y':  // 69 to 99 are 1969 to 1999, the rest 2000 to 2068
            if (!number(0, 99, 2, &v)) return false;
            d->year = v >= 69 ? 1900 + v : 2000 + v;
            return true;
        case 'Y':
            return number(0, 9999, 4, &d->year);
        case 'T':
            return read("%H:%M:%S", d);
        case 'H':
            return number(0, 23, 2, &d->hour);
        case 'M':
            return number(0, 59, 2, &d->min);
        case 'S':  // leap seconds: 60 and 61 carry into the next minute
            return number(0, 61, 2, &d->sec);
        default:
            return false;
        }
    }

    // The index of the longest full or three-letter name that the text
    // begins with, letter case ignored; -1 when none does.
    int name(const Name *names, int count) {
        int found = -1;
        size_t longest = 0;
        for (int i = 0; i < count; ++i) {
            size_t len = prefix_len(names[i]);
            if (len > longest) {
                longest = len;
                found = i;
            }
        }
        p_ += longest;
        return found;
    }

    size_t prefix_len(const char *name) const {
        size_t n = 0;
        while (name[n] != '\0' && fold(p_[n]) == fold(name[n])) ++n;
        return name[n] == '\0' ? n : n >= 3 ? 3 : 0;
    }

    // At most `width` digits, and no more once another would pass `to`.
    bool number(int from, int to, int width, int *out) {
        while (is_space(*p_)) ++p_;
        if (!is_digit(*p_)) return false;
        int v = 0;
        do {
            v = v * 10 + (*p_++ - '0');
        } while (--width > 0 && v * 10 <= to && is_digit(*p_));
        if (v < from || v > to) return false;
        *out = v;
        return true;
    }

    const char *p_;
};

// What may follow a date: nothing, the zone GMT, or a numeric offset
// (accepted, not applied).
bool tail_ok(const char *p) {
    while (is_space(*p)) ++p;
    return *p == '\0' || strncmp(p, "GMT", 3) == 0 || ((*p == '+' || *p == '-') && is_digit(p[1]));
}

// Days from 1970-01-01 to the first of a month (proleptic Gregorian), the
// year counted from March; 400 years more keep every term positive.
int days_to_month(int year, int mon) {
    const int y = year + 400 - (mon < 2 ? 1 : 0);
    const int doy = (153 * (mon < 2 ? mon + 10 : mon - 2) + 2) / 5;
    return y * 365 + y / 4 - y / 100 + y / 400 + doy - 719468 - 146097;
}

}  // namespace

extern "C" HTTP_UTIL_API time_t http_atotm(const char *date) {
    for (const char *format : kDateFormats) {
        Date d = {1900, 0, 0, 0, 0, 0};
        Reader r(date);
        if (!r.read(format, &d) || !tail_ok(r.pos())) continue;
        // Out-of-range days carry into the next month, as timegm does.
        int64_t t = int64_t{days_to_month(d.year, d.mon) + d.mday - 1} * 86400 +
                    d.hour * 3600 + d.min * 60 + d.sec;
        if (static_cast<time_t>(t) != t) return -1;  // past a 32-bit time_t
        return static_cast<time_t>(t);
    }
    return -1;
}
