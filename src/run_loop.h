#ifndef NIVUR_RUN_LOOP_H
#define NIVUR_RUN_LOOP_H

#include <cstddef>
#include <memory>
#include <string>

#include "export.h"
#include "no_copyable.h"
#include "runnable.h"
#include "thread.h"

namespace NIVUR {

/// A named thread that runs posted tasks one at a time, high-priority ones first and each kind in
/// the order of posting; timers; and tasks for descriptors that become ready. Every operation may
/// be called from any thread, also from a task of the loop itself or from a task's destructor.
///
/// The loop owns a task from the call on. Tasks are deleted with no internal lock held; those that
/// ran, before other threads pass the loop's gate: see stopTimer() and cancelTasksForObject().
/// stop() and the destructor of the loop drop tasks, timers and watches until none is left: neither
/// returns while destructors or other threads keep adding them.
///
/// What a task throws, or memory that runs out on the loop's thread while a task allocates, ends
/// the process. A forked child must not touch a loop that its parent had running. REQUIRES for
/// destruction: not from a task of the loop itself, and no call under way on another thread.
class NIVUR_EXPORT RunLoop : public NoCopyable {
  public:
    /// What a watch waits for. The end of a descriptor, or an error, makes it ready for both; that
    /// the peer will send no more makes it READABLE only.
    enum Readiness {
        READABLE,
        WRITABLE,
    };

    /// A loop that is not running yet. Its thread will bear `name`.
    explicit RunLoop(const std::string& name);

    /// Stops the loop and deletes everything that it still holds.
    virtual ~RunLoop();

    /// Starts the loop's thread; false, with the reason logged, when it runs already or no thread
    /// can be made. Drops queued tasks either way; timers and watches that were added before stay.
    /// An idle loop sleeps until there is work.
    bool start(Thread::ThreadPriority priority = Thread::THREAD_PRIORITY_NORMAL);

    /// Lets the running task end, drops queued tasks, timers and watches, releases synchronous
    /// posters, and returns when the loop's thread has ended. The loop may be started again. Called
    /// from a task of the loop it returns at once and the loop ends after the task. On a loop that
    /// is not running, timers and watches stay. Two loops whose tasks stop each other deadlock.
    void stop();

    /// Queues a task, before all normal ones if `highPriority`: those can starve behind a steady
    /// supply of high-priority ones. With `wait` it returns when the task has run and is deleted,
    /// or was dropped; the caller cannot tell which. A waiting post from a task of the same loop
    /// runs the task at once; two loops that post to each other and wait deadlock. A loop that is
    /// not running, or is stopping, logs that and deletes the task. When memory is exhausted the
    /// task is deleted and std::bad_alloc passes through. What the poster did before is visible to
    /// the task, and what the task did to a poster that waited. REQUIRES: item is not null.
    void postItem(Runnable* item, bool highPriority, bool wait);

    /// The number of posted tasks that the loop has not taken to run, for a producer that must not
    /// run ahead: exact when nobody is posting, and never in need of a lock.
    size_t queuedTasks() const;

    /// Adds a timer that runs its task `interval` milliseconds from now, once, or with `repeat`
    /// every `interval` milliseconds from then on: the schedule does not drift, and runs that were
    /// missed are made up for, one a pass. Due times are whole milliseconds of
    /// SystemUtil::getCPUTime(): measured by a finer clock, a timer may run up to a millisecond
    /// early. Timers that are due together run in order of due time, then of insertion. Accepted in
    /// every state of the loop. A null task never runs. Returns the timer's id, the address of its
    /// task, which may recur once the task is gone. When memory is exhausted the task is deleted
    /// and std::bad_alloc passes through.
    long addTimer(Runnable* task, unsigned int interval, bool repeat);

    /// Removes the timer with this id, if there is one. From another thread it waits for what is
    /// running: a task, or all timers and watches of the pass. Never call it with a lock held that
    /// a task of the loop takes, nor from tasks of two loops for each other.
    void stopTimer(long id);

    /// Makes the timer with this id, if it is pending, due one whole interval from now.
    void resetTimer(long id);

    /// Runs a task on the loop's thread as long as `descriptor` is ready, at most once a pass,
    /// until the watch is removed. Ready watches run after due timers and before the pass's task,
    /// in the order of adding; while tasks keep coming a ready descriptor waits for 16 of them at
    /// most. A task may find that an earlier one of the same pass has taken what was there. A
    /// descriptor may have any number of watches, also of several loops. Accepted in every state of
    /// the loop. The descriptor stays the caller's: remove its watches before closing it. Returns
    /// the watch's id, which is never 0 and never recurs; or 0, with an error line and the task
    /// deleted, for what cannot be watched: no open descriptor, a regular file, or none left for
    /// the two that the loop needs itself. When memory is exhausted the task is deleted and
    /// std::bad_alloc passes through. REQUIRES: task is not null.
    long addWatch(int descriptor, Readiness readiness, Runnable* task);

    /// Removes the watch with this id, if there is one. Once it has returned the loop touches the
    /// descriptor no more and the task neither runs nor will: from another thread it waits for what
    /// is running, with the same warning as stopTimer().
    void removeWatch(long id);

    /// Removes every task, timer and watch whose getObject() is `object`, releasing their posters;
    /// null removes nothing. From another thread it waits for what is running, with the same
    /// warning as stopTimer(). After it returns no task of the object starts, and those that ran
    /// are deleted, unless another thread is just removing one.
    void cancelTasksForObject(void* object);

    /// Logs the loop's name, the sizes of its queues and the dump() of its tasks as one warning. It
    /// never waits for a task: a loop that hangs in one shows it.
    void dumpLoopInfo();

  private:
    struct State;

    const std::unique_ptr<State> _state;
};

}  // namespace NIVUR

#endif
