#include <cerrno>

#include "private/common/monotonic_clock.h"
#include "semaphore.h"

namespace NIVUR {

Semaphore::Semaphore() : _mutex{}, _cond{}, _count(0) {
    ::pthread_mutex_init(&_mutex, nullptr);
    ::pthread_cond_init(&_cond, nullptr);
}

Semaphore::~Semaphore() {
    ::pthread_mutex_destroy(&_mutex);
    ::pthread_cond_destroy(&_cond);
}

int Semaphore::wait() {
    if (::pthread_mutex_lock(&_mutex) != 0) {
        return -1;
    }
    int error = 0;
    while (_count == 0 && error == 0) {
        error = ::pthread_cond_wait(&_cond, &_mutex);
    }
    return finishWait(error);
}

int Semaphore::wait(unsigned int timeoutMs) {
    const timespec deadline = deadlineAfter(timeoutMs);
    if (::pthread_mutex_lock(&_mutex) != 0) {
        return -1;
    }
    int error = timeoutMs == 0 ? ETIMEDOUT : 0;
    while (_count == 0 && error == 0) {
        error = waitUntil(&_cond, &_mutex, deadline);
    }
    return finishWait(error);
}

int Semaphore::finishWait(int error) {
    int result = error == ETIMEDOUT ? 1 : -1;
    if (_count > 0 && (error == 0 || error == ETIMEDOUT)) {
        --_count;
        result = 0;
    }
    ::pthread_mutex_unlock(&_mutex);
    return result;
}

int Semaphore::notify() {
    if (const int error = ::pthread_mutex_lock(&_mutex)) {
        return error;
    }
    ++_count;
    // Under the lock: once the waiter can see the signal it may destroy the semaphore.
    ::pthread_cond_signal(&_cond);
    return ::pthread_mutex_unlock(&_mutex);
}

}  // namespace NIVUR
