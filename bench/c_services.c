/* Device services in plain C for the benchmark's second host program: what
 * a device program brings along in its own firmware, without the C++
 * runtime that the host emulation library (libhttp_util_host.so) needs for
 * its resolver thread. Platform log off, system log through syslog(3), no
 * resolver (address literals only), the terminal on standard output. */
#define _GNU_SOURCE
#include <net/if.h>
#include <stdarg.h>
#include <stdio.h>
#include <syslog.h>
#include <time.h>

void *qz_zlog_init(const char *category) {
    (void)category;
    return NULL; /* no platform log */
}

void qzdf_zlog(void *category, const char *file, size_t filelen, const char *func,
               size_t funclen, long line, int level, const char *format, ...) {
    (void)category, (void)file, (void)filelen, (void)func, (void)funclen, (void)line,
        (void)level, (void)format;
}

int printk_syslog_ext(int priority, const char *module, const char *level, int flag,
                      const char *format, ...) {
    (void)module, (void)level, (void)flag;
    va_list ap;
    va_start(ap, format);
    vsyslog(priority, format, ap);
    va_end(ap);
    return 0;
}

int at_snprintf(char *buf, size_t size, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(buf, size, format, ap);
    va_end(ap);
    return n;
}

int lsm_if_get_index_by_name(const char *name) { return (int)if_nametoindex(name); }

int lsm_if_get_vrf(int ifindex) {
    (void)ifindex;
    return -1; /* no VRFs here */
}

time_t qz_time_get(int which) {
    (void)which;
    return time(NULL);
}

int cli_printf(const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    int n = vprintf(format, ap);
    va_end(ap);
    return n;
}

void cli_flush(void) { (void)fflush(stdout); }

int cli_getc_no_block(void) { return -1; }
