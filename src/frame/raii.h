// Small owners that release on every return path.
#ifndef HTTP_UTIL_FRAME_RAII_H
#define HTTP_UTIL_FRAME_RAII_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string_view>

namespace http_util_internal {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1) {
        if (fd_ >= 0) (void)::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

class UniqueFile {
public:
    explicit UniqueFile(FILE *f = nullptr) : f_(f) {}
    ~UniqueFile() { reset(); }
    UniqueFile(const UniqueFile &) = delete;
    UniqueFile &operator=(const UniqueFile &) = delete;
    FILE *get() const { return f_; }
    explicit operator bool() const { return f_ != nullptr; }
    void reset(FILE *f = nullptr) {
        if (f_) (void)fclose(f_);
        f_ = f;
    }

private:
    FILE *f_;
};

// Heap memory from malloc/calloc, released with free; release() hands it
// on to a caller who frees it.
template <typename T>
class MallocPtr {
public:
    explicit MallocPtr(T *p = nullptr) : p_(p) {}
    ~MallocPtr() { free(p_); }
    MallocPtr(const MallocPtr &) = delete;
    MallocPtr &operator=(const MallocPtr &) = delete;
    T *get() const { return p_; }
    T *operator->() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    T *release() {
        T *p = p_;
        p_ = nullptr;
        return p;
    }
    void reset(T *p = nullptr) {
        free(p_);
        p_ = p;
    }

private:
    T *p_;
};

// Copies at most N-1 bytes of src and always terminates dst.
template <size_t N>
inline void copy_bounded(char (&dst)[N], std::string_view src) {
    size_t n = src.size() < N - 1 ? src.size() : N - 1;
    memcpy(dst, src.data(), n);
    dst[n] = '\0';
}

}  // namespace http_util_internal

#endif
