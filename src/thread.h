#ifndef NIVUR_THREAD_H
#define NIVUR_THREAD_H

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "export.h"
#include "mutex.h"
#include "no_copyable.h"
#include "runnable.h"
#include "semaphore.h"

namespace NIVUR {

/// Runs one task on a new named thread with a priority; may be started again when the task has
/// ended. Any thread may call any operation, also the running task.
///
/// The destructor waits for the task but does not ask it to stop: call stop() first. A forked child
/// does not have the thread: it may make new ones, but must not use or destroy this one.
/// REQUIRES for destruction: not called on the thread itself.
class NIVUR_EXPORT Thread : public NoCopyable {
  public:
    /// Scheduling priority. Raising it needs a privilege.
    enum ThreadPriority : int {
        THREAD_PRIORITY_HIGH = 0,    ///< nice value -16
        THREAD_PRIORITY_NORMAL = 1,  ///< nice value 0; so is any value that is not listed
        THREAD_PRIORITY_LOW = 2      ///< nice value 10
    };

    /// The id of a Thread that is not running.
    NIVUR_LOCAL static constexpr int INVALID_THREAD_ID = -1;

    Thread();
    virtual ~Thread();

    /// Starts a thread that runs `runnable`. The Thread owns `runnable`, and deletes it on the new
    /// thread when it has run. Returns true when the thread runs, with its id, name (of which the
    /// system shows 15 bytes) and priority in place. Returns false, with a log line and `runnable`
    /// deleted, if a thread runs already or none can be made. If the platform refuses the priority,
    /// the thread runs without it, with a log line. If memory is exhausted, `runnable` is deleted
    /// and std::bad_alloc is thrown.
    ///
    /// What the caller did before start() is visible to the task.
    /// REQUIRES: runnable is not null.
    bool start(Runnable* runnable, const std::string& name,
               ThreadPriority priority = THREAD_PRIORITY_NORMAL);

    /// Asks the running task to end: isStopping() returns true from now on. Does not interrupt the
    /// task.
    void stop();

    /// Returns true if the running task was asked to end.
    bool isStopping() const;

    /// Waits until the thread, if there is one, has ended. What its task did is then visible. On
    /// the thread itself it returns at once.
    void waitForStop();

    /// The name of the running thread; "" if there is none.
    std::string getName() const;

    /// Returns true from a start until the task has returned and is deleted.
    bool isStarted() const;

    /// The kernel's id of the running thread; INVALID_THREAD_ID if there is none.
    int getThreadID() const;

    /// The kernel's id of the calling thread.
    static int getCurrentThreadID();

  private:
    friend class RunLoop;

    /// A thread that was started. Any number of callers may wait for it; one of them joins it.
    struct Run;

    static void* threadProc(void* thread);
    void runTask();
    std::optional<std::string> launch(const std::shared_ptr<Run>& run, const std::string& name);
    void create(const std::shared_ptr<Run>& run, const std::string& name) NIVUR_REQUIRES(_mutex);
    std::shared_ptr<Run> requestStop();
    static void waitForRun(const std::shared_ptr<Run>& run);
    std::shared_ptr<Run> waitForEndedRun();
    static void setThreadName(const char* name);
    static void setPriority(ThreadPriority priority, const char* name);

    // Innermost lock: no other is acquired, and no code of a caller runs, while it is held.
    mutable Mutex _mutex;
    bool _started NIVUR_GUARDED_BY(_mutex) = false;
    std::atomic<bool> _stopping{false};  // written with _mutex held
    std::string _name NIVUR_GUARDED_BY(_mutex);
    int _threadID NIVUR_GUARDED_BY(_mutex) = INVALID_THREAD_ID;
    std::shared_ptr<Run> _thread NIVUR_GUARDED_BY(_mutex);  // the last one started
};

}  // namespace NIVUR

#endif
