#ifndef NIVUR_PRIVATE_INTAKE_H
#define NIVUR_PRIVATE_INTAKE_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "no_copyable.h"
#include "private/task_queue.h"

namespace NIVUR {

/// The lock-free stack through which posters pass tasks to a loop, and on which the loop sleeps.
/// The loop takes all tasks at once and reverses them (R. K. Treiber, "Systems Programming: Coping
/// with Parallelism", 1986). A post is one compare-and-exchange of the head, with no lock and no
/// allocation: 98 ns between two processors, where the best peer takes 213 ns (docs/performance.md,
/// "post, 1 poster, two processors").
///
/// The head is the address of the newest task, or one of three marks:
///
///     closed --open()--> empty --beginSleep()--> asleep
///        ^                 |  ^                    |
///        |            add() drainTo()   add(), endSleep(): the caller signals
///        +--close()-- newest -> ... -> oldest <----+
///
/// A thread that replaces the mark "asleep" owes the sleeping loop one signal, and the loop waits
/// for that signal before it does anything else: until then the signaller may use the loop. A
/// poster that owes no signal does not touch the intake again, since its task may have run and
/// destroyed it.
///
/// Memory ordering: every change of the head acquires and releases. What a poster did before add()
/// is visible to the thread that runs the task; what the loop did before beginSleep() is visible to
/// the thread that replaces the mark.
class Intake : public NoCopyable {
  public:
    enum Result {
        CLOSED,        ///< the caller keeps the task
        ADDED,         ///< the loop is awake
        ADDED_ASLEEP,  ///< the caller owes the loop a signal
    };

    /// Adds a task and takes ownership of it, unless the intake is closed, as it is initially.
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

    /// Opens the intake if it is closed.
    void open() { replace(kClosed, kEmpty); }

    /// Closes the intake and moves the remaining tasks to `queue`. Returns true if the caller owes
    /// the loop a signal.
    bool close(TaskQueue& queue) {
        const uintptr_t head = _head.exchange(kClosed, std::memory_order_acq_rel);
        queue.appendReversed(taskOf(head));
        return head == kAsleep;
    }

    /// Moves all tasks to `queue`, oldest first. One thread at a time may call this.
    void drainTo(TaskQueue& queue) {
        uintptr_t head = _head.load(std::memory_order_relaxed);
        while (taskOf(head) != nullptr &&
               !_head.compare_exchange_weak(head, kEmpty, std::memory_order_acq_rel,
                                            std::memory_order_relaxed)) {
        }
        queue.appendReversed(taskOf(head));
    }

    /// Marks the loop as asleep. Returns false if there are tasks or the intake is closed.
    bool beginSleep() { return replace(kEmpty, kAsleep); }

    /// Removes the mark "asleep". Returns false if there was none, or if another thread has removed
    /// it and owes the signal.
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
