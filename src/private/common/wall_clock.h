#ifndef NIVUR_PRIVATE_COMMON_WALL_CLOCK_H
#define NIVUR_PRIVATE_COMMON_WALL_CLOCK_H

#include <cstdint>

namespace NIVUR {

/// Milliseconds since 1970-01-01 00:00:00 UTC on the wall clock.
std::uint64_t wallClockMilliseconds();

/// What the local clock is ahead of UTC now, in whole hours towards zero.
int localTimeZone();

}  // namespace NIVUR

#endif
