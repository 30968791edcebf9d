#include "run_loop.h"

#include <algorithm>
#include <new>
#include <utility>

#include "log.h"
#include "private/assertion.h"
#include "private/intake.h"
#include "private/run_loop_parts.h"
#include "system_util.h"

namespace NIVUR {

namespace {

constexpr unsigned int kMaxSleepMs = 100;

thread_local const RunLoop* loopOfThisThread = nullptr;

bool actsOn(Runnable* task, const void* object) {
    return task != nullptr && task->getObject() == object;
}

}  // namespace

RunLoop::RunLoop(const std::string& name)
    : _name(name),
      _intake(std::make_unique<Intake<Runnable>>()),
      _items(std::make_unique<TaskQueue>()),
      _highPriorityItems(std::make_unique<TaskQueue>()),
      _sortedTimers(std::make_unique<TimerQueue<Timer>>()) {}

RunLoop::~RunLoop() {
    do {
        stop();
    } while (dropAll());  // a task's destructor may have called the loop
}

bool RunLoop::start(Thread::ThreadPriority priority) {
    {
        Dropped dropped;
        AutoLock lock(_mutex);
        dropItems(dropped);
    }
    return _thread.start(new Functor0<RunLoop, void (RunLoop::*)()>(this, &RunLoop::runLoopProc),
                         _name, priority);
}

void RunLoop::stop() {
    std::shared_ptr<Thread::Run> run;
    {
        AutoLock lock(_mutex);
        run = _thread.requestStop();
        if (_intake->close(*_items)) {
            _wakeSemaphore.notify();
        }
    }
    Thread::waitForRun(run);
}

void RunLoop::postItem(Runnable* item, bool highPriority, bool wait) {
    std::unique_ptr<Runnable> task(item);
    const bool atOnce = wait && isLoopThread();  // which could not wait for itself
    if ((atOnce || item == nullptr) && refused(getRefusal())) {
        return;
    }
    NIVUR_ASSERT(item);
    if (atOnce) {
        item->run();
    } else if (!wait) {
        enqueue(std::move(task), highPriority);
    } else {
        const auto done = std::make_shared<Semaphore>();
        task = std::make_unique<AwaitedTask>(std::move(task), done);
        if (enqueue(std::move(task), highPriority) && done->wait() == -1) {
            Log::log("NIVUR", LOG_ERROR, "Semaphore wait error, run loop item may not run");
        }
    }
}

/// Queues a task, or logs why not.
bool RunLoop::enqueue(std::unique_ptr<Runnable> task, bool highPriority) {
    return !refused(highPriority ? addFirst(task) : addLast(task));
}

/// Queues a high-priority task, or gives the log line of the refusal.
const char* RunLoop::addFirst(std::unique_ptr<Runnable>& task) {
    AutoLock lock(_mutex);
    const char* const refusal = getRefusal();
    if (refusal == nullptr) {
        _highPriorityItems->push(std::move(task));
        wake();
    }
    return refusal;
}

/// The same for a normal task, and without the lock.
const char* RunLoop::addLast(std::unique_ptr<Runnable>& task) {
    using Posts = Intake<Runnable>;
    Posts::Result result = Posts::CLOSED;
    while ((result = _intake->add(task)) == Posts::CLOSED) {
        if (const char* const refusal = getRefusal()) {
            return refusal;
        }
        openIntake();  // the loop's thread has started and not yet come to it
    }
    if (result == Posts::ADDED_ASLEEP) {
        _wakeSemaphore.notify();
    }
    return nullptr;  // the task may have run, and ended the loop
}

/// Ends the loop's sleep. The lock keeps the loop from running, and perhaps ending, before the
/// signal is given.
void RunLoop::wake() {
    if (_intake->endSleep()) {
        _wakeSemaphore.notify();
    }
}

/// Lets posts in while the loop runs. stop() sets the flag that is asked for and closes the intake
/// under one lock, so that none slips in behind it and is forgotten.
void RunLoop::openIntake() {
    AutoLock lock(_mutex);
    if (getRefusal() == nullptr) {
        _intake->open();
    }
}

/// The log line for a post that cannot be taken now, or null.
const char* RunLoop::getRefusal() const {
    if (_thread.isStopping()) {
        return "item cannot insert to runloop %s because of stopping";
    }
    if (!_thread.isStarted()) {
        return "item cannot insert to runloop %s because of not running";
    }
    return nullptr;
}

/// Whether there is a refusal, which is then in the log.
bool RunLoop::refused(const char* refusal) const {
    if (refusal != nullptr) {
        Log::log("NIVUR", LOG_ERROR, refusal, _name.c_str());
    }
    return refusal != nullptr;
}

bool RunLoop::isLoopThread() const {
    return loopOfThisThread == this;
}

void RunLoop::runLoopProc() {
    loopOfThisThread = this;
    openIntake();
    for (bool busy = false; !_thread.isStopping();) {
        if (!busy) {
            sleep();
        }
        busy = runPass();
    }
    Log::log("NIVUR", LOG_DEBUG, "thread %s break loop!", _name.c_str());
    {
        Gate gate(*this, Gate::LOOP_ITSELF);
        while (dropAll()) {
        }
    }
    loopOfThisThread = nullptr;
}

/// Runs what is due, and one task; false when there was nothing.
bool RunLoop::runPass() {
    Gate gate(*this, Gate::LOOP_ITSELF);
    const bool timersDue = select();
    if (timersDue) {
        runTimers();
        gate.reopen();
    }
    return runItem() || timersDue;
}

void RunLoop::sleep() {
    if (!_intake->beginSleep()) {
        return;
    }
    unsigned int sleepMs = 0;
    {
        // Looked at after the mark is set: who adds anything from here on finds it and signals.
        AutoLock lock(_mutex);
        sleepMs = getWaitTime();
    }
    const bool signalled = _wakeSemaphore.wait(sleepMs) == 0;
    if (!_intake->endSleep() && !signalled) {
        // Whoever has removed the mark is about to signal, and must not find the loop gone.
        _wakeSemaphore.wait();
    }
}

unsigned int RunLoop::getWaitTime() const {
    if (!_items->empty() || !_highPriorityItems->empty()) {
        return 0;
    }
    if (_sortedTimers->empty()) {
        return kMaxSleepMs;
    }
    const uint64_t now = SystemUtil::getCPUTime();
    const uint64_t next = _sortedTimers->first()->_nextTime;
    return now >= next ? 0 : static_cast<unsigned int>(std::min<uint64_t>(next - now, kMaxSleepMs));
}

/// Takes what this pass will run; true when there are timers among it.
bool RunLoop::select() {
    AutoLock lock(_mutex);
    collectDueTimers();
    _runningItem = _highPriorityItems->pop();
    if (_runningItem == nullptr) {
        _intake->take(*_items);
        _runningItem = _items->pop();
    }
    return !_runningTimers.empty();
}

void RunLoop::collectDueTimers() {
    uint64_t now = 0;
    const auto isDue = [&now](const Timer& timer) {
        now = now < timer._nextTime ? SystemUtil::getCPUTime() : now;
        return now >= timer._nextTime;
    };
    for (Timer* timer = nullptr; (timer = _sortedTimers->first()) != nullptr && isDue(*timer);) {
        try {
            _runningTimers.push_back(timer);
        } catch (const std::bad_alloc&) {
            break;  // it stays due, for a pass that has the memory
        }
        _sortedTimers->remove(*timer);
    }
    for (Timer* const timer : _runningTimers) {  // at the end, so that none is taken twice
        if (timer->_repeat) {
            timer->updateNextTime();
            ++timer->_holders;
            _sortedTimers->add(*timer);
        }
    }
}

void RunLoop::runTimers() {
    while (Timer* const timer = beginTimer()) {
        if (timer->_runnable != nullptr) {
            timer->_runnable->run();
        }
        endTimer(*timer);
    }
}

/// The first timer of the batch, held until endTimer(), or null.
RunLoop::Timer* RunLoop::beginTimer() {
    AutoLock lock(_mutex);
    if (_runningTimers.empty()) {
        return nullptr;
    }
    ++_runningTimers.front()->_holders;
    return _runningTimers.front();
}

void RunLoop::endTimer(Timer& timer) {
    Dropped dropped;
    AutoLock lock(_mutex);
    dropped.take(timer);
    // Unless the task has removed its own timer.
    if (!_runningTimers.empty() && _runningTimers.front() == &timer) {
        _runningTimers.pop_front();
        dropped.take(timer);
    }
}

bool RunLoop::runItem() {
    Runnable* running = nullptr;
    {
        AutoLock lock(_mutex);
        if (_runningItem == nullptr) {
            return false;  // nothing was queued, or it was cancelled after it was taken
        }
        _runningItemBegun = true;
        running = _runningItem.get();
    }
    running->run();
    std::unique_ptr<Runnable> finished;  // deleted behind the gate; its poster goes on then
    AutoLock lock(_mutex);
    finished.swap(_runningItem);
    _runningItemBegun = false;
    return true;
}

void RunLoop::dropItems(Dropped& dropped) {
    _intake->take(*_items);
    dropped.items.append(*_highPriorityItems);
    dropped.items.append(*_items);
}

/// Drops whatever is queued or pending; false when there was nothing.
bool RunLoop::dropAll() {
    Dropped dropped;
    AutoLock lock(_mutex);
    dropItems(dropped);
    _sortedTimers->removeIf([](const Timer&) { return true; },
                            [&dropped](Timer& timer) { dropped.take(timer); });
    return !dropped.empty();
}

long RunLoop::addTimer(Runnable* task, unsigned int interval, bool repeat) {
    std::unique_ptr<Runnable> offered(task);
    auto timer = std::make_unique<Timer>(std::move(offered), interval, repeat);
    const long id = timer->id();
    AutoLock lock(_mutex);
    timer->_sequence = ++_timersAdded;
    _sortedTimers->add(*timer);
    (void)timer.release();
    wake();
    return id;
}

void RunLoop::stopTimer(long id) {
    Dropped dropped;
    {
        AutoLock lock(_mutex);
        if (Timer* const pending = _sortedTimers->find(id)) {
            _sortedTimers->remove(*pending);
            dropped.take(*pending);
        }
        if (isLoopThread()) {  // another one finds the gate shut until the batch has run
            dropRunningTimer(id, dropped);
        }
    }
    Gate gate(*this);
}

/// Takes the timer with this id, if it is there, out of the batch of this pass.
void RunLoop::dropRunningTimer(long id, Dropped& dropped) {
    const auto due = std::find_if(_runningTimers.begin(), _runningTimers.end(),
                                  [id](const Timer* timer) { return *timer == id; });
    if (due != _runningTimers.end()) {
        dropped.take(**due);
        _runningTimers.erase(due);
    }
}

void RunLoop::resetTimer(long id) {
    AutoLock lock(_mutex);
    if (Timer* const pending = _sortedTimers->find(id)) {
        pending->resetNextTime();
        _sortedTimers->update(*pending);
    }
}

void RunLoop::cancelTasksForObject(void* object) {
    if (object == nullptr) {
        return;
    }
    if (!isLoopThread()) {
        Dropped dropped;
        AutoLock lock(_mutex);
        dropPending(object, dropped);  // at once: their posters need not wait for the running task
    }
    Dropped dropped;
    Gate gate(*this);
    AutoLock lock(_mutex);
    dropPending(object, dropped);  // what the running task has added meanwhile
    if (!_runningItemBegun && actsOn(_runningItem.get(), object)) {
        dropped.items.push(std::move(_runningItem));
    }
    const auto dropIfActing = [&](Timer* timer) {
        const bool acts = actsOn(timer->_runnable.get(), object);
        if (acts) {
            dropped.take(*timer);
        }
        return acts;
    };
    _runningTimers.erase(std::remove_if(_runningTimers.begin(), _runningTimers.end(), dropIfActing),
                         _runningTimers.end());
}

void RunLoop::dropPending(const void* object, Dropped& dropped) {
    const auto taskActs = [object](Runnable& task) { return actsOn(&task, object); };
    _intake->take(*_items);
    dropped.items.takeIf(*_highPriorityItems, taskActs);
    dropped.items.takeIf(*_items, taskActs);
    _sortedTimers->removeIf(
        [object](const Timer& timer) { return actsOn(timer._runnable.get(), object); },
        [&dropped](Timer& timer) { dropped.take(timer); });
}

void RunLoop::dumpLoopInfo() {
    std::string text = "dump thread info, _name: " + _name;
    const auto listTask = [&text](Runnable& task) { text += task.dump() + "\r\t"; };
    {
        AutoLock lock(_mutex);
        _intake->take(*_items);
        text += ", _items.size: " + std::to_string(_items->size());
        text += ", _highPriorityItems.size: " + std::to_string(_highPriorityItems->size());
        text += ", _sortedTimers.size: " + std::to_string(_sortedTimers->size());
        text += ", _runningTimers.size: " + std::to_string(_runningTimers.size());
        text += std::string(" , _hasRunningItem: ") + (_runningItem != nullptr ? "1" : "0");
        if (_runningItem != nullptr) {
            text += "\r _runningItem : \r\t" + _runningItem->dump();
        }
        if (!_runningTimers.empty()) {
            text += "\r _runningTimers : \r\t";
            for (const Timer* timer : _runningTimers) {
                text += (timer->_runnable != nullptr ? timer->_runnable->dump() : "") + "\r\t";
            }
        }
        if (!_items->empty()) {
            text += "\r _items : \r\t";
            _items->forEach(listTask);
        }
        if (!_highPriorityItems->empty()) {
            text += "\r _highPriorityItems : \r\t";
            _highPriorityItems->forEach(listTask);
        }
    }
    Log::log("NIVUR", LOG_WARN, "%s", text.c_str());
}

}  // namespace NIVUR
