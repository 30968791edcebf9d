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
#include "thread.h"

namespace NIVUR {

namespace {

constexpr int kAlreadyStarted = -1;

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

struct Thread::Run {
    /// Whether the caller is this thread, which it may also be in the destructors of its
    /// thread-locals. The handle is another's once the thread is joined, which others learn later,
    /// and the kernel's id once it has ended: only together they tell.
    bool isCaller() const {
        return ::pthread_equal(handle, ::pthread_self()) != 0 && id == getCurrentThreadID();
    }

    pthread_t handle{};
    std::atomic<int> id{INVALID_THREAD_ID};
    Mutex joining;  // held during the join: whoever else waits for this thread waits here
    bool joined NIVUR_GUARDED_BY(joining) = false;
};

Thread::Thread() = default;

Thread::~Thread() {
    waitForStop();
}

bool Thread::start(Runnable* runnable, const std::string& name, ThreadPriority priority) {
    NIVUR_ASSERT(runnable);
    std::unique_ptr<Runnable> task(runnable);  // a refused one is deleted with no lock held
    std::string runningName;
    Semaphore startSemaphore;
    switch (const int error = launch(task, name, priority, startSemaphore, runningName)) {
        case 0:
            while (startSemaphore.wait() != 0) {  // the new thread needs it until then
            }
            return true;
        case kAlreadyStarted:
            Log::log("NIVUR", LOG_WARN, "starting thread %s failed: thread already started as %s",
                     name.c_str(), runningName.c_str());
            return false;
        default:
            Log::log("NIVUR", LOG_ERROR, "creating thread failed: err=%d", error);
            return false;
    }
}

int Thread::launch(std::unique_ptr<Runnable>& task, const std::string& name,
                   ThreadPriority priority, Semaphore& startSemaphore, std::string& runningName) {
    auto run = std::make_shared<Run>();
    for (;;) {
        const std::shared_ptr<Run> ended = waitForEndedRun();
        AutoLock lock(_mutex);
        if (_started || (_thread != nullptr && _thread->isCaller())) {
            runningName = _name;
            return kAlreadyStarted;
        }
        if (_thread != ended) {
            continue;  // another start came first, and its thread has ended by now
        }
        _name = name;
        // The new thread waits for _mutex before it looks at any of this.
        const int error = ::pthread_create(&run->handle, nullptr, threadProc, this);
        if (error != 0) {
            clear();
            return error;
        }
        _stopping = false;
        _started = true;
        _runnable = task.release();
        _priority = priority;
        _startSemaphore = &startSemaphore;
        _thread = std::move(run);
        return 0;
    }
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
    _mutex.lock();
    const std::shared_ptr<Run> run = _thread;
    _mutex.unlock();
    waitForRun(run);
}

/// Joins the last thread if it has ended but was never joined, and gives it.
std::shared_ptr<Thread::Run> Thread::waitForEndedRun() {
    _mutex.lock();
    std::shared_ptr<Run> ended = _started ? nullptr : _thread;
    _mutex.unlock();
    waitForRun(ended);
    return ended;
}

void Thread::waitForRun(const std::shared_ptr<Run>& run) {
    if (run == nullptr || run->isCaller()) {
        return;  // a thread cannot join itself: the next start, wait or destructor does it
    }
    int error = 0;
    {
        AutoLock joining(run->joining);
        if (run->joined) {
            return;
        }
        error = ::pthread_join(run->handle, nullptr);
        run->joined = error == 0;  // or the next one to wait tries again
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
    _mutex.lock();
    _threadID = getCurrentThreadID();
    _thread->id = _threadID;
    const char* const name = _name.c_str();  // stays as long as the thread runs
    setThreadName(name);
    const ThreadPriority priority = _priority;
    Runnable* const task = _runnable;
    Semaphore* const startSemaphore = std::exchange(_startSemaphore, nullptr);
    _mutex.unlock();

    setPriority(priority, name);
    startSemaphore->notify();
    task->run();
    delete task;  // with no lock held and the thread still started: it may ask this object anything

    AutoLock lock(_mutex);
    clear();
}

void Thread::clear() {
    _stopping = false;
    _runnable = nullptr;
    _name.clear();
    _started = false;
    _threadID = INVALID_THREAD_ID;
    _startSemaphore = nullptr;
    _priority = THREAD_PRIORITY_NORMAL;
}

void Thread::setThreadName(const char* name) {
    ::prctl(PR_SET_NAME, name);
}

void Thread::setPriority(ThreadPriority priority, const char* name) {
    // On Linux "process 0" is the calling thread alone.
    if (::setpriority(PRIO_PROCESS, 0, niceValue(priority)) != 0) {
        const int error = errno;
        Log::log("NIVUR", LOG_WARN, "Change the thread priority failed: %s, err=%d", name, error);
    }
}

}  // namespace NIVUR
