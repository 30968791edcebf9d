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

/// A named thread that runs posted tasks, timers, and tasks for ready descriptors, one at a time.
/// Each pass of the loop runs the due timers, the ready watches and at most one posted task.
/// High-priority tasks run first; tasks of one priority run in the order of posting. Any thread may
/// call any operation, also from a task of the loop or the destructor of a task.
///
/// The loop owns a task from the call on. It deletes tasks with no internal lock held. Operations
/// that wait for the running task, such as stopTimer(), also wait until it is deleted. stop() and
/// the destructor drop tasks, timers and watches until none is left: they do not return while
/// destructors or other threads keep adding them.
///
/// An exception that leaves a task ends the process, as does std::bad_alloc on the loop's thread. A
/// forked child must not use a loop that its parent had running.
/// REQUIRES for destruction: not called from a task of the loop, and no call is under way on
/// another thread.
class NIVUR_EXPORT RunLoop : public NoCopyable {
  public:
    /// What a watch waits for. A hang-up or an error makes a descriptor ready for both; end of
    /// stream from the peer makes it READABLE only.
    enum Readiness {
        READABLE,
        WRITABLE,
    };

    /// Makes a loop that is not running yet. Its thread will have `name`.
    explicit RunLoop(const std::string& name);

    /// Stops the loop and deletes all tasks, timers and watches that are left.
    virtual ~RunLoop();

    /// Starts the loop's thread. Returns false, and logs the reason, if it runs already or no
    /// thread can be made. It always drops queued tasks; timers and watches that were added before
    /// stay. An idle loop sleeps until there is work.
    bool start(Thread::ThreadPriority priority = Thread::THREAD_PRIORITY_NORMAL);

    /// Waits for the running pass, drops queued tasks, timers and watches, releases waiting
    /// posters, and returns when the loop's thread has ended. The loop may be started again. Called
    /// from a task of the loop, it returns at once, and the loop ends after the pass. If the loop
    /// is not running, timers and watches stay. Two loops whose tasks stop each other deadlock.
    void stop();

    /// Queues a task, before all normal ones if `highPriority`; a steady supply of high-priority
    /// tasks starves the normal ones. With `wait` it returns when the task has run and is deleted,
    /// or was dropped; the caller cannot tell which. A waiting post from a task of the same loop
    /// runs the task at once. Two loops that post to each other and wait deadlock.
    ///
    /// A loop that is not running, or is stopping, logs a refusal and deletes the task. If memory
    /// is exhausted, the task is deleted and std::bad_alloc is thrown. What the poster did before
    /// the post is visible to the task; what the task did is visible to a poster that waited.
    /// REQUIRES: item is not null.
    void postItem(Runnable* item, bool highPriority, bool wait);

    /// The number of posted tasks that the loop has not yet taken from its queues, for producers
    /// that limit their lead. Exact while no thread posts. Takes no lock.
    size_t queuedTasks() const;

    /// Adds a timer that runs its task once, `interval` milliseconds from now, or with `repeat`
    /// every `interval` milliseconds. The schedule does not drift, and missed runs are made up for,
    /// one in each pass. Timers that are due together run in order of due time, then of insertion.
    /// Due times are whole milliseconds of SystemUtil::getCPUTime(): measured by a finer clock, a
    /// timer may run up to a millisecond early.
    ///
    /// Accepted in every state of the loop. A null task never runs. Returns the timer's id: the
    /// address of its task, which may be reused once the task is deleted. If memory is exhausted,
    /// the task is deleted and std::bad_alloc is thrown.
    long addTimer(Runnable* task, unsigned int interval, bool repeat);

    /// Removes the timer with this id, if it exists. On another thread than the loop's it waits for
    /// what is running: a task, or all timers and watches of the pass. Do not call it with a lock
    /// held that a task of the loop acquires, nor from tasks of two loops for each other: either
    /// deadlocks.
    void stopTimer(long id);

    /// Restarts the timer with this id, if it is pending: it is due one whole interval from now.
    void resetTimer(long id);

    /// Adds a watch: it runs a task on the loop's thread while `descriptor` is ready, at most once
    /// in each pass, until the watch is removed. Ready watches run after due timers and before the
    /// pass's task, in the order of adding. While tasks keep coming, a ready descriptor waits for
    /// at most 16 of them. A task may find that an earlier one of the same pass has already read
    /// the data.
    ///
    /// A descriptor may have any number of watches, also of several loops. The caller keeps the
    /// descriptor, and removes its watches before closing it. Accepted in every state of the loop.
    ///
    /// Returns the watch's id, which is never 0 and never reused. Returns 0, with an error line and
    /// the task deleted, if the descriptor cannot be watched: it is not open, it is a regular file,
    /// or the process has no descriptors left for the two that the loop needs. If memory is
    /// exhausted, the task is deleted and std::bad_alloc is thrown.
    /// REQUIRES: task is not null.
    long addWatch(int descriptor, Readiness readiness, Runnable* task);

    /// Removes the watch with this id, if it exists. After it returns, the loop does not use the
    /// descriptor and the task does not run. On another thread than the loop's it waits for what is
    /// running; the warning of stopTimer() applies.
    void removeWatch(long id);

    /// Removes every task, timer and watch whose getObject() is `object`, and releases posters that
    /// wait for them; null removes nothing. On another thread than the loop's it waits for what is
    /// running; the warning of stopTimer() applies. After it returns, no task of the object starts,
    /// and those that ran are deleted; one that another thread is removing at that time may still
    /// exist.
    void cancelTasksForObject(void* object);

    /// Logs the loop's name, the sizes of its queues and the dump() of its tasks as one warning. It
    /// does not wait for the running task, so it also works while a task hangs.
    void dumpLoopInfo();

  private:
    struct State;

    const std::unique_ptr<State> _state;
};

}  // namespace NIVUR

#endif
