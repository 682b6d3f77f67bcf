// http_atotm: an HTTP date as Unix time, with the caller's LC_TIME kept.
#include <locale.h>
#include <string.h>

#include "fuzz_support.h"

namespace {
// Not "C" where the system has it: a locale that the date parser has to
// switch away from and back. Set once, before the fuzzer starts.
const char *const kCallerLocale = [] {
    return setlocale(LC_TIME, "C.UTF-8") != nullptr ? "C.UTF-8" : "C";
}();
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string date = fuzz::text(data, size);
    time_t t = http_atotm(date.c_str());
    FUZZ_CHECK(strcmp(setlocale(LC_TIME, nullptr), kCallerLocale) == 0);
    FUZZ_CHECK(t == http_atotm(date.c_str()));

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
