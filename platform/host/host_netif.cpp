// Interface and VRF service on the host, over the Linux interface table.
// A VRF's index is the index of its Linux VRF device.
#include <limits.h>
#include <net/if.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "platform/device.h"

namespace {

bool is_vrf_device(const char *name) {
    char path[PATH_MAX];
    // A name too long for the path is no interface at all.
    int n = snprintf(path, sizeof path, "/sys/class/net/%s/uevent", name);
    if (n < 0 || static_cast<size_t>(n) >= sizeof path) return false;
    FILE *f = fopen(path, "re");
    if (f == nullptr) return false;
    char line[256];
    bool vrf = false;
    while (fgets(line, sizeof line, f) != nullptr)
        if (strcmp(line, "DEVTYPE=vrf\n") == 0) vrf = true;
    fclose(f);
    return vrf;
}

}  // namespace

extern "C" {

int lsm_vrf_name2index(const char *name) {
    if (name == nullptr || !is_vrf_device(name)) return -1;
    unsigned idx = if_nametoindex(name);
    return idx == 0 ? -1 : static_cast<int>(idx);
}

int lsm_if_get_index_by_name(const char *name) {
    if (name == nullptr) return 0;
    return static_cast<int>(if_nametoindex(name));
}

// 0 for an interface in the default domain, the VRF device's index for an
// enslaved one, -1 for an unknown index.
int lsm_if_get_vrf(int ifindex) {
    char name[IF_NAMESIZE];
    if (ifindex <= 0 || if_indextoname(static_cast<unsigned>(ifindex), name) == nullptr) return -1;
    char path[PATH_MAX];
    char target[PATH_MAX];
    snprintf(path, sizeof path, "/sys/class/net/%s/master", name);
    ssize_t n = readlink(path, target, sizeof target - 1);
    if (n <= 0) return 0;
    target[n] = '\0';
    const char *master = strrchr(target, '/');
    master = master != nullptr ? master + 1 : target;
    if (!is_vrf_device(master)) return 0;
    return static_cast<int>(if_nametoindex(master));
}

}  // extern "C"
