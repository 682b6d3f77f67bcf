// Recording fakes of the device services that every device has.
#include "fake_device.h"

#include <arpa/inet.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace fake {

namespace {
int zlog_tag;

std::string vformat(const char *format, va_list ap) {
    va_list copy;
    va_copy(copy, ap);
    int n = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string out(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0) vsnprintf(&out[0], out.size() + 1, format, ap);
    return out;
}
}  // namespace

Device &device() {
    static Device d;
    return d;
}

void reset() {
    device() = Device();
    device().zlog_init_result = &zlog_tag;
}

sockaddr_storage ipv4(const char *dotted, uint16_t port) {
    sockaddr_storage ss{};
    auto *sin = reinterpret_cast<sockaddr_in *>(&ss);
    sin->sin_family = AF_INET;
    sin->sin_port = htons(port);
    inet_pton(AF_INET, dotted, &sin->sin_addr);
    return ss;
}

sockaddr_storage ipv6(const char *text, uint16_t port) {
    sockaddr_storage ss{};
    auto *sin6 = reinterpret_cast<sockaddr_in6 *>(&ss);
    sin6->sin6_family = AF_INET6;
    sin6->sin6_port = htons(port);
    inet_pton(AF_INET6, text, &sin6->sin6_addr);
    return ss;
}

std::vector<std::string> log_texts(const std::string &func) {
    std::vector<std::string> out;
    for (const auto &r : device().logs)
        if (func.empty() || r.func == func) out.push_back(r.text);
    return out;
}

bool logged(const std::string &text) {
    for (const auto &r : device().logs)
        if (r.text == text) return true;
    return false;
}

}  // namespace fake

extern "C" {

void *qz_zlog_init(const char *category) {
    auto &d = fake::device();
    d.zlog_init_calls++;
    d.zlog_init_name = category != nullptr ? category : "";
    return d.zlog_init_result;
}

void qzdf_zlog(void *category, const char *file, size_t filelen, const char *func,
               size_t funclen, long line, int level, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    fake::LogRecord r{category, std::string(file, filelen), std::string(func, funclen), line,
                      level, format, fake::vformat(format, ap)};
    va_end(ap);
    fake::device().logs.push_back(std::move(r));
}

int printk_syslog_ext(int priority, const char *module, const char *level, int flag,
                      const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    fake::device().syslogs.push_back(
        fake::SyslogRecord{priority, module, level, flag, format, fake::vformat(format, ap)});
    va_end(ap);
    return 0;
}

int at_snprintf(char *buf, size_t size, const char *format, ...) {
    fake::device().snprintf_calls++;
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(buf, size, format, ap);
    va_end(ap);
    return n;
}

int lsm_if_get_index_by_name(const char *name) {
    auto &d = fake::device();
    d.if_index_calls.push_back(name);
    auto it = d.ifindex.find(name);
    return it == d.ifindex.end() ? 0 : it->second;
}

int lsm_if_get_vrf(int ifindex) {
    auto &d = fake::device();
    d.if_vrf_calls.push_back(ifindex);
    auto it = d.if_vrf.find(ifindex);
    return it == d.if_vrf.end() ? -1 : it->second;
}

time_t qz_time_get(int which) {
    fake::device().time_calls.push_back(which);
    return fake::device().now;
}

int cli_printf(const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string s = fake::vformat(format, ap);
    va_end(ap);
    fake::device().terminal += s;
    return static_cast<int>(s.size());
}

void cli_flush(void) { fake::device().flushes++; }

int cli_getc_no_block(void) {
    auto &d = fake::device();
    d.polls++;
    if (d.keys.empty()) return d.key_source ? d.key_source() : -1;
    int c = d.keys.front();
    d.keys.pop_front();
    return c;
}

}  // extern "C"
