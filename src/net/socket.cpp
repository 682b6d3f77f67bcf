// The TCP connection to the server: VRF, source address, blocking connect,
// then non-blocking for the readiness waits of all later I/O.
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

#include "frame/log.h"
#include "frame/raii.h"
#include "http_util.h"

namespace {

using http_util_internal::LogName;

// The device kernel's VRF socket options, set in this order.
constexpr int kVrfOptions[] = {1002, 1004};
constexpr char kMgmtVrf[] = "___Mgmt_oob";

// Every record of the steps below names the call they make up.
constexpr LogName kCreate = {"http_util", "http_create_socket"};

// The VRF the socket goes into: an explicit one wins over the management
// choice, then the named interface's, then the management port's. False
// (logged) when the device cannot tell.
bool choose_vrf(int is_mgmt, const char *mgmt_name, int vrf, int *index) {
    *index = 0;
    if (vrf > 0) {
        *index = vrf;
    } else if (is_mgmt == 0) {
        *index = 0;
    } else if (mgmt_name != nullptr && mgmt_name[0] != '\0') {
        HTTP_LOG_AS(kCreate, "create_socket-->http_create_socket mgmt_name %s", mgmt_name);
        int ifindex = lsm_if_get_index_by_name(mgmt_name);
        if (ifindex == 0) {
            HTTP_LOG_AS(kCreate, "create_socket-->lsm_if_get_index_by_name name:%s error",
                        mgmt_name);
            return false;
        }
        *index = lsm_if_get_vrf(ifindex);
        if (*index < 0) {
            HTTP_LOG_AS(kCreate, "create_socket-->lsm_if_get_vrf ifx:%d error", ifindex);
            return false;
        }
    } else {
        if (&lsm_vrf_name2index == nullptr) {
            HTTP_LOG_AS(kCreate, "no suport lsm_vrf_name2index");
            return false;
        }
        HTTP_LOG_AS(kCreate, "lsm_vrf_name2index %p",
                    reinterpret_cast<void *>(&lsm_vrf_name2index));
        *index = lsm_vrf_name2index(kMgmtVrf);
        if (*index < 0) {
            HTTP_LOG_AS(kCreate, "lsm_vrf_name2index name:%s error:%d", kMgmtVrf, *index);
            return false;
        }
    }
    return true;
}

bool enter_vrf(int fd, bool ipv4, int index) {
    if (ipv4)
        HTTP_LOG_AS(kCreate, "set ipv4 vrf option, vrf %d", index);
    else
        HTTP_LOG_AS(kCreate, "set ipv6 vrf option, vrf %d", index);
    const int level = ipv4 ? IPPROTO_IP : IPPROTO_IPV6;
    for (int option : kVrfOptions) {
        if (setsockopt(fd, level, option, &index, sizeof index) == 0) continue;
        if (ipv4)
            HTTP_LOG_AS(kCreate, "create_socket-->set vrf option error: %s.", strerror(errno));
        else
            HTTP_LOG_AS(kCreate, "create_socket-->set ipv6 vrf option error: %s.",
                        strerror(errno));
        return false;
    }
    return true;
}

bool bind_source(int fd, uint32_t src_ip) {
    sockaddr_in local = {};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = src_ip;
    const auto *sa = reinterpret_cast<const sockaddr *>(&local);
    if (bind(fd, sa, sizeof local) != 0) {
        HTTP_LOG_AS(kCreate, "HTTP: bind source ip to socket error!, addr: %s \r\n",
                    http_sock_ntop(sa, sizeof local));
        return false;
    }
    HTTP_LOG_AS(kCreate, "HTTP: bind source ip to socket success!, addr: %s \r\n",
                http_sock_ntop(sa, sizeof local));
    return true;
}

}  // namespace

extern "C" {

HTTP_UTIL_API int http_create_socket(const struct sockaddr *addr, int addrlen, int nonblock,
                                     int is_mgmt, uint32_t src_ip, const char *mgmt_name,
                                     int vrf) {
    using http_util_internal::UniqueFd;
    UniqueFd fd(socket(addr->sa_family, SOCK_STREAM, 0));
    if (!fd) {
        HTTP_LOG("create_socket-->errno:%s", strerror(errno));
        return -1;
    }
    int vrf_index;
    if (!choose_vrf(is_mgmt, mgmt_name, vrf, &vrf_index)) return -1;
    const bool ipv4 = addr->sa_family == AF_INET;
    if (vrf_index != 0 && !enter_vrf(fd.get(), ipv4, vrf_index)) return -1;
    // Only an IPv4 connection can carry the IPv4 source address.
    if (ipv4 && src_ip != 0 && !bind_source(fd.get(), src_ip)) return -1;

    HTTP_LOG("create_socket-->ip_addr [%s], vrf %d", http_sock_ntop(addr, addrlen), vrf_index);
    if (connect(fd.get(), addr, static_cast<socklen_t>(addrlen)) != 0) {
        HTTP_LOG("create_socket-->connect errno %s", strerror(errno));
        return -1;
    }
    if (nonblock != 0) {
        int flags = fcntl(fd.get(), F_GETFL);
        if (flags == -1 || fcntl(fd.get(), F_SETFL, flags | O_NONBLOCK) == -1) {
            HTTP_LOG("create_socket-->set non-block failed: %s", strerror(errno));
            return -1;
        }
    }
    return fd.release();
}

}  // extern "C"
