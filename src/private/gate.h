#ifndef NIVUR_PRIVATE_GATE_H
#define NIVUR_PRIVATE_GATE_H

#include <optional>
#include <utility>

#include "no_copyable.h"
#include "private/task_queue.h"
#include "semaphore.h"

namespace NIVUR {

/// Where other threads wait until nothing runs on a loop. It is closed from the moment at which a
/// pass takes what it will run until that has run and is deleted, and open while the loop sleeps or
/// has no thread. Waiters are let through whenever the loop's thread comes by between two of its
/// tasks, so that they neither hold it up nor race with it for a lock. Guarded by the queue lock.
class Gate : public NoCopyable {
  public:
    /// A caller at the gate, and what it wants done while nothing runs.
    class Waiter : public NoCopyable {
      public:
        /// Wants the tasks of `object` dropped, unless that is null.
        explicit Waiter(const void* object = nullptr) : _object(object) {}

        /// Returns when this caller has passed: at once unless it found the gate closed. REQUIRES:
        /// the queue lock is not held.
        void wait() {
            while (_passed && _passed->wait() != 0) {
            }
        }

        const void* const _object;
        TaskQueue _dropped;  // deleted by the caller, with no lock held
        Waiter* _next = nullptr;

      private:
        friend class Gate;

        std::optional<Semaphore> _passed;  // if it waits
    };

    void close() { _closed = true; }
    void open() { _closed = false; }

    /// Makes the caller wait if the gate is closed.
    void enter(Waiter& waiter) {
        if (_closed) {
            waiter._passed.emplace();
            waiter._next = std::exchange(_waiters, &waiter);
        }
    }

    bool hasWaiters() const { return _waiters != nullptr; }

    /// All waiters, chained: they pass with signal().
    Waiter* takeWaiters() { return std::exchange(_waiters, nullptr); }

    /// Ends the waits of those who were taken. REQUIRES: the queue lock is not held.
    static void signal(Waiter* passed) {
        while (passed != nullptr) {
            Waiter* const next = passed->_next;  // a waiter may be gone once it is told
            passed->_passed->notify();
            passed = next;
        }
    }

  private:
    bool _closed = false;
    Waiter* _waiters = nullptr;
};

}  // namespace NIVUR

#endif
