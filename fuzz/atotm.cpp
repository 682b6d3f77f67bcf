// http_atotm against the C library's strptime in the "C" locale (the fuzzer
// never sets one): the way the parser read dates before it had a reader of
// its own, and the result it must still give for every text.
#include <ctype.h>
#include <string.h>
#include <time.h>

#include "fuzz_support.h"

namespace {

time_t strptime_atotm(const char *date) {
    for (const char *format :
         {"%a, %d %b %Y %T", "%A, %d-%b-%y %T", "%a %b %d %T %Y", "%a, %d-%b-%Y %T"}) {
        struct tm tm;
        memset(&tm, 0, sizeof tm);
        const char *end = strptime(date, format, &tm);
        if (end == nullptr) continue;
        while (isspace(static_cast<unsigned char>(*end))) ++end;
        if (*end == '\0' || strncmp(end, "GMT", 3) == 0 ||
            ((*end == '+' || *end == '-') && isdigit(static_cast<unsigned char>(end[1]))))
            return timegm(&tm);
    }
    return -1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string date = fuzz::text(data, size);
    time_t t = http_atotm(date.c_str());
    FUZZ_CHECK(t == strptime_atotm(date.c_str()));

    // As a Last-Modified field: the text cut to 31 characters, the time
    // from the whole text, an unreadable date leaving -1 and no failure.
    http_rsp rsp = {};
    rsp.mtime = -1;
    FUZZ_CHECK(http_parse_rsp_head(&rsp, nullptr, "Last-Modified", date.c_str()) == 0);
    FUZZ_CHECK(rsp.mtime == static_cast<int32_t>(t));
    FUZZ_CHECK(strncmp(rsp.last_modified, date.c_str(), sizeof rsp.last_modified - 1) == 0);
    FUZZ_CHECK(memchr(rsp.last_modified, '\0', sizeof rsp.last_modified) != nullptr);
    return 0;
}
