#ifndef NIVUR_MUTEX_H
#define NIVUR_MUTEX_H

#include <pthread.h>

#include "export.h"
#include "no_copyable.h"
#include "thread_annotations.h"

namespace NIVUR {

/// A mutual-exclusion lock for any number of threads. It is not recursive: a thread that locks a
/// Mutex which it holds waits for ever.
/// REQUIRES for destruction: no thread holds it or waits for it.
class NIVUR_EXPORT NIVUR_CAPABILITY("mutex") Mutex : public NoCopyable {
  public:
    Mutex();
    virtual ~Mutex();

    /// Waits until the lock is free and takes it; false when the platform refuses.
    bool lock() NIVUR_ACQUIRE();

    /// Takes the lock if that needs no waiting: true when taken, false when busy or refused.
    [[nodiscard]] bool trylock() NIVUR_TRY_ACQUIRE(true);

    /// Gives the lock back; false when the platform refuses. REQUIRES: the calling thread holds it.
    bool unlock() NIVUR_RELEASE();

  private:
    pthread_mutex_t _mutex;
};

/// Holds a Mutex, which must outlive it, for the length of a scope.
class NIVUR_EXPORT NIVUR_SCOPED_CAPABILITY AutoLock : public NoCopyable {
  public:
    /// Waits for the lock and takes it; the end of the scope gives it back.
    explicit AutoLock(Mutex& mutex) NIVUR_ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
    virtual ~AutoLock() NIVUR_RELEASE() { _mutex.unlock(); }

  private:
    Mutex& _mutex;
};

}  // namespace NIVUR

#endif
