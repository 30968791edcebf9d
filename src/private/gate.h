#ifndef NIVUR_PRIVATE_GATE_H
#define NIVUR_PRIVATE_GATE_H

#include <optional>
#include <utility>

#include "no_copyable.h"
#include "private/task_queue.h"
#include "semaphore.h"

namespace NIVUR {

/// Lets other threads wait until a loop runs nothing. A pass closes the gate when it takes its
/// timers, watches and task. The gate opens when the loop sleeps or its thread ends. Guarded by the
/// queue lock.
///
///     another thread                                the loop's thread
///     acquires the queue lock, enter()              runs tasks
///     wait()                                        when nothing runs: takeWaiters()
///                                                   drops what each waiter asks for
///     wait() returns, deletes _dropped   <--------  signal(), with the lock released
///
/// A waiter only leaves its request. The loop's thread serves it between two passes or before the
/// task of a pass, so that waiters do not compete with a busy loop for the lock.
class Gate : public NoCopyable {
  public:
    /// A caller that waits at the gate, and its request.
    class Waiter : public NoCopyable {
      public:
        /// Asks for the tasks of `object` to be dropped, unless it is null.
        explicit Waiter(const void* object = nullptr) : _object(object) {}

        /// Returns at once if enter() found the gate open, otherwise when the loop's thread has
        /// served this waiter.
        /// REQUIRES: the queue lock is not held.
        void wait() {
            while (_passed && _passed->wait() != 0) {
            }
        }

        const void* const _object;
        TaskQueue _dropped;  // deleted on the thread of the waiter, with no lock held
        Waiter* _next = nullptr;

      private:
        friend class Gate;

        std::optional<Semaphore> _passed;  // empty if the gate was open
    };

    void close() { _closed = true; }
    void open() { _closed = false; }

    /// Makes waiter.wait() wait if the gate is closed.
    void enter(Waiter& waiter) {
        if (_closed) {
            waiter._passed.emplace();
            waiter._next = std::exchange(_waiters, &waiter);
        }
    }

    bool hasWaiters() const { return _waiters != nullptr; }

    /// Removes all waiters and returns them as a chain for signal().
    Waiter* takeWaiters() { return std::exchange(_waiters, nullptr); }

    /// Ends the waits of a chain.
    /// REQUIRES: the queue lock is not held.
    static void signal(Waiter* passed) {
        while (passed != nullptr) {
            Waiter* const next = passed->_next;  // notify() may destroy the waiter
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
