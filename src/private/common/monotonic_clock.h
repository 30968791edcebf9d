#ifndef NIVUR_PRIVATE_COMMON_MONOTONIC_CLOCK_H
#define NIVUR_PRIVATE_COMMON_MONOTONIC_CLOCK_H

#include <semaphore.h>
#include <time.h>

namespace NIVUR {

/// Now on the monotonic clock; zero, and an error line, when it cannot be read.
timespec monotonicNow();

/// The instant `timeoutMs` milliseconds from now on the monotonic clock.
timespec deadlineAfter(unsigned int timeoutMs);

/// Takes a signal, waiting for it until the monotonic deadline: false, with the platform's error
/// number in errno, when it has passed (ETIMEDOUT, never early), a signal handler has run (EINTR)
/// or the platform refuses.
bool waitUntil(sem_t* semaphore, const timespec& deadline);

}  // namespace NIVUR

#endif
