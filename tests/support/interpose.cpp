#include "interpose.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>

namespace interpose {

std::string fail_open_path;
int open_failures = 0;
std::vector<timeval> pauses;
bool skip_pauses = false;
std::string fail_strdup_text;
std::string taken_prefix;

void reset() {
    fail_open_path.clear();
    open_failures = 0;
    pauses.clear();
    skip_pauses = false;
    fail_strdup_text.clear();
    taken_prefix.clear();
}

}  // namespace interpose

namespace {

using open_fn = int (*)(const char *, int, ...);
using access_fn = int (*)(const char *, int);
using select_fn = int (*)(int, fd_set *, fd_set *, fd_set *, timeval *);

int forward_open(const char *name, const char *path, int flags, mode_t mode) {
    if (!interpose::fail_open_path.empty() && interpose::fail_open_path == path) {
        ++interpose::open_failures;
        errno = ENOENT;
        return -1;
    }
    auto real = reinterpret_cast<open_fn>(dlsym(RTLD_NEXT, name));
    return real(path, flags, mode);
}

mode_t mode_arg(int flags, va_list ap) {
    return (flags & (O_CREAT | O_TMPFILE)) ? static_cast<mode_t>(va_arg(ap, int)) : 0;
}

}  // namespace

extern "C" {

int open(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    return forward_open("open", path, flags, mode);
}

int open64(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    return forward_open("open64", path, flags, mode);
}

int select(int nfds, fd_set *rd, fd_set *wr, fd_set *ex, timeval *timeout) {
    if (nfds == 0 && timeout != nullptr) {
        interpose::pauses.push_back(*timeout);
        if (interpose::skip_pauses) return 0;
    }
    auto real = reinterpret_cast<select_fn>(dlsym(RTLD_NEXT, "select"));
    return real(nfds, rd, wr, ex, timeout);
}

char *strdup(const char *s) noexcept {
    if (!interpose::fail_strdup_text.empty() && interpose::fail_strdup_text == s) {
        errno = ENOMEM;
        return nullptr;
    }
    size_t n = strlen(s) + 1;
    auto *copy = static_cast<char *>(malloc(n));
    if (copy != nullptr) memcpy(copy, s, n);
    return copy;
}

int access(const char *path, int mode) noexcept {
    if (!interpose::taken_prefix.empty() && strncmp(path, interpose::taken_prefix.c_str(),
                                                    interpose::taken_prefix.size()) == 0)
        return 0;
    auto real = reinterpret_cast<access_fn>(dlsym(RTLD_NEXT, "access"));
    return real(path, mode);
}

}  // extern "C"
