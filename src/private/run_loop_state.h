#ifndef NIVUR_PRIVATE_RUN_LOOP_STATE_H
#define NIVUR_PRIVATE_RUN_LOOP_STATE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "mutex.h"
#include "private/common/poller.h"
#include "private/current_task.h"
#include "private/gate.h"
#include "private/intake.h"
#include "private/source.h"
#include "private/task_queue.h"
#include "private/timer_queue.h"
#include "private/watch_list.h"
#include "run_loop.h"
#include "semaphore.h"
#include "thread.h"

namespace NIVUR {

/// A queued task whose poster waits. Its destructor, however it is reached, deletes the task and
/// then releases the poster.
class AwaitedTask : public Runnable, public NoCopyable {
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

/// The state of a run loop and the work of its thread.
///
///     posts ------> _intake --drainTo()--> _items -+
///     urgent posts --------> _highPriorityItems ---+-select()--> _current ------> run, delete
///     timers --------------> _timers --------------+---------> _dueTimers -----> run, drop
///     watches -> _watches -> poller -> _events ----+---------> _readyWatches --> run, drop
///
/// In each pass the loop's thread takes the due timers, the ready watches and one task, all under
/// one acquisition of the queue lock, and runs them in this order. A loop that has nothing to do
/// sets the mark "asleep" in the intake and sleeps, on its semaphore or in the poller. The thread
/// that replaces the mark signals it. See Intake for that protocol, Gate for callers that wait
/// until nothing runs, and docs/architecture.md for the locks.
struct RunLoop::State : public NoCopyable {
    enum class Refusal { NONE, STOPPING, NOT_RUNNING };

    explicit State(const std::string& name) : _name(name) {}

    // -- Any thread

    bool isLoopThread() const { return _loopThread.load() == std::this_thread::get_id(); }
    Refusal getRefusal() const;
    void logRefusal(Refusal refusal) const;
    bool post(std::unique_ptr<Runnable> task, bool highPriority);
    Refusal postNormal(std::unique_ptr<Runnable>& task);
    Refusal postHighPriority(std::unique_ptr<Runnable>& task);
    void openIntake();
    void signal();
    size_t queuedTasks() const;
    void enterGate(Gate::Waiter& waiter) NIVUR_REQUIRES(_mutex);
    void addTimer(std::unique_ptr<Timer>& timer) NIVUR_REQUIRES(_mutex);
    int addWatch(std::unique_ptr<Watch>& watch, long& id) NIVUR_REQUIRES(_mutex);
    void countTaken(size_t count) NIVUR_REQUIRES(_mutex);
    void dropItems(TaskQueue& dropped) NIVUR_REQUIRES(_mutex);
    void dropTasksOf(const void* object, TaskQueue& dropped) NIVUR_REQUIRES(_mutex);
    void dropTimer(long id, TaskQueue& dropped) NIVUR_REQUIRES(_mutex);
    void dropWatch(long id, TaskQueue& dropped) NIVUR_REQUIRES(_mutex);
    template <class Predicate>
    void dropReadyIf(Predicate wanted, TaskQueue& dropped) NIVUR_REQUIRES(_mutex);
    bool dropAll();
    std::string describe();
    void describeWatches(std::string& text) NIVUR_REQUIRES(_mutex);

    // -- The loop's thread

    /// What a pass has taken besides a task, and whether tasks are left.
    enum Selection : unsigned int { TIMERS = 1, WATCHES = 2, MORE_TASKS = 4 };

    void runLoopProc();
    bool runPass();
    void fetchEvents();
    unsigned int select();
    void collectDueTimers() NIVUR_REQUIRES(_mutex);
    void collectReadyWatches() NIVUR_REQUIRES(_mutex);
    void takeTask() NIVUR_REQUIRES(_mutex);
    template <class Kind>
    void runBatch(Batch<Kind> State::*batch);
    template <class Kind>
    Kind* next(Batch<Kind> State::*batch, Kind* finished);
    template <class Kind>
    Kind* begin(Batch<Kind>& batch) NIVUR_REQUIRES(_mutex);
    void runTask();
    void passGate(bool open);
    Gate::Waiter* letThrough() NIVUR_REQUIRES(_mutex);
    void sleep();
    uint64_t prepareSleep();
    bool sleepUntil(uint64_t due);
    static unsigned int timeUntil(uint64_t due);

    // -- Constant after construction, or with synchronisation of their own

    const std::string _name;
    Thread _thread;
    std::atomic<std::thread::id> _loopThread{};
    std::atomic<platform::Poller*> _poller{nullptr};  // from the first watch on
    Semaphore _wakeSemaphore;
    Intake _intake;
    std::atomic<size_t> _posted{0};
    std::atomic<size_t> _taken{0};  // to be run or dropped; written with _mutex held

    // -- The queue lock: held briefly, never while a task runs or is deleted. Only the lock of
    //    _thread is acquired inside it. It guards everything down to the next heading.

    Mutex _mutex;
    Gate _gate NIVUR_GUARDED_BY(_mutex);
    TaskQueue _items NIVUR_GUARDED_BY(_mutex);  // drain the intake into it before reading it
    TaskQueue _highPriorityItems NIVUR_GUARDED_BY(_mutex);
    TimerQueue _timers NIVUR_GUARDED_BY(_mutex);
    uint64_t _timersAdded NIVUR_GUARDED_BY(_mutex) = 0;
    std::unique_ptr<WatchList> _watches NIVUR_GUARDED_BY(_mutex);  // from the first watch on

    // What the pass has taken. Other threads only read it, and remove ready watches.
    Batch<Timer> _dueTimers NIVUR_GUARDED_BY(_mutex);
    Batch<Watch> _readyWatches NIVUR_GUARDED_BY(_mutex);
    const Source* _runningSource NIVUR_GUARDED_BY(_mutex) = nullptr;
    CurrentTask _current;

    // -- The loop's thread alone

    bool _currentBegun = false;
    size_t _events = 0;  // fetched from the poller and not yet collected
    unsigned int _passesSinceEvents = 0;
    bool _watching = false;                   // whether the last selection found watches
    platform::Poller* _sleepPlace = nullptr;  // null: the semaphore; read by the signaller
};

}  // namespace NIVUR

#endif
