#include <cerrno>

#include "private/common/monotonic_clock.h"
#include "semaphore.h"

namespace NIVUR {

Semaphore::Semaphore() : _signals{} {
    ::sem_init(&_signals, 0, 0);
}

Semaphore::~Semaphore() {
    ::sem_destroy(&_signals);
}

int Semaphore::wait() {
    while (::sem_wait(&_signals) != 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return 0;
}

int Semaphore::wait(unsigned int timeoutMs) {
    if (::sem_trywait(&_signals) == 0) {
        return 0;
    }
    if (timeoutMs == 0) {
        return 1;
    }
    const timespec deadline = deadlineAfter(timeoutMs);
    while (!waitUntil(&_signals, deadline)) {
        if (errno == ETIMEDOUT) {
            return ::sem_trywait(&_signals) == 0 ? 0 : 1;
        }
        if (errno != EINTR) {
            return -1;
        }
    }
    return 0;
}

int Semaphore::notify() {
    return ::sem_post(&_signals) == 0 ? 0 : errno;
}

}  // namespace NIVUR
