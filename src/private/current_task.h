#ifndef NIVUR_PRIVATE_CURRENT_TASK_H
#define NIVUR_PRIVATE_CURRENT_TASK_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "mutex.h"
#include "no_copyable.h"
#include "runnable.h"

namespace NIVUR {

/// The task that the current pass runs. The loop's thread sets and takes it; a dump on any thread
/// may look at it, with the queue lock held. One atomic word holds the task's address, and in its
/// lowest bit whether a thread looks at it:
///
///     0 --setLocked()--> task --lookLocked()--> task | 1 --the look ends--> task
///     0 <--take()------- task                   task | 1 --take()--> waits for the lock
///
/// The loop's thread needs the queue lock to take the task back only if the bit is set, that is
/// during a dump. Operations with "locked" in their name REQUIRE the queue lock.
///
/// Memory ordering: the end of a look releases the word and take() acquires it, so that the task is
/// deleted only after the dump has read it.
class CurrentTask : public NoCopyable {
  public:
    CurrentTask() = default;
    ~CurrentTask() { delete get(); }

    /// The task, or null. Called on the loop's thread.
    Runnable* get() const { return taskOf(_word.load(std::memory_order_relaxed)); }

    /// Sets the task, which may be null. Called on the loop's thread.
    /// REQUIRES: there is no task.
    void setLocked(std::unique_ptr<Runnable> task) {
        _word.store(reinterpret_cast<uintptr_t>(task.release()), std::memory_order_relaxed);
    }

    /// Removes the task and returns it. Waits for a thread that looks at it, which holds `mutex`.
    /// Called on the loop's thread.
    std::unique_ptr<Runnable> take(Mutex& mutex) {
        const uintptr_t word = _word.exchange(0, std::memory_order_acq_rel);
        if ((word & kWatched) != 0U) {
            const AutoLock untilSeen(mutex);
        }
        return std::unique_ptr<Runnable>(taskOf(word));
    }

    /// Removes the task and returns it. The caller's lock keeps other threads from looking.
    std::unique_ptr<Runnable> takeLocked() {
        return std::unique_ptr<Runnable>(taskOf(_word.exchange(0, std::memory_order_relaxed)));
    }

    /// Calls `see(task)` if there is a task, which is not deleted meanwhile. Returns true if there
    /// is one. Called on any thread.
    template <class See>
    bool lookLocked(See see) {
        Runnable* const task = taskOf(_word.fetch_or(kWatched, std::memory_order_acq_rel));
        if (task != nullptr) {
            see(*task);
        }
        _word.fetch_and(~kWatched, std::memory_order_release);
        return task != nullptr;
    }

  private:
    static constexpr uintptr_t kWatched = 1;

    static Runnable* taskOf(uintptr_t word) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): an address, and a bit that it does not use
        return reinterpret_cast<Runnable*>(word & ~kWatched);
    }

    std::atomic<uintptr_t> _word{0};
};

}  // namespace NIVUR

#endif
