#ifndef NIVUR_PRIVATE_COMMON_TIMED_WAIT_H
#define NIVUR_PRIVATE_COMMON_TIMED_WAIT_H

#include <semaphore.h>
#include <time.h>

namespace NIVUR::platform {

/// Waits for a signal until a time of the monotonic clock. Returns false, with the platform's error
/// number in errno, if the time has passed (ETIMEDOUT, never early), a signal handler has run
/// (EINTR) or the platform refuses. Defined in timed_wait_monotonic.cpp for C libraries that can
/// wait by that clock, in timed_wait_wall_clock.cpp for others.
bool waitUntil(sem_t* semaphore, const timespec& deadline);

/// Normalizes a time whose nanoseconds may be out of range by less than one second.
inline timespec normalized(time_t seconds, long nanoseconds) {
    constexpr long kNanosecondsPerSecond = 1000000000;
    if (nanoseconds >= kNanosecondsPerSecond) {
        return {seconds + 1, nanoseconds - kNanosecondsPerSecond};
    }
    if (nanoseconds < 0) {
        return {seconds - 1, nanoseconds + kNanosecondsPerSecond};
    }
    return {seconds, nanoseconds};
}

}  // namespace NIVUR::platform

#endif
