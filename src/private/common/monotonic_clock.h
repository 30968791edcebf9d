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

/// Takes a signal, waiting for it until the monotonic deadline: false, with the platform's error
/// number in errno, when it has passed (ETIMEDOUT, never early), a signal handler has run (EINTR)
/// or the platform refuses.
bool waitUntil(sem_t* semaphore, const timespec& deadline);

}  // namespace NIVUR

#endif
