// The device services for the fuzz targets: silent, answering at once. With no resolver and no
// host-name check (their weak references stay null), a host name is refused before any look-up.
#include <stdarg.h>
#include <stdio.h>
#include "http_util.h"
#include "platform/device.h"

extern "C" {
// Log records that nobody reads would only slow the runs down.
int LLVMFuzzerInitialize(int *, char ***) { return g_http_opt.debug = 0, g_http_util_zlog_level = 0, 0; }
int at_snprintf(char *buf, size_t size, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    const int n = vsnprintf(buf, size, format, ap);
    return va_end(ap), n;
}
void *qz_zlog_init(const char *) { return nullptr; }
void qzdf_zlog(void *, const char *, size_t, const char *, size_t, long, int, const char *, ...) {}
int printk_syslog_ext(int, const char *, const char *, int, const char *, ...) { return 0; }
int lsm_if_get_index_by_name(const char *) { return 0; }
int lsm_if_get_vrf(int) { return -1; }
time_t qz_time_get(int) { return 1000000000; }
int cli_printf(const char *, ...) { return 0; }
void cli_flush(void) {}
int cli_getc_no_block(void) { return -1; }
}
