// Recording fakes of the services a device may lack; the binary that runs
// the OptionalServices suites without them leaves this file out.
#include <string.h>

#include "fake_device.h"

extern "C" {

int dns_domain_to_ip_block_oob(const char *host, int, void *result, dns_time_limit *, int is_mgmt) {
    auto &d = fake::device();
    d.resolver_calls.push_back({is_mgmt});
    if (!d.dns.count(host)) return -1;
    memset(result, 0, DNS_RESULT_SIZE);
    memcpy(result, &d.dns[host], sizeof d.dns[host]);
    return 0;
}
int hostname_verify(const char *host) {
    fake::device().hostname_checks.push_back(host);
    return fake::device().hostname_ok;
}
int lsm_vrf_name2index(const char *name) {
    fake::device().vrf_name_calls.push_back(name);
    return fake::device().mgmt_vrf_index;
}

}  // extern "C"
