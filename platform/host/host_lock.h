// Scoped lock on a C mutex: the host emulation links the C library only.
#ifndef HTTP_UTIL_HOST_LOCK_H
#define HTTP_UTIL_HOST_LOCK_H

#include <pthread.h>

namespace http_util_host_internal {

class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t *m) : m_(m) { pthread_mutex_lock(m_); }
    ~MutexLock() { pthread_mutex_unlock(m_); }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

private:
    pthread_mutex_t *m_;
};

}  // namespace http_util_host_internal

#endif
