#ifndef NIVUR_SEMAPHORE_H
#define NIVUR_SEMAPHORE_H

#include "export.h"
#include "no_copyable.h"

namespace NIVUR {

/// A counting semaphore, initially 0: each notify() lets one present or future wait return. What a
/// thread did before notify() is visible after the wait that it ends. Any thread may call any
/// operation. The thread whose wait has returned may destroy the semaphore at once, even if that
/// notify() has not returned yet.
class NIVUR_EXPORT Semaphore : public NoCopyable {
  public:
    Semaphore();
    virtual ~Semaphore();

    /// Waits for a signal. Returns 0 when it has taken one, -1 if the platform refuses.
    int wait();

    /// Waits at most `timeoutMs` milliseconds of the monotonic clock; changes of the wall clock do
    /// not matter. Returns 0 when it has taken a signal, 1 when the time has passed (never early),
    /// -1 if the platform refuses. A signal that arrives exactly at the timeout is taken.
    int wait(unsigned int timeoutMs);

    /// Adds one signal. Returns 0, or the platform's error number if it refuses, and then nothing
    /// is added.
    int notify();

  private:
    // Storage for a sem_t: including <semaphore.h> here could find this file itself.
    alignas(long) unsigned char _signals[4 * sizeof(long)];
};

}  // namespace NIVUR

#endif
