#include <cerrno>

#include "private/common/monotonic_clock.h"
#include "semaphore.h"

namespace NIVUR {

Semaphore::Semaphore() : _mutex{}, _cond{} {
    ::pthread_mutex_init(&_mutex, nullptr);
    ::pthread_cond_init(&_cond, nullptr);
}

Semaphore::~Semaphore() {
    ::pthread_mutex_destroy(&_mutex);
    ::pthread_cond_destroy(&_cond);
}

int Semaphore::wait() {
    if (takeSignal()) {
        return 0;
    }
    if (::pthread_mutex_lock(&_mutex) != 0) {
        return -1;
    }
    int error = 0;
    beginWait();
    while (_wakeups == 0 && error == 0) {
        error = ::pthread_cond_wait(&_cond, &_mutex);
    }
    return finishWait(error);
}

int Semaphore::wait(unsigned int timeoutMs) {
    if (takeSignal()) {
        return 0;
    }
    if (timeoutMs == 0) {
        return 1;
    }
    const timespec deadline = deadlineAfter(timeoutMs);
    if (::pthread_mutex_lock(&_mutex) != 0) {
        return -1;
    }
    int error = 0;
    beginWait();
    while (_wakeups == 0 && error == 0) {
        error = waitUntil(&_cond, &_mutex, deadline);
    }
    return finishWait(error);
}

int Semaphore::notify() {
    while (!addSignal()) {
        if (const int error = ::pthread_mutex_lock(&_mutex)) {
            return error;
        }
        const bool woken = wakeSleeper();
        const int error = ::pthread_mutex_unlock(&_mutex);
        if (woken) {
            return error;
        }
    }
    return 0;
}

/// Adds a signal that any thread may take, and then destroy the semaphore, at once: so it must be
/// the last that notify() does, and never with the lock held. False when somebody sleeps.
bool Semaphore::addSignal() {
    for (int64_t count = _count; count >= 0;) {
        if (_count.compare_exchange_weak(count, count + 1)) {
            return true;
        }
    }
    return false;
}

/// With the lock held, which the sleeper needs to go on; false when all have given up meanwhile.
bool Semaphore::wakeSleeper() {
    if (_count >= 0) {
        return false;
    }
    ++_count;
    ++_wakeups;
    ::pthread_cond_signal(&_cond);
    return true;
}

bool Semaphore::takeSignal() {
    for (int64_t count = _count; count > 0;) {
        if (_count.compare_exchange_weak(count, count - 1)) {
            return true;
        }
    }
    return false;
}

/// Counts the caller, which holds the lock, as a sleeper; a signal that came meanwhile wakes it.
void Semaphore::beginWait() {
    if (_count-- > 0) {
        ++_wakeups;
    }
}

int Semaphore::finishWait(int error) {
    int result = 0;
    if (_wakeups > 0) {
        --_wakeups;
    } else {
        ++_count;  // one sleeper less
        result = error == ETIMEDOUT ? 1 : -1;
    }
    ::pthread_mutex_unlock(&_mutex);
    return result;
}

}  // namespace NIVUR
