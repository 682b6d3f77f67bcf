// http_util_parse_tlv: a TLV block into the transfer parameters.
#include <string.h>

#include <vector>

#include "fuzz_support.h"

namespace {

// Room for the element the input ends in the middle of, and for the type 0
// that ends every block, which the host program must supply.
constexpr size_t kEndPadding = 16;

uint32_t word(const unsigned char *p) {
    uint32_t w;
    memcpy(&w, p, 4);
    return w;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // Exactly sized on the heap, so that a read past the block is a finding.
    auto *block = static_cast<unsigned char *>(calloc(1, size + kEndPadding));
    if (size != 0) memcpy(block, data, size);

    // What the block says, element by element.
    int want = HTTP_UTIL_OK;
    uint32_t want_ip = 0;
    for (size_t at = 0; word(block + at) != HTTP_UTIL_TLV_END; at += 12) {
        if (word(block + at) != HTTP_UTIL_TLV_SRC_IP || word(block + at + 4) != 4) {
            want = HTTP_UTIL_ERR_PARAM;
            break;
        }
        want_ip = word(block + at + 8);
    }

    http_util_param param = {};
    int rc = http_util_parse_tlv(block, &param);
    FUZZ_CHECK(rc == want);
    // Elements before a bad one are stored; nothing but src_ip is touched.
    FUZZ_CHECK(param.src_ip == want_ip);
    http_util_param expected = {};
    expected.src_ip = want_ip;
    FUZZ_CHECK(memcmp(&param, &expected, sizeof param) == 0);
    FUZZ_CHECK(http_util_parse_tlv(nullptr, &param) == HTTP_UTIL_OK && param.src_ip == want_ip);
    free(block);
    return 0;
}
