// The TLV block of the _tlv entry points: optional parameters that can grow
// without new exported functions.
#include <stdint.h>
#include <string.h>

#include "frame/log.h"
#include "http_util.h"

namespace {

constexpr size_t kHeadSize = 8;  // type and length, native 32-bit words

// Host programs build the block byte by byte, so words may be unaligned.
uint32_t word_at(const unsigned char *p) {
    uint32_t w;
    memcpy(&w, p, sizeof w);
    return w;
}

}  // namespace

extern "C" {

HTTP_UTIL_API int http_util_parse_tlv(const void *tlv, http_util_param *param) {
    if (param == nullptr) return HTTP_UTIL_ERR_PARAM;
    if (tlv == nullptr) return HTTP_UTIL_OK;
    const auto *p = static_cast<const unsigned char *>(tlv);
    for (uint32_t type = word_at(p); type != HTTP_UTIL_TLV_END; type = word_at(p)) {
        uint32_t len = word_at(p + 4);
        if (type != HTTP_UTIL_TLV_SRC_IP) {
            HTTP_LOG("unknown tlv type %d", static_cast<int>(type));
            return HTTP_UTIL_ERR_PARAM;
        }
        if (len != sizeof param->src_ip) {
            HTTP_LOG("tlv type %d wrong length %d\r\n", static_cast<int>(type),
                     static_cast<int>(len));
            return HTTP_UTIL_ERR_PARAM;
        }
        // A later element of the same type overrides an earlier one.
        param->src_ip = word_at(p + kHeadSize);
        HTTP_LOG("tlv type is HTTP_UTIL_TLV_SRC_IP, src ip = %X", param->src_ip);
        p += kHeadSize + len;
    }
    return HTTP_UTIL_OK;
}

}  // extern "C"
