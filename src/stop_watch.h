#ifndef NIVUR_STOP_WATCH_H
#define NIVUR_STOP_WATCH_H

#include <cstdint>

#include "export.h"

namespace NIVUR {

/// Measures from its construction on the monotonic clock. One thread at a time may use it.
class NIVUR_EXPORT StopWatch {
  public:
    StopWatch();

    /// Counts the call and gives the milliseconds since construction, modulo 2^32 (49.7 days).
    unsigned int record();

    /// How many times record() was called.
    unsigned int getCount() const { return _count; }

  private:
    uint64_t _startTime;
    unsigned int _count;
};

}  // namespace NIVUR

#endif
