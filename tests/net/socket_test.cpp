// Socket creation: the VRF choice and its options, the source address,
// the connect, the non-blocking switch, and no descriptor left behind.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <string.h>
#include <unistd.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "interpose.h"
#include "net_test_util.h"
#include "scripted_server.h"

namespace {

using nettest::open_fds;

constexpr const char *kFunc = "http_create_socket";

// A plain loopback listener: the connect completes in its backlog, and
// accept() shows the peer address the server sees.
struct Listener {
    int fd = -1;
    sockaddr_storage addr{};
    explicit Listener(int family = AF_INET) {
        fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        addr = family == AF_INET ? fake::ipv4("127.0.0.1") : fake::ipv6("::1");
        socklen_t len = sizeof addr;
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&addr), len), 0);
        EXPECT_EQ(listen(fd, 4), 0);
        EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &len), 0);
    }
    ~Listener() { close(fd); }
    std::string peer() const {
        int conn = accept(fd, nullptr, nullptr);
        sockaddr_storage ss{};
        socklen_t len = sizeof ss;
        getpeername(conn, reinterpret_cast<sockaddr *>(&ss), &len);
        close(conn);
        char text[INET6_ADDRSTRLEN] = {};
        const void *a = ss.ss_family == AF_INET
                            ? static_cast<const void *>(&reinterpret_cast<sockaddr_in *>(&ss)->sin_addr)
                            : &reinterpret_cast<sockaddr_in6 *>(&ss)->sin6_addr;
        inet_ntop(ss.ss_family, a, text, sizeof text);
        return text;
    }
};

sockaddr_storage refused_address() { return fake::ipv4("127.0.0.1", scripted::unused_port()); }

struct Call {
    const sockaddr_storage *addr;
    int nonblock = 1;
    int is_mgmt = 0;
    uint32_t src_ip = 0;
    const char *mgmt_name = "";
    int vrf = 0;
    int run() const {
        return http_create_socket(reinterpret_cast<const sockaddr *>(addr), sizeof *addr, nonblock,
                                  is_mgmt, src_ip, mgmt_name, vrf);
    }
};

std::string address_log(const sockaddr_storage &a, int vrf) {
    return std::string("create_socket-->ip_addr [") +
           http_sock_ntop(reinterpret_cast<const sockaddr *>(&a), sizeof a) + "], vrf " +
           std::to_string(vrf);
}

struct Opt {
    int level, name, value;
    bool operator==(const Opt &o) const {
        return level == o.level && name == o.name && value == o.value;
    }
};

std::ostream &operator<<(std::ostream &os, const Opt &o) {
    return os << "{level " << o.level << ", option " << o.name << ", value " << o.value << "}";
}

// The VRF options set so far, in order.
std::vector<Opt> vrf_options() {
    std::vector<Opt> out;
    for (const auto &c : interpose::sockopt_calls())
        if (c.name == 1002 || c.name == 1004) out.push_back({c.level, c.name, c.value});
    return out;
}

const std::string kRefusedV4 = std::string("create_socket-->set vrf option error: ") +
                               strerror(ENOPROTOOPT) + ".";
const std::string kRefusedV6 = std::string("create_socket-->set ipv6 vrf option error: ") +
                               strerror(ENOPROTOOPT) + ".";


TEST(Socket, ConnectsAndSwitchesToNonBlockingOnlyWhenAsked) {
    for (int nonblock : {0, 1}) {
        fake::device().logs.clear();
        Listener l;
        Call c{&l.addr};
        c.nonblock = nonblock;
        int fd = c.run();
        ASSERT_GE(fd, 0);
        EXPECT_EQ((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0, nonblock == 1);
        EXPECT_EQ(fake::log_texts(kFunc), std::vector<std::string>{address_log(l.addr, 0)});
        close(fd);
    }
    EXPECT_TRUE(vrf_options().empty());
}

TEST(Socket, RefusedConnectionLeavesNoDescriptor) {
    sockaddr_storage a = refused_address();
    int before = open_fds();
    EXPECT_EQ(Call{&a}.run(), -1);
    EXPECT_EQ(open_fds(), before);
    EXPECT_EQ(fake::log_texts(kFunc),
              (std::vector<std::string>{address_log(a, 0),
                                        "create_socket-->connect errno Connection refused"}));
}

TEST(Socket, UnknownFamilyFailsAtTheSocket) {
    sockaddr_storage a{};
    a.ss_family = 255;
    EXPECT_EQ(Call{&a}.run(), -1);
    EXPECT_EQ(fake::log_texts(kFunc),
              std::vector<std::string>{std::string("create_socket-->errno:") + strerror(EAFNOSUPPORT)});
}

// Only an IPv4 connection carries the source address.
TEST(Socket, SourceAddressIsWhatTheServerSees) {
    const std::string bound = "HTTP: bind source ip to socket success!, addr: 127.0.0.2 \r\n";
    for (int family : {AF_INET, AF_INET6}) {
        fake::device().logs.clear();
        Listener l(family);
        Call c{&l.addr};
        c.src_ip = inet_addr("127.0.0.2");
        int fd = c.run();
        ASSERT_GE(fd, 0);
        EXPECT_EQ(l.peer(), family == AF_INET ? "127.0.0.2" : "::1");
        close(fd);
        std::vector<std::string> logs = {address_log(l.addr, 0)};
        if (family == AF_INET) logs.insert(logs.begin(), bound);
        EXPECT_EQ(fake::log_texts(kFunc), logs) << "family " << family;
    }
}

TEST(Socket, FailedSourceBindLeavesNoDescriptor) {
    sockaddr_storage a = refused_address();
    Call c{&a};
    c.src_ip = inet_addr("127.0.0.2");
    interpose::fail_bind_errno = EADDRNOTAVAIL;
    int before = open_fds();
    EXPECT_EQ(c.run(), -1);
    EXPECT_EQ(open_fds(), before);
    EXPECT_EQ(fake::log_texts(kFunc),
              std::vector<std::string>{"HTTP: bind source ip to socket error!, addr: 127.0.0.2 \r\n"});
}

// ---- the VRF choice ----

struct VrfCase {
    const char *name;
    int family;
    int vrf;
    int is_mgmt;
    const char *mgmt_name;
    std::set<int> pretend_ok;   // options the "kernel" takes
    bool connects;
    std::vector<Opt> options;
    std::vector<std::string> logs;  // without the address record of a connect
};

void run_vrf_cases(const std::vector<VrfCase> &cases) {
    for (const auto &c : cases) {
        auto &d = fake::device();
        d.logs.clear();
        d.if_index_calls.clear();
        d.if_vrf_calls.clear();
        d.ifindex = {{"mgmt0", 4}, {"mgmt1", 5}, {"mgmt2", 6}};
        d.if_vrf = {{5, 9}, {6, 0}};
        interpose::reset();
        interpose::sockopt_pretend_ok = c.pretend_ok;
        Listener l(c.family);
        int before = open_fds();
        Call call{&l.addr};
        call.vrf = c.vrf;
        call.is_mgmt = c.is_mgmt;
        call.mgmt_name = c.mgmt_name;
        int fd = call.run();
        EXPECT_EQ(fd >= 0, c.connects) << c.name;
        if (fd >= 0) close(fd);
        EXPECT_EQ(open_fds(), before) << c.name;
        EXPECT_EQ(vrf_options(), c.options) << c.name;
        auto logs = c.logs;
        if (c.connects) logs.push_back(address_log(l.addr, c.options.empty() ? 0 : c.options[0].value));
        EXPECT_EQ(fake::log_texts(kFunc), logs) << c.name;
        if (c.vrf > 0 || c.is_mgmt == 0) {
            EXPECT_TRUE(d.if_index_calls.empty()) << c.name << ": interface looked up";
            EXPECT_TRUE(d.if_vrf_calls.empty()) << c.name << ": interface VRF looked up";
        }
    }
}

TEST(Socket, VrfChoiceReachesTheKernelOptions) {
    const std::set<int> both = {1002, 1004};
    run_vrf_cases({
        {"explicit VRF wins over management", AF_INET, 7, 1, "mgmt0", {}, false, {{0, 1002, 7}},
         {"set ipv4 vrf option, vrf 7", kRefusedV4}},
        {"explicit VRF, IPv6", AF_INET6, 7, 0, "", {}, false, {{41, 1002, 7}},
         {"set ipv6 vrf option, vrf 7", kRefusedV6}},
        {"both options taken", AF_INET, 7, 0, "", both, true, {{0, 1002, 7}, {0, 1004, 7}},
         {"set ipv4 vrf option, vrf 7"}},
        {"both options taken, IPv6", AF_INET6, 7, 0, "", both, true, {{41, 1002, 7}, {41, 1004, 7}},
         {"set ipv6 vrf option, vrf 7"}},
        {"second option refused", AF_INET, 7, 0, "", {1002}, false, {{0, 1002, 7}, {0, 1004, 7}},
         {"set ipv4 vrf option, vrf 7", kRefusedV4}},
        {"no VRF", AF_INET, 0, 0, "mgmt1", {}, true, {}, {}},
        {"unknown management interface", AF_INET, 0, 1, "ghost", {}, false, {},
         {"create_socket-->http_create_socket mgmt_name ghost",
          "create_socket-->lsm_if_get_index_by_name name:ghost error"}},
        {"interface without a VRF", AF_INET, 0, 1, "mgmt0", {}, false, {},
         {"create_socket-->http_create_socket mgmt_name mgmt0",
          "create_socket-->lsm_if_get_vrf ifx:4 error"}},
        {"interface VRF", AF_INET, 0, 1, "mgmt1", {}, false, {{0, 1002, 9}},
         {"create_socket-->http_create_socket mgmt_name mgmt1", "set ipv4 vrf option, vrf 9",
          kRefusedV4}},
        {"interface in VRF 0", AF_INET, 0, 1, "mgmt2", {}, true, {},
         {"create_socket-->http_create_socket mgmt_name mgmt2"}},
    });
    EXPECT_TRUE(fake::device().vrf_name_calls.empty()) << "management VRF looked up";
}

#ifdef FAKE_OPTIONAL_SERVICES

TEST(Socket, ManagementVrfByName) {
    char entry[64];
    snprintf(entry, sizeof entry, "lsm_vrf_name2index %p",
             reinterpret_cast<void *>(&lsm_vrf_name2index));
    struct Answer {
        int index;
        VrfCase expect;
    };
    for (const Answer &a : std::vector<Answer>{
             {3, {"management VRF", AF_INET, 0, 1, "", {}, false, {{0, 1002, 3}},
                  {entry, "set ipv4 vrf option, vrf 3", kRefusedV4}}},
             {0, {"management VRF 0 sets no option", AF_INET, 0, 1, "", {}, true, {}, {entry}}},
             {-5, {"management VRF unknown", AF_INET, 0, 1, "", {}, false, {},
                   {entry, "lsm_vrf_name2index name:___Mgmt_oob error:-5"}}},
         }) {
        fake::device().vrf_name_calls.clear();
        fake::device().mgmt_vrf_index = a.index;
        run_vrf_cases({a.expect});
        EXPECT_EQ(fake::device().vrf_name_calls, std::vector<std::string>{"___Mgmt_oob"});
    }
}

#else

TEST(Socket, ManagementVrfNeedsTheVrfService) {
    run_vrf_cases({{"no lsm_vrf_name2index", AF_INET, 0, 1, "", {}, false, {},
                    {"no suport lsm_vrf_name2index"}}});
}

#endif

}  // namespace
