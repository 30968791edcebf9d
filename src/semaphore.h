#ifndef NIVUR_SEMAPHORE_H
#define NIVUR_SEMAPHORE_H

#include "export.h"
#include "no_copyable.h"

namespace NIVUR {

/// A counting semaphore, 0 at first: every notify() lets exactly one present or future wait return.
/// Any thread may call any operation. The thread whose wait has returned may destroy the semaphore
/// at once, also while that notify() is about to return.
class NIVUR_EXPORT Semaphore : public NoCopyable {
  public:
    Semaphore();
    virtual ~Semaphore();

    /// Waits for a signal: 0 when one was taken, -1 when the platform refuses.
    int wait();

    /// Waits at most `timeoutMs` milliseconds of the monotonic clock, whatever happens to the wall
    /// clock: 0 when a signal was taken, 1 when the time ran out (never early), -1 when the
    /// platform refuses. A signal that comes together with the end of the time counts as taken.
    int wait(unsigned int timeoutMs);

    /// Adds one signal: 0, or the platform's error number, and then nothing was added.
    int notify();

  private:
    // Room for the platform's semaphore, whose header has this one's name.
    alignas(long) unsigned char _signals[4 * sizeof(long)];
};

}  // namespace NIVUR

#endif
