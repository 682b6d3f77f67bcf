// The optional device services are weak references: present in one test
// binary, absent (null) in the other, and the library can tell which.
#include <gtest/gtest.h>

#include "platform/device.h"

namespace {

TEST(PlatformBoundary, OptionalServicesAreResolvedOnlyWhereProvided) {
#ifdef FAKE_OPTIONAL_SERVICES
    const bool expected = true;
#else
    const bool expected = false;
#endif
    EXPECT_EQ(&dns_domain_to_ip_block_oob != nullptr, expected);
    EXPECT_EQ(&hostname_verify != nullptr, expected);
    EXPECT_EQ(&lsm_vrf_name2index != nullptr, expected);
}

}  // namespace
