/* Prints the data widths of the build's target and the sizes of the public
 * records. On 32-bit ARM, the device's architecture, pointers and time_t
 * must be 4 bytes: the records were laid out for that (the header's layout
 * checks have already held for this program to compile). */
#include <stdio.h>
#include <time.h>

#include "http_util.h"

int main(void) {
    int ok = 1;
    printf("sizeof(void *) = %u, sizeof(time_t) = %u, sizeof(long) = %u\n",
           (unsigned)sizeof(void *), (unsigned)sizeof(time_t), (unsigned)sizeof(long));
    printf("http_opt %u, http_util_param %u, http_rsp %u, http_util %u, http_progress %u, "
           "http_progress_ref %u, http_url_param %u\n",
           (unsigned)sizeof(http_opt), (unsigned)sizeof(http_util_param),
           (unsigned)sizeof(http_rsp), (unsigned)sizeof(http_util),
           (unsigned)sizeof(http_progress), (unsigned)sizeof(http_progress_ref),
           (unsigned)sizeof(http_url_param));
#if defined(__arm__)
    if (sizeof(void *) != 4 || sizeof(time_t) != 4) {
        fprintf(stderr, "FAILED: the device has 32-bit pointers and time_t\n");
        ok = 0;
    }
#endif
    return ok ? 0 : 1;
}
