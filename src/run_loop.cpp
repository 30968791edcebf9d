#include "run_loop.h"

#include <algorithm>
#include <new>
#include <tuple>
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

template <class Task>
std::string describe(const Task& task) {
    return task._runnable ? task._runnable->dump() : std::string();
}

}  // namespace

RunLoop::Timer::Timer(SharedPtr<Runnable> runnable, unsigned int interval, bool repeat)
    : _runnable(std::move(runnable)),
      _interval(interval),
      _nextTime(SystemUtil::getCPUTime() + interval),
      _repeat(repeat) {}

void RunLoop::Timer::resetNextTime() {
    _nextTime = SystemUtil::getCPUTime() + _interval;
}

bool RunLoop::Timer::operator<(const Timer& other) const {
    return std::tie(_nextTime, _sequence) < std::tie(other._nextTime, other._sequence);
}

RunLoop::RunLoop(const std::string& name)
    : _name(name),
      _intake(std::make_unique<Intake<RunLoopItem>>()),
      _items(std::make_unique<ItemQueue>()),
      _highPriorityItems(std::make_unique<ItemQueue>()) {}

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
    if (!wait) {
        enqueue(item, highPriority, nullptr);
        return;
    }
    if (isLoopThread()) {
        runAtOnce(item);
        return;
    }
    std::unique_ptr<Runnable> offered(item);
    const auto done = std::make_shared<Semaphore>();
    if (enqueue(offered.release(), highPriority, done) && done->wait() == -1) {
        Log::log("NIVUR", LOG_ERROR, "Semaphore wait error, run loop item may not run");
    }
}

/// A waiting post from the loop's own thread, which could not wait for itself.
void RunLoop::runAtOnce(Runnable* item) {
    const std::unique_ptr<Runnable> task(item);
    if (const char* const refusal = getRefusal()) {
        Log::log("NIVUR", LOG_ERROR, refusal, _name.c_str());
        return;
    }
    NIVUR_ASSERT(item);
    item->run();
}

bool RunLoop::enqueue(Runnable* item, bool highPriority, std::shared_ptr<Semaphore> semaphore) {
    std::unique_ptr<Runnable> offered(item);
    auto entry = std::make_unique<RunLoopItem>(item, std::move(semaphore));
    (void)offered.release();
    const char* const refusal = highPriority ? addFirst(entry) : addLast(entry);
    if (refusal != nullptr) {
        Log::log("NIVUR", LOG_ERROR, refusal, _name.c_str());
    }
    return refusal == nullptr;
}

/// Queues a high-priority task, or gives the log line of the refusal.
const char* RunLoop::addFirst(std::unique_ptr<RunLoopItem>& entry) {
    const Runnable* const item = entry->_runnable.get();
    AutoLock lock(_mutex);
    const char* const refusal = getRefusal();
    if (refusal == nullptr) {
        NIVUR_ASSERT(item);
        _highPriorityItems->push(std::move(entry));
        wake();
    }
    return refusal;
}

/// The same for a normal task, and without the lock.
const char* RunLoop::addLast(std::unique_ptr<RunLoopItem>& entry) {
    using Posts = Intake<RunLoopItem>;
    const Runnable* const item = entry->_runnable.get();
    Posts::Result result = Posts::CLOSED;
    while (item == nullptr || (result = _intake->add(entry)) == Posts::CLOSED) {
        if (const char* const refusal = getRefusal()) {
            return refusal;
        }
        NIVUR_ASSERT(item);
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
    if (_sortedTimers.empty()) {
        return kMaxSleepMs;
    }
    const uint64_t now = SystemUtil::getCPUTime();
    const uint64_t next = _sortedTimers.begin()->_nextTime;
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
    std::set<Timer> rearmed;  // put back at the end, so that none is taken twice
    while (!_sortedTimers.empty() && SystemUtil::getCPUTime() >= _sortedTimers.begin()->_nextTime) {
        try {
            _runningTimers.push_back(*_sortedTimers.begin());
        } catch (const std::bad_alloc&) {
            break;  // it stays due, for a pass that has the memory
        }
        if (!_sortedTimers.begin()->_repeat) {
            extractTimer(_sortedTimers.begin());
            continue;
        }
        auto node = _sortedTimers.extract(_sortedTimers.begin());
        node.value().updateNextTime();
        rearmed.insert(std::move(node));
    }
    _sortedTimers.merge(rearmed);
}

void RunLoop::runTimers() {
    for (;;) {
        SharedPtr<Runnable> task;
        {
            AutoLock lock(_mutex);
            if (_runningTimers.empty()) {
                return;
            }
            task = _runningTimers.front()._runnable;
        }
        if (task) {
            task->run();
        }
        Dropped dropped;
        AutoLock lock(_mutex);
        // Unless the task has removed its own timer.
        if (!_runningTimers.empty() && _runningTimers.front()._runnable == task) {
            dropped.runningTimers.splice(dropped.runningTimers.begin(), _runningTimers,
                                         _runningTimers.begin());
        }
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
        running = _runningItem->_runnable.get();
    }
    running->run();
    std::unique_ptr<RunLoopItem> finished;  // deleted behind the gate; its poster goes on then
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
    dropped.timers.swap(_sortedTimers);
    _timersById.clear();
    return !dropped.empty();
}

std::set<RunLoop::Timer>::iterator RunLoop::findTimer(long id) const {
    const auto found = _timersById.find(id);
    return found == _timersById.end() ? _sortedTimers.end() : _sortedTimers.find(*found->second);
}

/// Takes a pending timer out, of the index too.
std::set<RunLoop::Timer>::node_type RunLoop::extractTimer(std::set<Timer>::iterator timer) {
    const auto sameId = _timersById.equal_range(timer->id());
    _timersById.erase(std::find_if(sameId.first, sameId.second,
                                   [timer](const auto& entry) { return entry.second == &*timer; }));
    return _sortedTimers.extract(timer);
}

long RunLoop::addTimer(Runnable* task, unsigned int interval, bool repeat) {
    SharedPtr<Runnable> owned(task);
    // Holds the timer, with no lock held, should memory for the index run out.
    std::set<Timer> added;
    const Timer& timer = *added.emplace(std::move(owned), interval, repeat).first;
    const long id = timer.id();
    AutoLock lock(_mutex);
    _timersById.emplace(id, &timer);
    auto node = added.extract(added.begin());
    node.value()._sequence = ++_timersAdded;
    _sortedTimers.insert(std::move(node));
    wake();
    return id;
}

void RunLoop::stopTimer(long id) {
    // Keeps the task to the end, lest another timer gets its address and so the id.
    Dropped dropped;
    {
        AutoLock lock(_mutex);
        const auto pending = findTimer(id);
        if (pending != _sortedTimers.end()) {
            dropped.timers.insert(extractTimer(pending));
        }
    }
    Gate gate(*this);
    AutoLock lock(_mutex);
    const auto due = std::find_if(_runningTimers.begin(), _runningTimers.end(),
                                  [id](const Timer& timer) { return timer == id; });
    if (due != _runningTimers.end()) {
        dropped.runningTimers.splice(dropped.runningTimers.begin(), _runningTimers, due);
    }
}

void RunLoop::resetTimer(long id) {
    AutoLock lock(_mutex);
    const auto pending = findTimer(id);
    if (pending != _sortedTimers.end()) {
        auto node = _sortedTimers.extract(pending);
        node.value().resetNextTime();
        _sortedTimers.insert(std::move(node));
    }
}

void RunLoop::cancelTasksForObject(void* object) {
    if (object == nullptr) {
        return;
    }
    {
        Dropped dropped;
        AutoLock lock(_mutex);
        dropPending(object, dropped);  // at once: their posters need not wait for the running task
    }
    Dropped dropped;
    Gate gate(*this);
    AutoLock lock(_mutex);
    dropPending(object, dropped);  // what the running task has added meanwhile
    if (_runningItem != nullptr && !_runningItemBegun && actsOn(*_runningItem, object)) {
        dropped.items.push(std::move(_runningItem));
    }
    for (auto next = _runningTimers.begin(); next != _runningTimers.end();) {
        const auto timer = next++;
        if (actsOn(*timer, object)) {
            dropped.runningTimers.splice(dropped.runningTimers.end(), _runningTimers, timer);
        }
    }
}

void RunLoop::dropPending(const void* object, Dropped& dropped) {
    _intake->take(*_items);
    dropped.take(*_highPriorityItems, object);
    dropped.take(*_items, object);
    for (auto next = _sortedTimers.begin(); next != _sortedTimers.end();) {
        const auto timer = next++;
        if (actsOn(*timer, object)) {
            dropped.timers.insert(extractTimer(timer));
        }
    }
}

void RunLoop::dumpLoopInfo() {
    std::string text = "dump thread info, _name: " + _name;
    const auto listTask = [&text](const auto& task) { text += describe(task) + "\r\t"; };
    {
        AutoLock lock(_mutex);
        _intake->take(*_items);
        text += ", _items.size: " + std::to_string(_items->size());
        text += ", _highPriorityItems.size: " + std::to_string(_highPriorityItems->size());
        text += ", _sortedTimers.size: " + std::to_string(_sortedTimers.size());
        text += ", _runningTimers.size: " + std::to_string(_runningTimers.size());
        text += std::string(" , _hasRunningItem: ") + (_runningItem != nullptr ? "1" : "0");
        if (_runningItem != nullptr) {
            text += "\r _runningItem : \r\t" + describe(*_runningItem);
        }
        if (!_runningTimers.empty()) {
            text += "\r _runningTimers : \r\t";
            std::for_each(_runningTimers.begin(), _runningTimers.end(), listTask);
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
