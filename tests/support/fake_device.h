// Recording fakes of the device services: every call is recorded, answers
// are scripted through the fields. The test main resets them before each test.
#ifndef HTTP_UTIL_TESTS_FAKE_DEVICE_H
#define HTTP_UTIL_TESTS_FAKE_DEVICE_H

#include <netinet/in.h>

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "http_util.h"
#include "platform/device.h"

namespace fake {

struct LogRecord {
    std::string module, func;  // module: the source-module name passed as the file
    long line;
    int level;
    std::string text;
};
struct SyslogRecord {
    int priority;
    std::string module, level;
    int flag;
    std::string format, text;
};
struct ResolverCall {
    int is_mgmt;
};

struct Device {
    void *zlog_init_result = nullptr;  // a non-null tag after reset()
    std::vector<LogRecord> logs;
    std::vector<SyslogRecord> syslogs;
    std::map<std::string, sockaddr_storage> dns;  // names not here fail
    std::vector<ResolverCall> resolver_calls;
    int hostname_ok = 1;
    std::vector<std::string> hostname_checks;
    std::map<std::string, int> ifindex;  // unknown names give 0
    std::map<int, int> if_vrf;           // unknown indexes give -1
    int mgmt_vrf_index = 0;              // lsm_vrf_name2index's answer
    std::vector<std::string> vrf_name_calls, if_index_calls;
    time_t now = 1000000000;  // the library only ever asks for the current time
    std::string terminal;     // what was printed
    std::deque<int> keys;              // typed keys, oldest first; -1 once none is left
    std::function<int()> key_source;  // asked once the queue is empty, when set
};
Device &device();
void reset();

sockaddr_storage ipv4(const char *dotted, uint16_t port = 0);
sockaddr_storage ipv6(const char *text, uint16_t port = 0);
bool logged(const std::string &text);

}  // namespace fake

#endif
