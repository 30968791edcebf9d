#ifndef NIVUR_PRIVATE_INTAKE_H
#define NIVUR_PRIVATE_INTAKE_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "no_copyable.h"
#include "private/task_queue.h"

namespace NIVUR {

/// Where posters leave tasks for a loop that sleeps when there are none. Adding takes no lock: it
/// is one exchange of the head of a linked stack, which is reversed when it is taken (R. K.
/// Treiber, "Systems Programming: Coping with Parallelism", 1986).
///
/// The head is the newest task's address, or one of three marks:
///
///     closed --open()--> empty --beginSleep()--> asleep
///        ^                 |  ^                    |
///        |               add() drainTo() add(), endSleep(): the remover signals
///        +--close()-- newest -> ... -> oldest <----+
///
/// Whoever removes the sleeper's mark owes it one signal, and the sleeper takes that signal before
/// it does anything else. A poster that owes no signal never touches the intake again: its task may
/// already have destroyed it. What a poster did before add() is visible to the thread that takes
/// the task, and what the sleeper did before beginSleep() to the one that removes its mark.
class Intake : public NoCopyable {
  public:
    enum Result {
        CLOSED,        ///< not taken
        ADDED,         ///< the sleeper is awake
        ADDED_ASLEEP,  ///< the sleeper has to be signalled
    };

    /// Takes the task over unless the intake is closed, as it is initially.
    Result add(std::unique_ptr<Runnable>& task) {
        uintptr_t head = _head.load(std::memory_order_relaxed);
        do {
            if (head == kClosed) {
                return CLOSED;
            }
            TaskLink::of(*task) = taskOf(head);
        } while (!_head.compare_exchange_weak(head, reinterpret_cast<uintptr_t>(task.get()),
                                              std::memory_order_acq_rel,
                                              std::memory_order_relaxed));
        (void)task.release();
        return head == kAsleep ? ADDED_ASLEEP : ADDED;
    }

    /// Lets tasks in if the intake is closed.
    void open() { replace(kClosed, kEmpty); }

    /// Closes the intake, gives what is left in it to `queue` and tells whether the sleeper has to
    /// be signalled.
    bool close(TaskQueue& queue) {
        const uintptr_t head = _head.exchange(kClosed, std::memory_order_acq_rel);
        queue.appendReversed(taskOf(head));
        return head == kAsleep;
    }

    /// Gives all tasks to `queue`, the oldest first. One thread at a time.
    void drainTo(TaskQueue& queue) {
        uintptr_t head = _head.load(std::memory_order_relaxed);
        while (taskOf(head) != nullptr &&
               !_head.compare_exchange_weak(head, kEmpty, std::memory_order_acq_rel,
                                            std::memory_order_relaxed)) {
        }
        queue.appendReversed(taskOf(head));
    }

    /// Marks the taker as asleep; false when there are tasks or the intake is closed.
    bool beginSleep() { return replace(kEmpty, kAsleep); }

    /// Removes the mark; false when someone else has removed it, and signals.
    bool endSleep() {
        return _head.load(std::memory_order_relaxed) == kAsleep && replace(kAsleep, kEmpty);
    }

  private:
    static constexpr uintptr_t kEmpty = 0;
    static constexpr uintptr_t kAsleep = 1;
    static constexpr uintptr_t kClosed = 2;

    static Runnable* taskOf(uintptr_t head) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): one word is a task's address or a mark
        return head <= kClosed ? nullptr : reinterpret_cast<Runnable*>(head);
    }

    bool replace(uintptr_t from, uintptr_t to) {
        return _head.compare_exchange_strong(from, to, std::memory_order_acq_rel,
                                             std::memory_order_relaxed);
    }

    std::atomic<uintptr_t> _head{kClosed};
};

}  // namespace NIVUR

#endif
