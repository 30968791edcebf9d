#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

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
            startSemaphore.wait();
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
    for (;;) {
        joinEnded();
        AutoLock lock(_mutex);
        if (_started) {
            runningName = _name;
            return kAlreadyStarted;
        }
        if (_thread != 0) {
            continue;  // another start came first, and its thread has ended by now
        }
        _name = name;
        pthread_t handle = 0;
        // The new thread waits for _mutex before it looks at any of this.
        const int error = ::pthread_create(&handle, nullptr, threadProc, this);
        if (error != 0) {
            clear();
            return error;
        }
        _stopping = false;
        _started = true;
        _runnable = task.release();
        _priority = priority;
        _startSemaphore = &startSemaphore;
        _thread = handle;
        ++_run;
        return 0;
    }
}

void Thread::stop() {
    requestStop();
}

unsigned int Thread::requestStop() {
    AutoLock lock(_mutex);
    if (_started) {
        _stopping = true;
    }
    return _run;
}

void Thread::waitForStop() {
    _mutex.lock();
    const unsigned int run = _run;
    _mutex.unlock();
    waitForRun(run);
}

void Thread::joinEnded() {
    _mutex.lock();
    const bool ended = !_started;
    const unsigned int run = _run;
    _mutex.unlock();
    if (ended) {
        waitForRun(run);
    }
}

void Thread::waitForRun(unsigned int run) {
    if (getThreadID() == getCurrentThreadID()) {
        return;  // a thread cannot join itself: the next start, wait or destructor does it
    }
    int error = 0;
    {
        AutoLock joining(_joinMutex);
        _mutex.lock();
        const pthread_t handle = _run == run ? _thread : 0;
        _mutex.unlock();
        if (handle == 0) {
            return;
        }
        error = ::pthread_join(handle, nullptr);
        AutoLock lock(_mutex);
        _thread = 0;
    }
    if (error != 0) {
        Log::log("NIVUR", LOG_ERROR, "thread_join() failed: err=%d", error);
    }
}

bool Thread::isStopping() const {
    AutoLock lock(_mutex);
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
    setThreadName(_name);
    const ThreadPriority priority = _priority;
    Runnable* const task = _runnable;
    Semaphore* const startSemaphore = std::exchange(_startSemaphore, nullptr);
    _mutex.unlock();

    setPriority(priority);
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

void Thread::setThreadName(const std::string& name) {
    ::prctl(PR_SET_NAME, name.c_str());
}

void Thread::setPriority(ThreadPriority priority) {
    // On Linux "process 0" is the calling thread alone.
    if (::setpriority(PRIO_PROCESS, 0, niceValue(priority)) != 0) {
        const int error = errno;
        Log::log("NIVUR", LOG_WARN, "Change the thread priority failed: %s, err=%d",
                 getName().c_str(), error);
    }
}

}  // namespace NIVUR
