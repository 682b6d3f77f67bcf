// http_tag_cmp: the tolerant comparison of names and keywords.
#include <ctype.h>
#include <string.h>

#include "fuzz_support.h"

namespace {

std::string fold(std::string s, int (*to)(int)) {
    for (char &c : s)
        if (isalpha(static_cast<unsigned char>(c)) && static_cast<unsigned char>(c) < 0x80)
            c = static_cast<char>(to(static_cast<unsigned char>(c)));
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // Text and pattern are separated by the first NUL byte.
    const std::string input = fuzz::text(data, size);
    const std::string text = input.c_str();
    const std::string pattern = text.size() < input.size() ? input.substr(text.size() + 1) : text;
    const std::string pat = pattern.c_str();

    int rc = http_tag_cmp(text.c_str(), pat.c_str());
    // ASCII case of the text never matters.
    FUZZ_CHECK((http_tag_cmp(fold(text, toupper).c_str(), pat.c_str()) == 0) == (rc == 0));
    FUZZ_CHECK((http_tag_cmp(fold(text, tolower).c_str(), pat.c_str()) == 0) == (rc == 0));
    // Every text up to its first quote matches itself, in either case.
    const std::string unquoted = text.substr(0, text.find('"'));
    FUZZ_CHECK(http_tag_cmp(text.c_str(), unquoted.c_str()) == 0);
    FUZZ_CHECK(http_tag_cmp(fold(unquoted, tolower).c_str(), fold(unquoted, toupper).c_str()) == 0);
    return 0;
}
