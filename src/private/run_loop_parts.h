#ifndef NIVUR_PRIVATE_RUN_LOOP_PARTS_H
#define NIVUR_PRIVATE_RUN_LOOP_PARTS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "private/linked_queue.h"
#include "private/timer_queue.h"
#include "run_loop.h"
#include "system_util.h"

namespace NIVUR {

/// A queued task whose poster waits. Its end, however it comes, deletes the task and then releases
/// the poster.
class RunLoop::AwaitedTask : public Runnable, public NoCopyable {
  public:
    AwaitedTask(std::unique_ptr<Runnable> task, std::shared_ptr<Semaphore> done)
        : _task(std::move(task)), _done(std::move(done)) {}

    ~AwaitedTask() override {
        _task.reset();
        _done->notify();
    }

    void run() override { _task->run(); }
    void* getObject() override { return _task->getObject(); }
    std::string dump() override { return _task->dump(); }

  private:
    std::unique_ptr<Runnable> _task;
    const std::shared_ptr<Semaphore> _done;
};

/// A task that is due at a certain time, once or again and again.
struct RunLoop::Timer : NoCopyable {
    Timer(std::unique_ptr<Runnable> runnable, unsigned int interval, bool repeat)
        : _runnable(std::move(runnable)), _interval(interval), _repeat(repeat) {
        resetNextTime();
    }

    void updateNextTime() { _nextTime += _interval; }
    void resetNextTime() { _nextTime = SystemUtil::getCPUTime() + _interval; }
    long id() const { return reinterpret_cast<long>(_runnable.get()); }

    bool operator==(long other) const { return id() == other; }
    bool operator<(const Timer& other) const {
        return std::tie(_nextTime, _sequence) < std::tie(other._nextTime, other._sequence);
    }

    const std::unique_ptr<Runnable> _runnable;
    const unsigned int _interval;  // ms
    const bool _repeat;
    uint64_t _nextTime = 0;     // ms of the monotonic clock
    uint64_t _sequence = 0;     // the order of adding, which settles equal due times
    unsigned int _holders = 1;  // it may be pending, due and running at once

    // Its place in the heap of the pending timers, and in their index the next one and the link
    // that leads to this one; and the next one in the queue of the dropped.
    size_t _place = 0;
    Timer* _nextOfBucket = nullptr;
    Timer** _linkOfBucket = nullptr;
    Timer* _next = nullptr;
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
    TaskQueue items;
    LinkedQueue<Timer> timers;

    bool empty() const { return items.empty() && timers.empty(); }

    /// Takes a timer from one that held it, the last one's for good.
    void take(Timer& timer) {
        if (--timer._holders == 0) {
            timers.push(std::unique_ptr<Timer>(&timer));
        }
    }
};

}  // namespace NIVUR

#endif
