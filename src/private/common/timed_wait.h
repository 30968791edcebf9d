#ifndef NIVUR_PRIVATE_COMMON_TIMED_WAIT_H
#define NIVUR_PRIVATE_COMMON_TIMED_WAIT_H

#include <semaphore.h>
#include <time.h>

namespace NIVUR::platform {

/// Waits for a signal until a time of the monotonic clock. False, with the platform's error number
/// in errno, when the time has passed (ETIMEDOUT, never early), a signal handler has run (EINTR) or
/// the platform refuses. timed_wait_monotonic.cpp has it for C libraries that wait by that clock,
/// timed_wait_wall_clock.cpp for all others.
bool waitUntil(sem_t* semaphore, const timespec& deadline);

/// A time whose nanoseconds may be out of range by less than one second.
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
