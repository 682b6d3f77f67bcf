// The TLV block: the walk to the end element, the last element winning,
// and the two refusals.
#include <arpa/inet.h>
#include <string.h>

#include <string>
#include <vector>

#include "net_test_util.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Appends one element: native type and length words, then the value.
Bytes &element(Bytes &b, uint32_t type, uint32_t len, const void *value = nullptr) {
    const auto *t = reinterpret_cast<const unsigned char *>(&type);
    const auto *l = reinterpret_cast<const unsigned char *>(&len);
    b.insert(b.end(), t, t + 4);
    b.insert(b.end(), l, l + 4);
    if (value != nullptr) {
        const auto *v = static_cast<const unsigned char *>(value);
        b.insert(b.end(), v, v + len);
    } else {
        b.insert(b.end(), len, 0xEE);
    }
    return b;
}

uint32_t addr(const char *dotted) { return inet_addr(dotted); }

struct TlvCase {
    const char *name;
    Bytes block;
    int result;
    uint32_t src_ip;
    std::vector<std::string> logs;
};

Bytes block_of(std::initializer_list<std::pair<uint32_t, uint32_t>> heads, uint32_t value) {
    Bytes b;
    for (auto h : heads) element(b, h.first, h.second, h.second == 4 ? &value : nullptr);
    return element(b, 0, 0);
}

std::string src_log(const char *dotted) {
    char text[64];
    snprintf(text, sizeof text, "tlv type is HTTP_UTIL_TLV_SRC_IP, src ip = %X", addr(dotted));
    return text;
}


TEST(Tlv, BlocksAndTheirResults) {
    uint32_t a = addr("127.0.0.2"), b = addr("127.0.0.3");
    Bytes two;
    element(two, 1, 4, &a);
    element(two, 1, 4, &b);
    element(two, 0, 0);
    Bytes good_then_bad;
    element(good_then_bad, 1, 4, &a);
    element(good_then_bad, 7, 4, &b);
    element(good_then_bad, 0, 0);
    Bytes end_with_garbage_after = block_of({{1, 4}}, a);
    end_with_garbage_after.insert(end_with_garbage_after.end(), {9, 9, 9, 9});

    const TlvCase cases[] = {
        {"end element first", block_of({}, 0), 0, 0, {}},
        {"one address", block_of({{1, 4}}, a), 0, a, {src_log("127.0.0.2")}},
        {"the end element's length is not read", end_with_garbage_after, 0, a,
         {src_log("127.0.0.2")}},
        {"address of 8 bytes", block_of({{1, 8}}, a), 2, 0, {"tlv type 1 wrong length 8\r\n"}},
        {"unknown type", block_of({{2, 4}}, a), 2, 0, {"unknown tlv type 2"}},
        {"the last of two wins", two, 0, b, {src_log("127.0.0.2"), src_log("127.0.0.3")}},
        {"stored before a bad element", good_then_bad, 2, a,
         {src_log("127.0.0.2"), "unknown tlv type 7"}},
    };
    for (const auto &c : cases) {
        fake::device().logs.clear();
        http_util_param param = {};
        EXPECT_EQ(http_util_parse_tlv(c.block.data(), &param), c.result) << c.name;
        EXPECT_EQ(param.src_ip, c.src_ip) << c.name;
        EXPECT_EQ(fake::log_texts("http_util_parse_tlv"), c.logs) << c.name;
    }
}

TEST(Tlv, NullBlockStoresNothing) {
    http_util_param param = {};
    EXPECT_EQ(http_util_parse_tlv(nullptr, &param), 0);
    EXPECT_EQ(param.src_ip, 0u);
    EXPECT_TRUE(fake::device().logs.empty());
}

TEST(Tlv, UnalignedBlockIsRead) {
    uint32_t a = addr("127.0.0.2");
    Bytes b = {0};
    element(b, 1, 4, &a);
    element(b, 0, 0);
    http_util_param param = {};
    EXPECT_EQ(http_util_parse_tlv(b.data() + 1, &param), 0);
    EXPECT_EQ(param.src_ip, a);
}

}  // namespace
