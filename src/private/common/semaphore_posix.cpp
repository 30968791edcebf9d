#include "semaphore.h"

#include <semaphore.h>

#include <cerrno>
#include <new>

#include "private/common/clock.h"
#include "private/common/timed_wait.h"

namespace NIVUR {

namespace {

template <size_t kSize>
sem_t* semaphoreIn(unsigned char (&signals)[kSize]) {
    static_assert(sizeof(sem_t) <= kSize && alignof(sem_t) <= alignof(long));
    return std::launder(reinterpret_cast<sem_t*>(signals));
}

/// The time `timeoutMs` milliseconds from now on the monotonic clock.
timespec deadlineAfter(unsigned int timeoutMs) {
    const timespec now = platform::monotonicNow();
    return platform::normalized(now.tv_sec + static_cast<time_t>(timeoutMs / 1000),
                                now.tv_nsec + static_cast<long>(timeoutMs % 1000) * 1000000);
}

}  // namespace

Semaphore::Semaphore() : _signals{} {
    ::sem_init(new (_signals) sem_t, 0, 0);
}

Semaphore::~Semaphore() {
    ::sem_destroy(semaphoreIn(_signals));
}

// A signal handler must not end a wait: after EINTR both wait again.

int Semaphore::wait() {
    while (::sem_wait(semaphoreIn(_signals)) != 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return 0;
}

int Semaphore::wait(unsigned int timeoutMs) {
    if (::sem_trywait(semaphoreIn(_signals)) == 0) {  // without reading the clock
        return 0;
    }
    if (timeoutMs == 0) {
        return 1;
    }
    const timespec deadline = deadlineAfter(timeoutMs);
    while (!platform::waitUntil(semaphoreIn(_signals), deadline)) {
        if (errno == ETIMEDOUT) {
            return ::sem_trywait(semaphoreIn(_signals)) == 0 ? 0 : 1;
        }
        if (errno != EINTR) {
            return -1;
        }
    }
    return 0;
}

int Semaphore::notify() {
    return ::sem_post(semaphoreIn(_signals)) == 0 ? 0 : errno;
}

}  // namespace NIVUR
