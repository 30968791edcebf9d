#include "run_loop.h"

#include <algorithm>
#include <new>
#include <tuple>
#include <utility>

#include "log.h"
#include "private/assertion.h"
#include "system_util.h"

namespace NIVUR {

namespace {

constexpr unsigned int kMaxSleepMs = 100;

bool actsOn(const SharedPtr<Runnable>& task, const void* object) {
    return task && task->getObject() == object;
}

std::string describe(const SharedPtr<Runnable>& task) {
    return task ? task->dump() : std::string();
}

template <class Tasks>
void describeAll(std::string& text, const char* title, const Tasks& tasks) {
    if (tasks.empty()) {
        return;
    }
    text += title;
    for (const auto& task : tasks) {
        text += describe(task._runnable) + "\r\t";
    }
}

}  // namespace

/// Keeps the gate shut for a scope, except on the loop's own thread, when a task calls: that is
/// behind it already.
class RunLoop::Gate : public NoCopyable {
  public:
    enum Caller { LOOP_ITSELF, ANYBODY };

    // Whether the lock is taken depends on the thread, which the analysis cannot follow.
    explicit Gate(RunLoop& loop, Caller caller = ANYBODY) NIVUR_NO_THREAD_SAFETY_ANALYSIS
        : _mutex(caller == ANYBODY && loop.isLoopThread() ? nullptr : &loop._runningMutex) {
        if (_mutex != nullptr) {
            AutoLock turn(loop._turnMutex);
            _mutex->lock();
        }
    }

    ~Gate() NIVUR_NO_THREAD_SAFETY_ANALYSIS {
        if (_mutex != nullptr) {
            _mutex->unlock();
        }
    }

  private:
    Mutex* const _mutex;
};

/// What was taken out under the queue lock, to be deleted without it: declare it before the lock.
struct RunLoop::Dropped {
    std::list<RunLoopItem> items;
    std::list<Timer> runningTimers;
    std::set<Timer> timers;

    bool empty() const { return items.empty() && timers.empty(); }

    void take(std::list<RunLoopItem>& queue, const void* object) { takeIf(queue, items, object); }
    void take(std::list<Timer>& queue, const void* object) { takeIf(queue, runningTimers, object); }

  private:
    template <class Tasks>
    static void takeIf(Tasks& queue, Tasks& taken, const void* object) {
        for (auto next = queue.begin(); next != queue.end();) {
            const auto task = next++;
            if (actsOn(task->_runnable, object)) {
                taken.splice(taken.end(), queue, task);
            }
        }
    }
};

RunLoop::RunLoopItem::RunLoopItem(SharedPtr<Runnable> runnable,
                                  std::shared_ptr<Semaphore> semaphore)
    : _runnable(std::move(runnable)), _semaphore(std::move(semaphore)) {}

RunLoop::RunLoopItem::~RunLoopItem() {
    _runnable = SharedPtr<Runnable>();
    if (_semaphore != nullptr) {
        _semaphore->notify();
    }
}

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

RunLoop::RunLoop(const std::string& name) : _name(name) {}

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
    const auto run = _thread.requestStop();
    _wakeSemaphore.notify();
    Thread::waitForRun(run);
}

void RunLoop::postItem(Runnable* item, bool highPriority, bool wait) {
    if (!wait) {
        enqueue(SharedPtr<Runnable>(item), highPriority, nullptr);
        return;
    }
    if (isLoopThread()) {
        runAtOnce(item);
        return;
    }
    SharedPtr<Runnable> task(item);
    const auto done = std::make_shared<Semaphore>();
    if (enqueue(std::move(task), highPriority, done) && done->wait() == -1) {
        Log::log("NIVUR", LOG_ERROR, "Semaphore wait error, run loop item may not run");
    }
}

/// A waiting post from the loop's own thread, which could not wait for itself.
void RunLoop::runAtOnce(Runnable* item) {
    const SharedPtr<Runnable> task(item);
    if (const char* const refusal = getRefusal()) {
        Log::log("NIVUR", LOG_ERROR, refusal, _name.c_str());
        return;
    }
    NIVUR_ASSERT(item);
    item->run();
}

bool RunLoop::enqueue(SharedPtr<Runnable> task, bool highPriority,
                      std::shared_ptr<Semaphore> semaphore) {
    const Runnable* const item = task.get();
    std::list<RunLoopItem> items;  // a refused task is deleted at the end, with no lock held
    items.emplace_back(std::move(task), std::move(semaphore));
    const char* refusal = nullptr;
    {
        AutoLock lock(_mutex);
        // Asked under the lock under which an ending loop drops its queues: nothing slips in behind
        // it.
        refusal = getRefusal();
        if (refusal == nullptr) {
            NIVUR_ASSERT(item);
            std::list<RunLoopItem>& queue = highPriority ? _highPriorityItems : _items;
            queue.splice(queue.end(), items);
            // Within the lock: once the task can run, its owner may end the loop.
            _wakeSemaphore.notify();
        }
    }
    if (refusal != nullptr) {
        Log::log("NIVUR", LOG_ERROR, refusal, _name.c_str());
        return false;
    }
    return true;
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
    return _thread.getThreadID() == Thread::getCurrentThreadID();
}

void RunLoop::runLoopProc() {
    while (!_thread.isStopping()) {
        _mutex.lock();
        const unsigned int sleepMs = getWaitTime(SystemUtil::getCPUTime());
        _mutex.unlock();
        _wakeSemaphore.wait(sleepMs);
        select();
        runTimers();
        runItem();
    }
    Log::log("NIVUR", LOG_DEBUG, "thread %s break loop!", _name.c_str());
    Gate gate(*this, Gate::LOOP_ITSELF);
    while (dropAll()) {
    }
}

unsigned int RunLoop::getWaitTime(uint64_t now) const {
    if (_sortedTimers.empty()) {
        return kMaxSleepMs;
    }
    const uint64_t next = _sortedTimers.begin()->_nextTime;
    return now >= next ? 0 : static_cast<unsigned int>(std::min<uint64_t>(next - now, kMaxSleepMs));
}

/// Takes what this pass will run.
void RunLoop::select() {
    AutoLock lock(_mutex);
    collectDueTimers();
    std::list<RunLoopItem>& queue = _highPriorityItems.empty() ? _items : _highPriorityItems;
    if (!queue.empty()) {
        _runningItem.splice(_runningItem.begin(), queue, queue.begin());
    }
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
    Gate gate(*this, Gate::LOOP_ITSELF);
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

void RunLoop::runItem() {
    Gate gate(*this, Gate::LOOP_ITSELF);
    Runnable* running = nullptr;
    {
        AutoLock lock(_mutex);
        if (_runningItem.empty()) {
            return;  // nothing was queued, or it was cancelled after it was taken
        }
        _runningItemBegun = true;
        running = _runningItem.front()._runnable.get();
    }
    running->run();
    std::list<RunLoopItem> finished;  // deleted behind the gate, which then lets its poster go
    AutoLock lock(_mutex);
    finished.swap(_runningItem);
    _runningItemBegun = false;
}

void RunLoop::dropItems(Dropped& dropped) {
    dropped.items.splice(dropped.items.end(), _highPriorityItems);
    dropped.items.splice(dropped.items.end(), _items);
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
    _wakeSemaphore.notify();
    return id;
}

void RunLoop::stopTimer(long id) {
    Dropped
        dropped;  // keeps the task to the end, lest another timer gets its address and so the id
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
    if (!_runningItemBegun) {
        dropped.take(_runningItem, object);
    }
    dropped.take(_runningTimers, object);
}

void RunLoop::dropPending(const void* object, Dropped& dropped) {
    dropped.take(_highPriorityItems, object);
    dropped.take(_items, object);
    for (auto next = _sortedTimers.begin(); next != _sortedTimers.end();) {
        const auto timer = next++;
        if (actsOn(timer->_runnable, object)) {
            dropped.timers.insert(extractTimer(timer));
        }
    }
}

void RunLoop::dumpLoopInfo() {
    std::string text = "dump thread info, _name: " + _name;
    {
        AutoLock lock(_mutex);
        text += ", _items.size: " + std::to_string(_items.size());
        text += ", _highPriorityItems.size: " + std::to_string(_highPriorityItems.size());
        text += ", _sortedTimers.size: " + std::to_string(_sortedTimers.size());
        text += ", _runningTimers.size: " + std::to_string(_runningTimers.size());
        text += " , _hasRunningItem: " + std::to_string(_runningItem.size());
        if (!_runningItem.empty()) {
            text += "\r _runningItem : \r\t" + describe(_runningItem.front()._runnable);
        }
        describeAll(text, "\r _runningTimers : \r\t", _runningTimers);
        describeAll(text, "\r _items : \r\t", _items);
        describeAll(text, "\r _highPriorityItems : \r\t", _highPriorityItems);
    }
    Log::log("NIVUR", LOG_WARN, "%s", text.c_str());
}

}  // namespace NIVUR
