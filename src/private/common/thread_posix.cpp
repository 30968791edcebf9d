#include "thread.h"

#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <utility>

#include "log.h"
#include "private/assertion.h"

namespace NIVUR {

namespace {

int niceValue(Thread::ThreadPriority priority) {
    switch (priority) {
        case Thread::THREAD_PRIORITY_HIGH:
            return -16;
        case Thread::THREAD_PRIORITY_LOW:
            return 10;
        default:
            return 0;
    }
}

}  // namespace

/// A thread, and what it is started with. Any number of callers may wait for it; one of them joins
/// it.
struct Thread::Run {
    Run(std::unique_ptr<Runnable> itsTask, ThreadPriority itsPriority)
        : task(std::move(itsTask)), priority(itsPriority) {}

    /// Returns whether the calling thread is this one; also correct in destructors of thread-local
    /// objects. Compares both numbers: another thread may get the kernel id once this one has
    /// ended, and the handle once it is joined.
    bool isCaller() const {
        return ::pthread_equal(handle, ::pthread_self()) != 0 && id == getCurrentThreadID();
    }

    std::unique_ptr<Runnable> task;  // until the thread takes it
    const ThreadPriority priority;
    int error = 0;      // why the platform made no thread
    Semaphore started;  // signalled when id, name and priority are in place

    pthread_t handle{};
    std::atomic<int> id{INVALID_THREAD_ID};
    Mutex joining;  // held during the join: other callers wait for it
    bool joined NIVUR_GUARDED_BY(joining) = false;
};

Thread::Thread() = default;

Thread::~Thread() {
    waitForStop();
}

bool Thread::start(Runnable* runnable, const std::string& name, ThreadPriority priority) {
    NIVUR_ASSERT(runnable);
    std::unique_ptr<Runnable> task(runnable);
    // Made before _mutex is acquired and released after it, so that neither an allocation nor the
    // destructor of a refused task runs with the lock held.
    const auto run = std::make_shared<Run>(std::move(task), priority);
    if (const std::optional<std::string> runningName = launch(run, name)) {
        Log::log("NIVUR", LOG_WARN, "starting thread %s failed: thread already started as %s",
                 name.c_str(), runningName->c_str());
        return false;
    }
    if (run->error != 0) {
        Log::log("NIVUR", LOG_ERROR, "creating thread failed: err=%d", run->error);
        return false;
    }
    while (run->started.wait() != 0) {  // the thread starts even if the platform refuses a wait
    }
    return true;
}

/// Starts the thread of `run`, or records in it why the platform refuses. If a thread runs already,
/// nothing is started and that thread's name is returned.
std::optional<std::string> Thread::launch(const std::shared_ptr<Run>& run,
                                          const std::string& name) {
    for (;;) {
        // A join blocks, so it is done without the lock, and another start() may come in between.
        const std::shared_ptr<Run> ended = waitForEndedRun();
        AutoLock lock(_mutex);
        if (_started || (_thread != nullptr && _thread->isCaller())) {
            return _name;
        }
        if (_thread == ended) {
            create(run, name);
            return std::nullopt;
        }
    }
}

void Thread::create(const std::shared_ptr<Run>& run, const std::string& name) {
    _name = name;
    // The new thread acquires _mutex before it reads any field.
    run->error = ::pthread_create(&run->handle, nullptr, threadProc, this);
    if (run->error != 0) {
        _name.clear();
        return;
    }
    _stopping = false;
    _started = true;
    _thread = run;
}

void Thread::stop() {
    requestStop();
}

std::shared_ptr<Thread::Run> Thread::requestStop() {
    AutoLock lock(_mutex);
    if (_started) {
        _stopping = true;
    }
    return _thread;
}

void Thread::waitForStop() {
    std::shared_ptr<Run> run;
    {
        AutoLock lock(_mutex);
        run = _thread;
    }
    waitForRun(run);
}

/// Joins the last thread if it has ended, and returns it; null if it runs or there is none.
std::shared_ptr<Thread::Run> Thread::waitForEndedRun() {
    std::shared_ptr<Run> ended;
    {
        AutoLock lock(_mutex);
        ended = _started ? nullptr : _thread;
    }
    waitForRun(ended);
    return ended;
}

void Thread::waitForRun(const std::shared_ptr<Run>& run) {
    if (run == nullptr || run->isCaller()) {
        return;  // a thread cannot join itself: the next start(), wait or destructor joins it
    }
    int error = 0;
    {
        AutoLock joining(run->joining);
        if (run->joined) {
            return;
        }
        error = ::pthread_join(run->handle, nullptr);
        run->joined = error == 0;  // after a failure the next caller tries again
    }
    if (error != 0) {
        Log::log("NIVUR", LOG_ERROR, "thread_join() failed: err=%d", error);
    }
}

bool Thread::isStopping() const {
    return _stopping;
}

std::string Thread::getName() const {
    AutoLock lock(_mutex);
    return _name;
}

bool Thread::isStarted() const {
    AutoLock lock(_mutex);
    return _started;
}

int Thread::getThreadID() const {
    AutoLock lock(_mutex);
    return _threadID;
}

int Thread::getCurrentThreadID() {
    return static_cast<int>(::syscall(SYS_gettid));
}

void* Thread::threadProc(void* thread) {
    static_cast<Thread*>(thread)->runTask();
    return nullptr;
}

void Thread::runTask() {
    std::shared_ptr<Run> run;
    const char* name = nullptr;
    {
        AutoLock lock(_mutex);
        run = _thread;
        run->id = _threadID = getCurrentThreadID();
        name = _name.c_str();  // does not change as long as the thread runs
    }
    setThreadName(name);
    setPriority(run->priority, name);
    std::unique_ptr<Runnable> task = std::move(run->task);
    run->started.notify();
    task->run();
    // Its destructor may call this object: no lock is held, and the thread still counts as started.
    task.reset();

    AutoLock lock(_mutex);
    _stopping = false;
    _started = false;
    _name.clear();
    _threadID = INVALID_THREAD_ID;
}

void Thread::setThreadName(const char* name) {
    ::prctl(PR_SET_NAME, name);
}

void Thread::setPriority(ThreadPriority priority, const char* name) {
    // On Linux "process 0" means the calling thread alone.
    if (::setpriority(PRIO_PROCESS, 0, niceValue(priority)) != 0) {
        const int error = errno;
        Log::log("NIVUR", LOG_WARN, "Change the thread priority failed: %s, err=%d", name, error);
    }
}

}  // namespace NIVUR
