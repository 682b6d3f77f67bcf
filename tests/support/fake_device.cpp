// Recording fakes of the device services that every device has.
#include "fake_device.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <stdarg.h>

namespace fake {
namespace {
int zlog_tag;

sockaddr_storage address(int family, const char *text, uint16_t port) {
    sockaddr_storage ss{};
    auto *sin = reinterpret_cast<sockaddr_in *>(&ss);
    auto *sin6 = reinterpret_cast<sockaddr_in6 *>(&ss);
    ss.ss_family = static_cast<sa_family_t>(family);
    sin->sin_port = htons(port);  // where sin6_port sits too
    inet_pton(family, text, family == AF_INET ? static_cast<void *>(&sin->sin_addr) : &sin6->sin6_addr);
    return ss;
}
}  // namespace

std::string vformat(const char *format, va_list ap) {
    va_list copy;
    va_copy(copy, ap);
    std::string out(static_cast<size_t>(std::max(vsnprintf(nullptr, 0, format, copy), 0)), '\0');
    va_end(copy);
    vsnprintf(&out[0], out.size() + 1, format, ap);
    return out;
}

Device &device() {
    static Device d;
    return d;
}
void reset() {
    device() = Device();
    device().zlog_init_result = &zlog_tag;
}

sockaddr_storage ipv4(const char *text, uint16_t port) { return address(AF_INET, text, port); }
sockaddr_storage ipv6(const char *text, uint16_t port) { return address(AF_INET6, text, port); }

bool logged(const std::string &text) {
    for (const auto &r : device().logs)
        if (r.text == text) return true;
    return false;
}

}  // namespace fake

// Declares text: the formatted arguments after last.
#define FORMATTED(last)                           \
    va_list ap;                                   \
    va_start(ap, last);                           \
    std::string text = fake::vformat(format, ap); \
    va_end(ap)

extern "C" {

void *qz_zlog_init(const char *) { return fake::device().zlog_init_result; }
void qzdf_zlog(void *, const char *file, size_t filelen, const char *func, size_t funclen, long line,
               int level, const char *format, ...) {
    FORMATTED(format);
    fake::device().logs.push_back({{file, filelen}, {func, funclen}, line, level, text});
}
int printk_syslog_ext(int priority, const char *module, const char *level, int flag, const char *format, ...) {
    FORMATTED(format);
    fake::device().syslogs.push_back({priority, module, level, flag, format, text});
    return 0;
}
int at_snprintf(char *buf, size_t size, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(buf, size, format, ap);
    va_end(ap);
    return n;
}
int lsm_if_get_index_by_name(const char *name) {
    fake::device().if_index_calls.push_back(name);
    return fake::device().ifindex.count(name) ? fake::device().ifindex[name] : 0;
}
int lsm_if_get_vrf(int ifindex) {
    return fake::device().if_vrf.count(ifindex) ? fake::device().if_vrf[ifindex] : -1;
}
time_t qz_time_get(int which) {
    EXPECT_EQ(which, 2) << "not the current time";
    return fake::device().now;
}
int cli_printf(const char *format, ...) {
    FORMATTED(format);
    fake::device().terminal += text;
    return static_cast<int>(text.size());
}
void cli_flush(void) {}
int cli_getc_no_block(void) {
    auto &d = fake::device();
    if (d.keys.empty()) return d.key_source ? d.key_source() : -1;
    int c = d.keys.front();
    d.keys.pop_front();
    return c;
}

}  // extern "C"
