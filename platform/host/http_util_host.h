/*
 * The device services of libhttp_util, emulated on a stock Linux host.
 * Link a host program with -lhttp_util -lhttp_util_host; these calls let it
 * choose where the emulated services write.
 */
#ifndef HTTP_UTIL_HOST_H
#define HTTP_UTIL_HOST_H

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Where platform-log records go: a file path (appended to), "-" for
 * standard error, or NULL for nowhere. Without a call, the environment
 * variable HTTP_UTIL_HOST_LOG is read the same way when the library sets
 * up its log. Returns 0, or -1 when the file cannot be opened. */
int http_util_host_set_log(const char *path);

/* Called with every platform-log record the library writes: the name of the
 * function that logged it and the formatted text (at most 1023 characters),
 * while the library's platform log is on (g_http_util_zlog_level above 4).
 * It runs on the thread of the transfer, after the record was written to
 * the log file if one is chosen; it must not start a transfer itself. NULL
 * removes it. A command-line program uses it to tell its user what a long
 * transfer is doing, such as waiting to retry. */
typedef void (*http_util_host_log_hook)(void *ctx, const char *func, const char *text);
void http_util_host_set_log_hook(http_util_host_log_hook hook, void *ctx);

/* Where the terminal display goes (default: standard output). */
void http_util_host_set_terminal_output(FILE *out);

/* Puts the controlling terminal back in the mode it had before the first
 * keystroke poll switched it so that Ctrl+C arrives as a byte. Also runs at
 * exit. Safe to call at any time. */
void http_util_host_terminal_restore(void);

#ifdef __cplusplus
}
#endif

#endif
