#ifndef NIVUR_PRIVATE_COMMON_CLOCK_H
#define NIVUR_PRIVATE_COMMON_CLOCK_H

#include <time.h>

#include <cstdint>

namespace NIVUR::platform {

/// Returns the time of the monotonic clock; zero, with an error line, if it cannot be read.
timespec monotonicNow();

/// Returns the milliseconds of the monotonic clock; 0, without a log line, if it cannot be read:
/// may be called with locks held.
uint64_t monotonicMilliseconds();

/// Returns the milliseconds since 1970-01-01 00:00:00 UTC on the wall clock.
uint64_t wallClockMilliseconds();

/// Returns by how many whole hours, rounded towards zero, local time is ahead of UTC now.
int localTimeZone();

}  // namespace NIVUR::platform

#endif
