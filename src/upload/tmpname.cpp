// Fresh temporary names beside a given path.
#define HTTP_LOG_MODULE "http_upload"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "frame/log.h"
#include "frame/raii.h"
#include "http_util.h"

namespace {
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
constexpr size_t kSuffix = 6;
constexpr int kTries = 5;
}  // namespace

// The name is only made, not created: another process may take it first.
extern "C" HTTP_UTIL_API char *http_util_generate_tmpname(const char *name) {
    if (name == nullptr) {
        HTTP_LOG("null parameter");
        return nullptr;
    }
    const size_t size = strlen(name) + kSuffix + 2;  // the dot and the NUL
    http_util_internal::MallocPtr<char> out(static_cast<char *>(calloc(1, size)));
    if (!out) return nullptr;
    for (int attempt = 0; attempt < kTries; ++attempt) {
        char suffix[kSuffix + 1];
        for (size_t i = 0; i < kSuffix; ++i)
            suffix[i] = kAlphabet[random_number(sizeof kAlphabet - 1)];
        suffix[kSuffix] = '\0';
        snprintf(out.get(), size, "%s.%s", name, suffix);
        if (access(out.get(), F_OK) != 0) return out.release();
    }
    return nullptr;
}
