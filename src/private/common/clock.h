#ifndef NIVUR_PRIVATE_COMMON_CLOCK_H
#define NIVUR_PRIVATE_COMMON_CLOCK_H

#include <time.h>

#include <cstdint>

namespace NIVUR::platform {

/// The time of the monotonic clock; zero, and an error line, when it cannot be read.
timespec monotonicNow();

/// The same in milliseconds; 0, without a log line, when it cannot be read. May be called with
/// locks held.
uint64_t monotonicMilliseconds();

/// Milliseconds since 1970-01-01 00:00:00 UTC on the wall clock.
uint64_t wallClockMilliseconds();

/// By how many whole hours, rounded towards zero, local time is ahead of UTC now.
int localTimeZone();

}  // namespace NIVUR::platform

#endif
