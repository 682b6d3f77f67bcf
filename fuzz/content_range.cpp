// parse_content_range, alone and as the head parser's Content-Range field.
#include <string.h>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string value = fuzz::text(data, size);
    constexpr int32_t kUnset = 0x5a5a5a5a;
    int32_t first = kUnset, last = kUnset, length = kUnset;
    int rc = parse_content_range(value.c_str(), &first, &last, &length);
    FUZZ_CHECK(rc == 0 || rc == 1);
    if (rc == 1) {
        FUZZ_CHECK(length != kUnset);
        // Positions come together or not at all (the unsatisfiable form).
        FUZZ_CHECK((first == kUnset) == (last == kUnset));
    } else {
        FUZZ_CHECK(last == kUnset && length == kUnset);
    }

    // The field parser refuses exactly what parse_content_range refuses.
    http_rsp rsp = {};
    int field = http_parse_rsp_head(&rsp, nullptr, "Content-Range", value.c_str());
    FUZZ_CHECK(field == (rc == 1 ? 0 : HTTP_UTIL_ERR_RSP_FORMAT));
    if (rc == 1) {
        FUZZ_CHECK(rsp.file_len == length);
        if (first != kUnset) FUZZ_CHECK(rsp.range_start == first && rsp.range_end == last);
    }
    return 0;
}
