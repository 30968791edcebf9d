#ifndef NIVUR_PRIVATE_CURRENT_TASK_H
#define NIVUR_PRIVATE_CURRENT_TASK_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "mutex.h"
#include "no_copyable.h"
#include "runnable.h"

namespace NIVUR {

/// The task that a pass has taken, which the loop's thread gives and takes back and which other
/// threads may describe meanwhile. One word holds its address and a bit that says that somebody is
/// looking at it: the loop's thread needs the queue lock to take the task back only when that bit
/// is set. Operations called "locked" REQUIRE that lock.
class CurrentTask : public NoCopyable {
  public:
    CurrentTask() = default;
    ~CurrentTask() { delete get(); }

    /// The task, or null. On the loop's thread.
    Runnable* get() const { return taskOf(_word.load(std::memory_order_relaxed)); }

    /// Puts a task, or null, where none is. On the loop's thread.
    void setLocked(std::unique_ptr<Runnable> task) {
        _word.store(reinterpret_cast<uintptr_t>(task.release()), std::memory_order_relaxed);
    }

    /// Takes the task back, having waited for who looks at it under `mutex`. On the loop's thread.
    std::unique_ptr<Runnable> take(Mutex& mutex) {
        const uintptr_t word = _word.exchange(0, std::memory_order_acq_rel);
        if ((word & kWatched) != 0U) {
            const AutoLock untilSeen(mutex);
        }
        return std::unique_ptr<Runnable>(taskOf(word));
    }

    /// The same when the lock keeps others from looking.
    std::unique_ptr<Runnable> takeLocked() {
        return std::unique_ptr<Runnable>(taskOf(_word.exchange(0, std::memory_order_relaxed)));
    }

    /// Calls `see(task)` if there is one, which stays until `see` has returned, and tells whether
    /// there is. On any thread.
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
