#ifndef NIVUR_PRIVATE_RUN_LOOP_PARTS_H
#define NIVUR_PRIVATE_RUN_LOOP_PARTS_H

#include <list>
#include <memory>
#include <set>
#include <utility>

#include "private/linked_queue.h"
#include "run_loop.h"

namespace NIVUR {

/// Whether a queued task or a timer is one for `object`.
template <class Task>
bool actsOn(const Task& task, const void* object) {
    return task._runnable && task._runnable->getObject() == object;
}

/// Its end, however it comes, deletes the task and then releases the poster that waits.
struct RunLoop::RunLoopItem : NoCopyable {
    RunLoopItem(Runnable* runnable, std::shared_ptr<Semaphore> semaphore)
        : _runnable(runnable), _semaphore(std::move(semaphore)) {}

    ~RunLoopItem() {
        _runnable.reset();
        if (_semaphore != nullptr) {
            _semaphore->notify();
        }
    }

    std::unique_ptr<Runnable> _runnable;
    std::shared_ptr<Semaphore> _semaphore;  // of the poster that waits, or null
    RunLoopItem* _next = nullptr;           // in the queue that holds it
};

/// Keeps the gate shut for a scope, except on the loop's own thread, when a task calls: that is
/// behind it already.
class RunLoop::Gate : public NoCopyable {
  public:
    enum Caller { LOOP_ITSELF, ANYBODY };

    explicit Gate(RunLoop& loop, Caller caller = ANYBODY)
        : _loop(loop), _caller(caller), _shuts(caller == LOOP_ITSELF || !loop.isLoopThread()) {
        shut();
    }

    ~Gate() { open(); }

    /// Lets in who waits.
    void reopen() {
        open();
        shut();
    }

  private:
    // Whether a lock is taken depends on the thread, which the analysis cannot follow.
    void shut() NIVUR_NO_THREAD_SAFETY_ANALYSIS {
        if (_shuts && _caller == ANYBODY) {
            ++_loop._gateCallers;
            AutoLock turn(_loop._turnMutex);
            _loop._runningMutex.lock();
            --_loop._gateCallers;
        } else if (_shuts) {
            if (_loop._gateCallers != 0) {
                AutoLock turn(_loop._turnMutex);
            }
            _loop._runningMutex.lock();
        }
    }

    void open() NIVUR_NO_THREAD_SAFETY_ANALYSIS {
        if (_shuts) {
            _loop._runningMutex.unlock();
        }
    }

    RunLoop& _loop;
    const Caller _caller;
    const bool _shuts;
};

/// What was taken out under the queue lock, to be deleted without it: declare it before the lock.
struct RunLoop::Dropped {
    ItemQueue items;
    std::list<Timer> runningTimers;
    std::set<Timer> timers;

    bool empty() const { return items.empty() && timers.empty(); }

    void take(ItemQueue& queue, const void* object) {
        items.takeIf(queue, [object](const RunLoopItem& item) { return actsOn(item, object); });
    }
};

}  // namespace NIVUR

#endif
