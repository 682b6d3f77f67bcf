// The device services the library calls, and nothing else. On the device
// they come from its own libraries; on a stock Linux host from
// platform/host/; in tests from the recording fakes of tests/support/.
// Services a device may lack are weak: test the address before calling.
#ifndef HTTP_UTIL_PLATFORM_DEVICE_H
#define HTTP_UTIL_PLATFORM_DEVICE_H

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HTTP_UTIL_PRINTF(fmt_idx, arg_idx) __attribute__((format(printf, fmt_idx, arg_idx)))

// Logging wrapper over the zlog library.
void *qz_zlog_init(const char *category);  // NULL on failure
void qzdf_zlog(void *category, const char *file, size_t filelen, const char *func,
               size_t funclen, long line, int level, const char *format, ...)
    HTTP_UTIL_PRINTF(8, 9);
int printk_syslog_ext(int priority, const char *module, const char *level, int flag,
                      const char *format, ...) HTTP_UTIL_PRINTF(5, 6);
int at_snprintf(char *buf, size_t size, const char *format, ...) HTTP_UTIL_PRINTF(3, 4);

// Resolver time limit: seconds and microseconds, two 32-bit words.
typedef struct dns_time_limit {
    int32_t sec;
    int32_t usec;
} dns_time_limit;

// Size of the resolver's result area; it starts like a socket address
// (16-bit family, IPv4 address at byte 4).
#define DNS_RESULT_SIZE 256

// Resolver and host-name check; both optional.
int dns_domain_to_ip_block_oob(const char *host, int flags, void *result,
                               dns_time_limit *limit, int is_mgmt) __attribute__((weak));
int hostname_verify(const char *host) __attribute__((weak));  // non-zero: acceptable

// Interface and VRF service.
int lsm_vrf_name2index(const char *name) __attribute__((weak));  // < 0 on failure
int lsm_if_get_index_by_name(const char *name);                  // 0: no such interface
int lsm_if_get_vrf(int ifindex);                                 // < 0 on failure

// Clock: with 2, the calendar time in seconds.
time_t qz_time_get(int which);

// The command-line terminal of the user who started the transfer.
int cli_printf(const char *format, ...) HTTP_UTIL_PRINTF(1, 2);
void cli_flush(void);
int cli_getc_no_block(void);  // 3 = Ctrl+C; any other value is ignored

#ifdef __cplusplus
}
#endif

#endif
