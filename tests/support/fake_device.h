// Recording fakes of the device services. Every call is recorded; answers
// are scripted through the fields below. The state is reset before every
// test by the shared test main.
#ifndef HTTP_UTIL_TESTS_FAKE_DEVICE_H
#define HTTP_UTIL_TESTS_FAKE_DEVICE_H

#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "http_util.h"
#include "platform/device.h"

namespace fake {

struct LogRecord {
    void *category;
    std::string module;  // the source-module name passed as the file
    std::string func;
    long line;
    int level;
    std::string format;
    std::string text;
};

struct SyslogRecord {
    int priority;
    std::string module;
    std::string level;
    int flag;
    std::string format;
    std::string text;
};

struct ResolverCall {
    std::string host;
    int flags;
    dns_time_limit limit;
    int is_mgmt;
};

struct Device {
    // Logging wrapper.
    int zlog_init_calls = 0;
    std::string zlog_init_name;
    void *zlog_init_result = nullptr;  // set to a non-null tag by reset()
    std::vector<LogRecord> logs;
    std::vector<SyslogRecord> syslogs;
    int snprintf_calls = 0;

    // Resolver: names answer with the address stored here; anything else fails.
    std::map<std::string, sockaddr_storage> dns;
    int dns_fail_result = -1;
    std::vector<ResolverCall> resolver_calls;
    int hostname_ok = 1;
    std::vector<std::string> hostname_checks;

    // Interfaces and VRFs.
    std::map<std::string, int> ifindex;  // unknown names give 0
    std::map<int, int> if_vrf;           // unknown indexes give -1
    int mgmt_vrf_index = 0;              // answer of lsm_vrf_name2index
    std::vector<std::string> vrf_name_calls;
    std::vector<std::string> if_index_calls;
    std::vector<int> if_vrf_calls;

    // Clock.
    time_t now = 1000000000;
    std::vector<int> time_calls;

    // Terminal.
    std::string terminal;
    int flushes = 0;
    std::deque<int> keys;  // typed keys, oldest first; -1 once empty
    // When set, asked for a key once the queue is empty (typing at the
    // moment a test chooses, e.g. once a server has the whole request).
    std::function<int()> key_source;
    int polls = 0;
};

Device &device();
void reset();

// The library's globals as they were when the process was loaded.
struct Startup {
    http_opt opt;
    uint32_t level;
    void *category;
};
const Startup &startup();

// Helpers for scripting the resolver.
sockaddr_storage ipv4(const char *dotted, uint16_t port = 0);
sockaddr_storage ipv6(const char *text, uint16_t port = 0);

// Log texts in order, optionally only those of one function.
std::vector<std::string> log_texts(const std::string &func = "");
bool logged(const std::string &text);

}  // namespace fake

#endif
