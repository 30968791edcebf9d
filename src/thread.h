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

/// Runs one task on a new named thread of a chosen priority, and can do so again when it has ended.
/// Any thread may call any operation, the running task included.
/// REQUIRES for destruction: not on the thread itself. The destructor waits for the task, which
/// nothing but stop() tells to end. A forked child does not have the thread: it may make new ones,
/// and must neither use nor destroy this one.
class NIVUR_EXPORT Thread : public NoCopyable {
  public:
    /// How much of the processor a thread gets beside others. Raising it needs a privilege.
    enum ThreadPriority : int {
        THREAD_PRIORITY_HIGH = 0,    ///< nice value -16
        THREAD_PRIORITY_NORMAL = 1,  ///< nice value 0, as for any value that is not listed
        THREAD_PRIORITY_LOW = 2      ///< nice value 10
    };

    /// The thread id of a Thread that is not running.
    NIVUR_LOCAL static constexpr int INVALID_THREAD_ID = -1;

    Thread();
    virtual ~Thread();

    /// Starts a thread that runs `runnable`, which is owned from here on and deleted on the new
    /// thread when it has run. Returns true when the thread runs, with its id, name (the system
    /// shows 15 bytes of it) and priority in place; false, with a log line and `runnable` deleted,
    /// when one runs already or none can be made. A priority that is refused costs a log line only.
    /// When memory is exhausted `runnable` is deleted and std::bad_alloc passes through.
    /// REQUIRES: runnable is not null.
    bool start(Runnable* runnable, const std::string& name,
               ThreadPriority priority = THREAD_PRIORITY_NORMAL);

    /// Asks the running task to end: isStopping() is true from now on. Nothing interrupts it.
    void stop();

    /// True when the running task was asked to end.
    bool isStopping() const;

    /// Waits until the thread, if there is one, has ended. On the thread itself it returns at once.
    void waitForStop();

    /// The name of the running thread, or "".
    std::string getName() const;

    /// True from a start until its task has returned and is deleted.
    bool isStarted() const;

    /// The kernel's id of the running thread, or INVALID_THREAD_ID.
    int getThreadID() const;

    /// The kernel's id of the calling thread.
    static int getCurrentThreadID();

  private:
    friend class RunLoop;

    /// One thread that was started, which several may wait for and one joins.
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

    // Innermost: nothing else is locked, and no code of a caller runs, while it is held.
    mutable Mutex _mutex;
    bool _started NIVUR_GUARDED_BY(_mutex) = false;
    std::atomic<bool> _stopping{false};  // written with _mutex held
    std::string _name NIVUR_GUARDED_BY(_mutex);
    int _threadID NIVUR_GUARDED_BY(_mutex) = INVALID_THREAD_ID;
    std::shared_ptr<Run> _thread NIVUR_GUARDED_BY(_mutex);  // the last one started
};

}  // namespace NIVUR

#endif
