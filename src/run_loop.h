#ifndef NIVUR_RUN_LOOP_H
#define NIVUR_RUN_LOOP_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "export.h"
#include "mutex.h"
#include "runnable.h"
#include "semaphore.h"
#include "thread.h"

namespace NIVUR {

template <class Item>
class Intake;
template <class Item>
class LinkedQueue;
template <class Timer>
class TimerQueue;

/// A named thread that runs posted tasks one at a time, high-priority ones first and each kind in
/// the order of posting, and timers. Every operation may be called from any thread, also from a
/// task of the loop itself; a task may also be posted, or a timer added, by a task's destructor.
///
/// Tasks belong to the loop from the call on, and are deleted with no lock held that a caller could
/// wait for, except that the loop runs and deletes its tasks behind a gate: see stopTimer() and
/// cancelTasksForObject().
///
/// What a task throws, or memory that runs out on the loop's thread while a task allocates, ends
/// the process. A forked child must not touch a loop that its parent had running. REQUIRES for
/// destruction: not from a task of the loop itself, and no call under way on another thread.
class NIVUR_EXPORT RunLoop : public NoCopyable {
  public:
    /// A loop that is not running yet. Its thread will bear `name`.
    explicit RunLoop(const std::string& name);

    /// Stops the loop and deletes everything that it still holds.
    virtual ~RunLoop();

    /// Starts the loop's thread; false, with the reason logged, when it runs already or no thread
    /// can be made. Drops queued tasks either way; timers that were added before stay and run. An
    /// idle loop wakes ten times a second.
    bool start(Thread::ThreadPriority priority = Thread::THREAD_PRIORITY_NORMAL);

    /// Lets the running task end, drops queued tasks and timers, releases synchronous posters, and
    /// returns when the loop's thread has ended. The loop may be started again. Called from a task
    /// of the loop it returns at once and the loop ends after the task.
    void stop();

    /// Queues a task, before all normal ones if `highPriority`: those can starve behind a steady
    /// supply of high-priority ones. With `wait` it returns when the task has run and is deleted,
    /// or was dropped: nothing tells which. A waiting post from a task of the same loop runs the
    /// task at once; two loops that post to each other and wait do so for ever. A loop that is not
    /// running, or is stopping, logs that and deletes the task. When memory is exhausted the task
    /// is deleted and std::bad_alloc passes through. REQUIRES: item is not null.
    void postItem(Runnable* item, bool highPriority, bool wait);

    /// Adds a timer that runs its task `interval` milliseconds from now, once, or with `repeat`
    /// every `interval` milliseconds from then on: the schedule does not drift, and runs that were
    /// missed are made up for, one a pass. Timers that are due together run in the order of their
    /// due times, then of their adding. Accepted in every state of the loop; stop() drops it. A
    /// null task never runs. Returns the timer's id, the address of its task, which may recur once
    /// the task is gone. When memory is exhausted the task is deleted and std::bad_alloc passes
    /// through.
    long addTimer(Runnable* task, unsigned int interval, bool repeat);

    /// Removes the timer with this id, if there is one. From another thread it waits for a task
    /// that is running: never call it with a lock held that the task takes, nor from tasks of two
    /// loops for each other.
    void stopTimer(long id);

    /// Makes the timer with this id, if it is pending, due one whole interval from now.
    void resetTimer(long id);

    /// Removes every task and timer whose getObject() is `object`, releasing their posters; null
    /// removes nothing. From another thread it waits for a task that is running, and once it has
    /// returned nothing of that object starts and no task of it that ran is left, unless a third
    /// thread is about to remove it: never call it with a lock held that the task takes.
    void cancelTasksForObject(void* object);

    /// Logs the loop's name, the sizes of its queues and the dump() of its tasks as one warning. It
    /// never waits for a task: a loop that hangs in one shows it.
    void dumpLoopInfo();

  private:
    class AwaitedTask;
    class Gate;
    struct Dropped;
    struct Timer;
    using TaskQueue = LinkedQueue<Runnable>;

    // On the loop's thread.
    void runLoopProc();
    void sleep();
    bool runPass();
    bool select();
    void runTimers();
    Timer* beginTimer();
    void endTimer(Timer& timer);
    bool runItem();

    bool isLoopThread() const;
    const char* getRefusal() const;
    bool refused(const char* refusal) const;
    bool enqueue(std::unique_ptr<Runnable> task, bool highPriority);
    const char* addFirst(std::unique_ptr<Runnable>& task);
    const char* addLast(std::unique_ptr<Runnable>& task);
    void openIntake();
    void wake() NIVUR_REQUIRES(_mutex);

    unsigned int getWaitTime() const NIVUR_REQUIRES(_mutex);
    void collectDueTimers() NIVUR_REQUIRES(_mutex);
    void dropItems(Dropped& dropped) NIVUR_REQUIRES(_mutex);
    void dropPending(const void* object, Dropped& dropped) NIVUR_REQUIRES(_mutex);
    void dropRunningTimer(long id, Dropped& dropped) NIVUR_REQUIRES(_mutex);
    bool dropAll();

    // Taken to shut the gate and let go at once, so that all who want to take turns; by the loop
    // itself only when somebody else wants to.
    Mutex _turnMutex NIVUR_ACQUIRED_BEFORE(_runningMutex);
    std::atomic<unsigned int> _gateCallers{0};

    // The gate: shut while a batch of timers or a task runs and is deleted.
    Mutex _runningMutex NIVUR_ACQUIRED_BEFORE(_mutex);

    // The queue lock: held briefly, never while a task runs or is deleted. Only the lock of _thread
    // is taken inside it.
    mutable Mutex _mutex;

    const std::string _name;
    Thread _thread;
    Semaphore _wakeSemaphore;

    // Where posters leave normal tasks, without a lock. Whoever looks at _items empties it into
    // them first. It is closed when the loop is not running or is stopping.
    const std::unique_ptr<Intake<Runnable>> _intake;
    const std::unique_ptr<TaskQueue> _items NIVUR_PT_GUARDED_BY(_mutex);
    const std::unique_ptr<TaskQueue> _highPriorityItems NIVUR_PT_GUARDED_BY(_mutex);
    const std::unique_ptr<TimerQueue<Timer>> _sortedTimers NIVUR_PT_GUARDED_BY(_mutex);
    uint64_t _timersAdded NIVUR_GUARDED_BY(_mutex) = 0;

    // What the current pass has taken: the due timers, first to last, and at most one task.
    std::deque<Timer*> _runningTimers NIVUR_GUARDED_BY(_mutex);
    std::unique_ptr<Runnable> _runningItem NIVUR_GUARDED_BY(_mutex);
    bool _runningItemBegun NIVUR_GUARDED_BY(_mutex) = false;
};

}  // namespace NIVUR

#endif
