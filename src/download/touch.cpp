// Gives a downloaded file the server's modification time.
#include <string.h>
#include <utime.h>

#include "frame/log.h"
#include "http_util.h"
#include "platform/device.h"

extern "C" HTTP_UTIL_API void touch(const char *path, time_t mtime) {
    struct utimbuf times;
    times.actime = qz_time_get(2);
    times.modtime = mtime;
    if (utime(path, &times) != 0) HTTP_LOG("utime(%s): %s", path, strerror(errno));
}
