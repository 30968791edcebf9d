#ifndef NIVUR_SEMAPHORE_H
#define NIVUR_SEMAPHORE_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

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
    bool addSignal();
    bool wakeSleeper();
    bool takeSignal();
    void beginWait();
    int finishWait(int error);

    // The lock is the platform's own and so carries no annotation. It is taken to sleep and to wake
    // only: as long as nobody sleeps, signals are given and taken by changing _count alone.
    pthread_mutex_t _mutex;
    pthread_cond_t _cond;
    std::atomic<int64_t> _count{0};  // of signals, or below 0 of sleepers: then guarded by _mutex
    unsigned int _wakeups = 0;       // of sleepers, not yet noticed; guarded by _mutex
};

}  // namespace NIVUR

#endif
