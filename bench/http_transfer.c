/* The smallest host program of the library: one download or one upload
 * through the exported entry points, as a device program would make it.
 *
 *   http-transfer get URL FILE    download with no retry
 *   http-transfer put FILE URL    multipart upload
 *
 * The exit status is the library's result code. */
#include <stdio.h>
#include <string.h>

#include "http_util.h"

int main(int argc, char **argv) {
    int rc;
    if (argc == 4 && strcmp(argv[1], "get") == 0) {
        /* No retry: a failed run must show as a failure, not as a pause. */
        rc = http_download_file_ntry(argv[2], argv[3], 0);
    } else if (argc == 4 && strcmp(argv[1], "put") == 0) {
        rc = http_upload_file(argv[3], argv[2]);
    } else {
        fprintf(stderr, "usage: %s get URL FILE | put FILE URL\n", argv[0]);
        return 2;
    }
    if (rc != HTTP_UTIL_OK) fprintf(stderr, "%s: %s\n", argv[0], http_util_strerr(rc));
    return rc;
}
