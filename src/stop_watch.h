#ifndef NIVUR_STOP_WATCH_H
#define NIVUR_STOP_WATCH_H

#include <cstdint>

#include "export.h"

namespace NIVUR {

/// Measures the time since its construction on the monotonic clock. Not thread-safe.
class NIVUR_EXPORT StopWatch {
  public:
    StopWatch();

    /// Counts the call and returns the milliseconds since construction, modulo 2^32 (49.7 days).
    unsigned int record();

    /// The number of calls of record().
    unsigned int getCount() const { return _count; }

  private:
    uint64_t _startTime;
    unsigned int _count;
};

}  // namespace NIVUR

#endif
