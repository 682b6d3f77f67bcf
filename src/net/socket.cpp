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

// The device kernel's VRF socket options, set in this order.
constexpr int kVrfOptions[] = {1002, 1004};
constexpr char kMgmtVrf[] = "___Mgmt_oob";

}  // namespace

extern "C" {

// One function, so that every record names http_create_socket.
HTTP_UTIL_API int http_create_socket(const struct sockaddr *addr, int addrlen, int nonblock,
                                     int is_mgmt, uint32_t src_ip, const char *mgmt_name,
                                     int vrf) {
    using http_util_internal::UniqueFd;
    UniqueFd fd(socket(addr->sa_family, SOCK_STREAM, 0));
    if (!fd) {
        HTTP_LOG("create_socket-->errno:%s", strerror(errno));
        return -1;
    }

    // An explicit VRF wins over the management choice.
    int vrf_index = 0;
    if (vrf > 0) {
        vrf_index = vrf;
    } else if (is_mgmt == 0) {
        vrf_index = 0;
    } else if (mgmt_name != nullptr && mgmt_name[0] != '\0') {
        HTTP_LOG("create_socket-->http_create_socket mgmt_name %s", mgmt_name);
        int ifindex = lsm_if_get_index_by_name(mgmt_name);
        if (ifindex == 0) {
            HTTP_LOG("create_socket-->lsm_if_get_index_by_name name:%s error", mgmt_name);
            return -1;
        }
        vrf_index = lsm_if_get_vrf(ifindex);
        if (vrf_index < 0) {
            HTTP_LOG("create_socket-->lsm_if_get_vrf ifx:%d error", ifindex);
            return -1;
        }
    } else {
        if (&lsm_vrf_name2index == nullptr) {
            HTTP_LOG("no suport lsm_vrf_name2index");
            return -1;
        }
        HTTP_LOG("lsm_vrf_name2index %p", reinterpret_cast<void *>(&lsm_vrf_name2index));
        vrf_index = lsm_vrf_name2index(kMgmtVrf);
        if (vrf_index < 0) {
            HTTP_LOG("lsm_vrf_name2index name:%s error:%d", kMgmtVrf, vrf_index);
            return -1;
        }
    }

    const bool ipv4 = addr->sa_family == AF_INET;
    if (vrf_index != 0) {
        if (ipv4)
            HTTP_LOG("set ipv4 vrf option, vrf %d", vrf_index);
        else
            HTTP_LOG("set ipv6 vrf option, vrf %d", vrf_index);
        const int level = ipv4 ? IPPROTO_IP : IPPROTO_IPV6;
        for (int option : kVrfOptions) {
            if (setsockopt(fd.get(), level, option, &vrf_index, sizeof vrf_index) == 0) continue;
            if (ipv4)
                HTTP_LOG("create_socket-->set vrf option error: %s.", strerror(errno));
            else
                HTTP_LOG("create_socket-->set ipv6 vrf option error: %s.", strerror(errno));
            return -1;
        }
    }

    // Only an IPv4 connection can carry the IPv4 source address.
    if (ipv4 && src_ip != 0) {
        sockaddr_in local = {};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = src_ip;
        const auto *sa = reinterpret_cast<const sockaddr *>(&local);
        if (bind(fd.get(), sa, sizeof local) != 0) {
            HTTP_LOG("HTTP: bind source ip to socket error!, addr: %s \r\n",
                     http_sock_ntop(sa, sizeof local));
            return -1;
        }
        HTTP_LOG("HTTP: bind source ip to socket success!, addr: %s \r\n",
                 http_sock_ntop(sa, sizeof local));
    }

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
