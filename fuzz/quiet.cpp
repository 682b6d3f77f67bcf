// Every target starts with the library's logging off: records nobody reads
// would only slow the runs down.
#include <stdint.h>

#include "http_util.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_http_opt.debug = 0;
    g_http_util_zlog_level = 0;
    return 0;
}
