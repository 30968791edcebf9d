#ifndef NIVUR_PRIVATE_COMMON_MONOTONIC_CLOCK_H
#define NIVUR_PRIVATE_COMMON_MONOTONIC_CLOCK_H

#include <semaphore.h>
#include <time.h>

#include <cstdint>

namespace NIVUR {

/// Now on the monotonic clock; zero, and an error line, when it cannot be read.
timespec monotonicNow();

/// Now in milliseconds; 0, without a line, when the clock cannot be read. May be called with locks
/// held.
std::uint64_t monotonicMilliseconds();

/// The instant `timeoutMs` milliseconds from now on the monotonic clock.
timespec deadlineAfter(unsigned int timeoutMs);

/// The instant with its nanoseconds, above -1 s and below 2 s, brought into 0 to 1 s.
timespec normalized(time_t seconds, long nanoseconds);

/// Takes a signal, waiting for it until the monotonic deadline: false, with the platform's error
/// number in errno, when it has passed (ETIMEDOUT, never early), a signal handler has run (EINTR)
/// or the platform refuses. timed_wait_monotonic.cpp has it where the C library waits by that
/// clock; elsewhere timed_wait_wall_clock.cpp.
bool waitUntil(sem_t* semaphore, const timespec& deadline);

}  // namespace NIVUR

#endif
