// http_getline: the line before the first LF (and the CR before it, if
// any) into a bounded buffer.
#include <string.h>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // The first byte sizes the destination (1 to 256), so that lines meet
    // the limit from both sides; the rest is the text.
    const int dst_size = static_cast<int>(fuzz::take(data, size, 1)) + 1;
    const std::string text = fuzz::text(data, size);
    // Exactly dst_size bytes on the heap: a byte past the end is a finding.
    auto *dst = static_cast<char *>(malloc(static_cast<size_t>(dst_size)));
    memset(dst, 0x5a, static_cast<size_t>(dst_size));

    const char *next = http_getline(text.c_str(), dst, dst_size);
    const char *lf = strchr(text.c_str(), '\n');
    size_t len = lf != nullptr ? static_cast<size_t>(lf - text.c_str()) : 0;
    if (len > 0 && text[len - 1] == '\r') --len;
    if (lf == nullptr || (len != 0 && len >= static_cast<size_t>(dst_size))) {
        FUZZ_CHECK(next == nullptr);
        // A refused line leaves the destination as it was.
        for (int i = 0; i < dst_size; ++i) FUZZ_CHECK(dst[i] == 0x5a);
    } else {
        FUZZ_CHECK(next == lf + 1);
        FUZZ_CHECK(strlen(dst) == len && memcmp(dst, text.c_str(), len) == 0);
    }
    free(dst);
    return 0;
}
