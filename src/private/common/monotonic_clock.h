#ifndef NIVUR_PRIVATE_COMMON_MONOTONIC_CLOCK_H
#define NIVUR_PRIVATE_COMMON_MONOTONIC_CLOCK_H

#include <pthread.h>
#include <time.h>

namespace NIVUR {

/// Now on the monotonic clock; zero, and an error line, when it cannot be read.
timespec monotonicNow();

/// The instant `timeoutMs` milliseconds from now on the monotonic clock.
timespec deadlineAfter(unsigned int timeoutMs);

/// One wait on a condition until it is signalled (0) or the monotonic deadline has passed
/// (ETIMEDOUT, never early); any other result is the platform's error number.
int waitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec& deadline);

}  // namespace NIVUR

#endif
