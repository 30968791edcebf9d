#ifndef NIVUR_MUTEX_H
#define NIVUR_MUTEX_H

#include <pthread.h>

#include "export.h"
#include "no_copyable.h"
#include "thread_annotations.h"

namespace NIVUR {

/// A mutual-exclusion lock. It is not recursive: locking a Mutex that the calling thread already
/// holds deadlocks. What a thread did before unlock() is visible to the thread that locks it next.
/// REQUIRES for destruction: no thread holds it or waits for it.
class NIVUR_EXPORT NIVUR_CAPABILITY("mutex") Mutex : public NoCopyable {
  public:
    Mutex();
    virtual ~Mutex();

    /// Waits until the lock is free and acquires it. Returns false if the platform refuses.
    bool lock() NIVUR_ACQUIRE();

    /// Acquires the lock without blocking. Returns false if it is held or the platform refuses.
    [[nodiscard]] bool trylock() NIVUR_TRY_ACQUIRE(true);

    /// Releases the lock. Returns false if the platform refuses.
    /// REQUIRES: the calling thread holds it.
    bool unlock() NIVUR_RELEASE();

  private:
    pthread_mutex_t _mutex;
};

/// Scoped lock: holds a Mutex, which must outlive it, until it goes out of scope.
class NIVUR_EXPORT NIVUR_SCOPED_CAPABILITY AutoLock : public NoCopyable {
  public:
    /// Acquires the lock; the destructor releases it.
    explicit AutoLock(Mutex& mutex) NIVUR_ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
    virtual ~AutoLock() NIVUR_RELEASE() { _mutex.unlock(); }

  private:
    Mutex& _mutex;
};

}  // namespace NIVUR

#endif
