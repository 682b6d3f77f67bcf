// http_parse_resp_status: the status code of a status line.
#include <string.h>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string line = fuzz::text(data, size);
    http_rsp rsp;
    memset(&rsp, 0xa5, sizeof rsp);
    const int32_t untouched = rsp.status;
    int rc = http_parse_resp_status(&rsp, line.c_str());
    FUZZ_CHECK(rc == 0 || rc == -1);
    // Only the status field is the function's to write.
    for (size_t i = sizeof rsp.status; i < sizeof rsp; ++i)
        FUZZ_CHECK(reinterpret_cast<const unsigned char *>(&rsp)[i] == 0xa5);
    if (rc == 0 || rsp.status != untouched) {
        // A stored code is three digits of the line, after "HTTP".
        FUZZ_CHECK(strncmp(line.c_str(), "HTTP", 4) == 0);
        FUZZ_CHECK(rsp.status >= 0 && rsp.status <= 999);
        char digits[4];
        snprintf(digits, sizeof digits, "%03d", static_cast<int>(rsp.status));
        FUZZ_CHECK(strstr(line.c_str() + 4, digits) != nullptr);
    }
    return 0;
}
