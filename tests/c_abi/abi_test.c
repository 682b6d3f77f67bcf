/* A host program in plain C99: includes only the public header and links
 * only the shared library (and the host's device services). */
#include <stdio.h>
#include <string.h>

#include "http_util.h"

static int failures;

static void check(int ok, const char *what) {
    if (!ok) {
        fprintf(stderr, "FAILED: %s\n", what);
        failures++;
    }
}

int main(void) {
    http_util *util;
    http_util_param param;
    unsigned i;

    check(g_http_opt.ntry == 5 && g_http_opt.spare1 == 5 && g_http_opt.spare2 == 5 &&
              g_http_opt.spare3 == 5 && g_http_opt.wait == 30 && g_http_opt.random_wait == 0 &&
              g_http_opt.timestamp_check == 1 && g_http_opt.debug == 0,
          "g_http_opt reads {5, 5, 5, 5, 30, 0, 1, 0}");
    check(g_http_util_zlog_level == 5, "g_http_util_zlog_level reads 5");
    check(g_http_util_zlog_category == NULL, "no log category before http_util_init");

    http_util_init();
    check(g_http_util_zlog_category != NULL, "the host's log category after http_util_init");

    check(strcmp(http_util_strerr(HTTP_UTIL_ERR_CANCELED), "Operation canceled") == 0,
          "http_util_strerr(16)");
    check(http_util_err_str[HTTP_UTIL_ERR_UNKNOWN] == http_util_strerr(-1), "unknown codes");

    util = http_create_util();
    check(util != NULL && util->socket == -1 && util->timeout == 5, "a new handle");
    http_free_util(util);

    memset(&param, 0, sizeof param);
    check(sizeof param == 276, "http_util_param has no gaps");

    for (i = 0; i < 100; i++) check(random_number(62) < 62, "random_number(62)");

    printf("g_http_opt = {%d, %d, %d, %d, %d, %u, %u, %u}\n", (int)g_http_opt.ntry,
           (int)g_http_opt.spare1, (int)g_http_opt.spare2, (int)g_http_opt.spare3,
           (int)g_http_opt.wait, g_http_opt.random_wait, g_http_opt.timestamp_check,
           g_http_opt.debug);
    return failures == 0 ? 0 : 1;
}
