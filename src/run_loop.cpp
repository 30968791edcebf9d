#include "run_loop.h"

#include <utility>

#include "log.h"
#include "private/assertion.h"
#include "private/common/clock.h"
#include "private/run_loop_state.h"
#include "system_util.h"

namespace NIVUR {

RunLoop::State::Refusal RunLoop::State::getRefusal() const {
    if (_thread.isStopping()) {
        return Refusal::STOPPING;
    }
    return _thread.isStarted() ? Refusal::NONE : Refusal::NOT_RUNNING;
}

void RunLoop::State::logRefusal(Refusal refusal) const {
    Log::log("NIVUR", LOG_ERROR, "item cannot insert to runloop %s because of %s", _name.c_str(),
             refusal == Refusal::STOPPING ? "stopping" : "not running");
}

/// Queues a task. If the loop refuses it, logs the reason, deletes the task and returns false.
bool RunLoop::State::post(std::unique_ptr<Runnable> task, bool highPriority) {
    const Refusal refusal = highPriority ? postHighPriority(task) : postNormal(task);
    if (refusal != Refusal::NONE) {
        logRefusal(refusal);
    }
    return refusal == Refusal::NONE;  // the task may have run and destroyed the loop
}

RunLoop::State::Refusal RunLoop::State::postNormal(std::unique_ptr<Runnable>& task) {
    _posted.fetch_add(1, std::memory_order_relaxed);
    for (;;) {
        switch (_intake.add(task)) {
            case Intake::ADDED:
                return Refusal::NONE;  // the task may have run and destroyed the loop
            case Intake::ADDED_ASLEEP:
                signal();
                return Refusal::NONE;
            default:
                break;
        }
        const Refusal refusal = getRefusal();
        if (refusal != Refusal::NONE) {
            _posted.fetch_sub(1, std::memory_order_relaxed);
            return refusal;
        }
        openIntake();  // the loop's thread has started, but has not opened it yet
    }
}

RunLoop::State::Refusal RunLoop::State::postHighPriority(std::unique_ptr<Runnable>& task) {
    bool owesSignal = false;
    {
        AutoLock lock(_mutex);
        const Refusal refusal = getRefusal();
        if (refusal != Refusal::NONE) {
            return refusal;
        }
        _posted.fetch_add(1, std::memory_order_relaxed);
        _highPriorityItems.push(std::move(task));
        owesSignal = _intake.endSleep();
    }
    if (owesSignal) {
        signal();
    }
    return Refusal::NONE;
}

/// Signals the loop after its mark was removed. The loop waits for this signal before it does
/// anything else, so it still exists.
void RunLoop::State::signal() {
    if (_sleepPlace != nullptr) {
        _sleepPlace->signal();
    } else {
        _wakeSemaphore.notify();
    }
}

/// On another thread than the loop's, makes the caller wait until nothing runs.
void RunLoop::State::enterGate(Gate::Waiter& waiter) {
    if (!isLoopThread()) {
        _gate.enter(waiter);
    }
}

/// Opens the intake if the loop runs. stop() sets the flag and closes the intake under the same
/// lock, so that no post is accepted after it. isStarted() is read under the thread's own lock:
/// otherwise the intake of a loop whose thread is just ending could be opened.
void RunLoop::State::openIntake() {
    AutoLock lock(_mutex);
    if (getRefusal() == Refusal::NONE) {
        _intake.open();
    }
}

RunLoop::RunLoop(const std::string& name) : _state(std::make_unique<State>(name)) {}

RunLoop::~RunLoop() {
    do {
        stop();
    } while (_state->dropAll());  // the destructor of a task may have added another one
}

bool RunLoop::start(Thread::ThreadPriority priority) {
    State& state = *_state;
    {
        TaskQueue dropped;
        AutoLock lock(state._mutex);
        state.dropItems(dropped);
    }
    using LoopProc = Functor0<State, void (State::*)()>;
    return state._thread.start(new LoopProc(&state, &State::runLoopProc), state._name, priority);
}

void RunLoop::stop() {
    State& state = *_state;
    std::shared_ptr<Thread::Run> run;
    bool owesSignal = false;
    {
        AutoLock lock(state._mutex);
        run = state._thread.requestStop();
        owesSignal = state._intake.close(state._items);
    }
    if (owesSignal) {
        state.signal();
    }
    Thread::waitForRun(run);
}

void RunLoop::postItem(Runnable* item, bool highPriority, bool wait) {
    State& state = *_state;
    std::unique_ptr<Runnable> task(item);
    const bool atOnce = wait && state.isLoopThread();  // the loop cannot wait for itself
    if (atOnce || item == nullptr) {
        const State::Refusal refusal = state.getRefusal();
        if (refusal != State::Refusal::NONE) {
            return state.logRefusal(refusal);
        }
    }
    NIVUR_ASSERT(item);
    if (atOnce) {
        item->run();
    } else if (!wait) {
        state.post(std::move(task), highPriority);
    } else {
        const auto done = std::make_shared<Semaphore>();
        task = std::make_unique<AwaitedTask>(std::move(task), done);
        if (state.post(std::move(task), highPriority) && done->wait() == -1) {
            Log::log("NIVUR", LOG_ERROR, "Semaphore wait error, run loop item may not run");
        }
    }
}

size_t RunLoop::queuedTasks() const {
    return _state->queuedTasks();
}

long RunLoop::addTimer(Runnable* task, unsigned int interval, bool repeat) {
    State& state = *_state;
    std::unique_ptr<Runnable> offered(task);
    auto timer =
        std::make_unique<Timer>(std::move(offered), interval, repeat, SystemUtil::getCPUTime());
    const long id = timer->id();
    bool owesSignal = false;
    {
        AutoLock lock(state._mutex);
        state.addTimer(timer);
        owesSignal = state._intake.endSleep();
    }
    if (owesSignal) {
        state.signal();
    }
    return id;
}

void RunLoop::stopTimer(long id) {
    State& state = *_state;
    Gate::Waiter waiter;
    {
        TaskQueue dropped;
        AutoLock lock(state._mutex);
        state.dropTimer(id, dropped);
        state.enterGate(waiter);
    }
    waiter.wait();
}

void RunLoop::resetTimer(long id) {
    State& state = *_state;
    uint64_t now = 1;
    {
        AutoLock lock(state._mutex);
        if (Timer* const pending = state._timers.find(id)) {
            // A reading from before the lock may be older than a run of the timer, or even than
            // the timer, if its id was used before.
            now = platform::monotonicMilliseconds();
            pending->restart(now);
            state._timers.update(*pending);
        }
    }
    if (now == 0) {
        SystemUtil::getCPUTime();  // logs why the clock cannot be read
    }
}

long RunLoop::addWatch(int descriptor, Readiness readiness, Runnable* task) {
    State& state = *_state;
    NIVUR_ASSERT(task);
    std::unique_ptr<Runnable> offered(task);
    const auto kind =
        readiness == READABLE ? platform::Poller::READABLE : platform::Poller::WRITABLE;
    auto watch = std::make_unique<Watch>(std::move(offered), descriptor, kind);
    int error = 0;
    long id = 0;
    bool owesSignal = false;
    {
        AutoLock lock(state._mutex);
        const bool first = state._watches == nullptr;
        error = state.addWatch(watch, id);
        // A loop that sleeps on its semaphore must wake and then sleep in the poller.
        owesSignal = first && state._intake.endSleep();
    }
    if (owesSignal) {
        state.signal();
    }
    if (error != 0) {
        Log::log("NIVUR", LOG_ERROR, "cannot watch descriptor %d: err=%d", descriptor, error);
    }
    return id;
}

void RunLoop::removeWatch(long id) {
    State& state = *_state;
    Gate::Waiter waiter;
    {
        TaskQueue dropped;
        AutoLock lock(state._mutex);
        state.dropWatch(id, dropped);
        state.enterGate(waiter);
    }
    waiter.wait();
}

void RunLoop::cancelTasksForObject(void* object) {
    if (object == nullptr) {
        return;
    }
    State& state = *_state;
    Gate::Waiter waiter(object);  // the loop also drops what the running task adds
    {
        TaskQueue dropped;  // deleted before the wait, so that their posters continue at once
        AutoLock lock(state._mutex);
        state.dropTasksOf(object, dropped);
        state.enterGate(waiter);
    }
    waiter.wait();
}

void RunLoop::dumpLoopInfo() {
    Log::log("NIVUR", LOG_WARN, "%s", _state->describe().c_str());
}

}  // namespace NIVUR
