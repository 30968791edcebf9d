#include "private/run_loop_state.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <limits>

#include "log.h"
#include "private/common/clock.h"
#include "system_util.h"

namespace NIVUR {

namespace {

using platform::Poller;

constexpr uint64_t kNow = 0;
constexpr uint64_t kNever = std::numeric_limits<uint64_t>::max();

// While there is work, the poller is asked in every 16th pass only: the call takes 130 ns, more
// than a short task. A pass runs at most one task.
constexpr unsigned int kPassesPerPoll = 16;

constexpr unsigned int kBlindSleepMs = 10;  // the sleep when the clock cannot be read

bool actsOn(Runnable& task, const void* object) {
    return task.getObject() == object;
}

}  // namespace

size_t RunLoop::State::queuedTasks() const {
    // Read first, so that it does not exceed the number of posts.
    const size_t taken = _taken.load(std::memory_order_acquire);
    return _posted.load(std::memory_order_relaxed) - taken;
}

void RunLoop::State::addTimer(std::unique_ptr<Timer>& timer) {
    timer->_sequence = ++_timersAdded;
    _dueTimers.reserve(_timers.size() + 1);
    _timers.add(*timer);
    (void)timer.release();
}

/// Registers a watch and takes ownership of it. Returns 0 and sets `id`, or returns an error
/// number. The first watch that can be registered creates the poller. If memory is exhausted,
/// std::bad_alloc is thrown and nothing is changed.
int RunLoop::State::addWatch(std::unique_ptr<Watch>& watch, long& id) {
    std::unique_ptr<WatchList> made;
    if (_watches == nullptr) {
        auto poller = Poller::create();
        if (poller == nullptr) {
            return errno;
        }
        made = std::make_unique<WatchList>(std::move(poller));
    }
    WatchList& watches = made != nullptr ? *made : *_watches;
    _readyWatches.reserve(watches.size() + 1);
    if (const int error = watches.add(*watch)) {
        return error;
    }
    id = watch.release()->_id;
    if (made != nullptr) {
        _poller = &made->poller();
        _watches = std::move(made);
    }
    return 0;
}

void RunLoop::State::countTaken(size_t count) {
    _taken.store(_taken.load(std::memory_order_relaxed) + count, std::memory_order_release);
}

void RunLoop::State::dropItems(TaskQueue& dropped) {
    _intake.drainTo(_items);
    countTaken(_items.size() + _highPriorityItems.size());
    dropped.append(_highPriorityItems);
    dropped.append(_items);
}

/// Moves what belongs to an object to `dropped`: queued tasks, timers and watches, and on the
/// loop's thread also what the pass has taken.
void RunLoop::State::dropTasksOf(const void* object, TaskQueue& dropped) {
    const auto wanted = [object](Runnable& task) { return actsOn(task, object); };
    const auto drop = [&dropped](Source& source) { source.drop(dropped); };
    _intake.drainTo(_items);
    dropped.takeIf(_highPriorityItems, wanted);
    dropped.takeIf(_items, wanted);
    countTaken(dropped.size());
    _timers.removeIf(wanted, drop);
    if (_watches != nullptr) {
        _watches->removeIf(wanted, drop);
        dropReadyIf(wanted, dropped);
    }
    if (!isLoopThread()) {
        return;
    }
    if (Runnable* const taken = _current.get();
        taken != nullptr && !_currentBegun && wanted(*taken)) {
        dropped.push(_current.takeLocked());
    }
    _dueTimers.dropIf(wanted, dropped);
}

/// Removes ready watches of the pass, but not the one whose task runs: that one is dropped after it
/// has run.
template <class Predicate>
void RunLoop::State::dropReadyIf(Predicate wanted, TaskQueue& dropped) {
    const Source* const running = _runningSource;
    _readyWatches.dropIf([&](Watch& watch) { return &watch != running && wanted(watch); }, dropped);
}

/// Removes a pending timer, and on the loop's thread also one that the pass has taken. Another
/// thread then waits at the gate until the pass has run it.
void RunLoop::State::dropTimer(long id, TaskQueue& dropped) {
    if (Timer* const pending = _timers.find(id)) {
        _timers.remove(*pending);
        pending->drop(dropped);
    }
    if (isLoopThread()) {
        _dueTimers.dropIf([id](const Timer& timer) { return timer.id() == id; }, dropped);
    }
}

void RunLoop::State::dropWatch(long id, TaskQueue& dropped) {
    if (Watch* const watch = _watches == nullptr ? nullptr : _watches->find(id)) {
        _watches->remove(*watch);
        watch->drop(dropped);
    }
    dropReadyIf([id](const Watch& watch) { return watch._id == id; }, dropped);
}

/// Drops all that is queued or registered. Returns false if there was nothing.
bool RunLoop::State::dropAll() {
    TaskQueue dropped;
    AutoLock lock(_mutex);
    const auto all = [](Source& /*source*/) { return true; };
    const auto drop = [&dropped](Source& source) { source.drop(dropped); };
    _timers.removeIf(all, drop);
    dropItems(dropped);
    if (_watches != nullptr) {
        _watches->removeIf(all, drop);
    }
    return !dropped.empty();
}

void RunLoop::State::runLoopProc() {
    _loopThread = std::this_thread::get_id();
    openIntake();
    for (bool busy = false; !_thread.isStopping();) {
        if (!busy) {
            sleep();
        }
        busy = runPass();  // also if stop() ended the sleep: one more pass
    }
    Log::log("NIVUR", LOG_DEBUG, "thread %s break loop!", _name.c_str());
    {
        AutoLock lock(_mutex);
        _gate.close();
    }
    while (dropAll()) {  // the destructor of a task may add another one
    }
    passGate(true);
    _loopThread = std::thread::id();
}

/// Runs what is due and ready, and one task. Returns false if no task is left.
bool RunLoop::State::runPass() {
    if (_watching) {
        fetchEvents();
    }
    const unsigned int selection = select();
    if ((selection & TIMERS) != 0U) {
        runBatch(&State::_dueTimers);
    }
    if ((selection & WATCHES) != 0U) {
        runBatch(&State::_readyWatches);
    }
    if (_current.get() != nullptr) {
        if ((selection & (TIMERS | WATCHES)) != 0U) {
            passGate(false);  // a waiter may cancel the task
        }
        runTask();
    }
    return (selection & (TIMERS | MORE_TASKS)) != 0U;
}

/// Asks the poller for ready descriptors, unless it has done so recently.
void RunLoop::State::fetchEvents() {
    if (_events == 0 && ++_passesSinceEvents >= kPassesPerPoll) {
        _events = _poller.load()->wait(0);
        _passesSinceEvents = 0;
    }
}

/// Takes what this pass will run. Returns a combination of Selection bits.
unsigned int RunLoop::State::select() {
    Gate::Waiter* passed = nullptr;
    unsigned int selection = 0;
    {
        AutoLock lock(_mutex);
        _gate.close();
        passed = _gate.hasWaiters() ? letThrough() : nullptr;
        if (!_timers.empty()) {
            collectDueTimers();
        }
        if (_watches != nullptr) {
            collectReadyWatches();
        }
        takeTask();
        selection = (_dueTimers.empty() ? 0U : TIMERS) | (_readyWatches.empty() ? 0U : WATCHES) |
                    (_items.empty() && _highPriorityItems.empty() ? 0U : MORE_TASKS);
    }
    Gate::signal(passed);
    return selection;
}

void RunLoop::State::collectDueTimers() {
    uint64_t now = 0;
    const auto isDue = [&now](const Timer& timer) {
        // Read the clock only if the last reading shows that the timer is not due.
        now = now < timer._nextTime ? platform::monotonicMilliseconds() : now;
        return now >= timer._nextTime;
    };
    for (Timer* timer = nullptr; (timer = _timers.first()) != nullptr && isDue(*timer);) {
        _timers.remove(*timer);
        _dueTimers.add(*timer);
    }
    for (Timer* const timer : _dueTimers) {  // a second loop, so that no timer is taken twice
        if (timer->_repeats) {
            timer->advance();
            timer->hold();
            _timers.add(*timer);
        }
    }
}

void RunLoop::State::collectReadyWatches() {
    // Ask again in the next pass if there may be more events, or if some were for a watch that has
    // changed.
    bool askAgain = !_watching || _events == Poller::kMostEvents;
    for (; _events > 0; --_events) {
        askAgain =
            !_watches->collect(_poller.load()->event(_events - 1), _readyWatches) || askAgain;
    }
    _readyWatches.sort();
    if (askAgain) {
        _passesSinceEvents = kPassesPerPoll;
    }
    _watching = !_watches->empty();
}

void RunLoop::State::takeTask() {
    std::unique_ptr<Runnable> task = _highPriorityItems.pop();
    if (task == nullptr) {
        if (_items.empty()) {  // otherwise do not touch the posters' cache line
            _intake.drainTo(_items);
        }
        task = _items.pop();
    }
    countTaken(task != nullptr ? 1 : 0);
    _current.setLocked(std::move(task));
}

template <class Kind>
void RunLoop::State::runBatch(Batch<Kind> State::*batch) {
    for (Kind* source = next<Kind>(batch, nullptr); source != nullptr;
         source = next(batch, source)) {
        source->run();
    }
}

/// Drops the source that has run, and returns the next one of the batch, held while it runs.
template <class Kind>
Kind* RunLoop::State::next(Batch<Kind> State::*batch, Kind* finished) {
    {
        TaskQueue dropped;
        AutoLock lock(_mutex);
        if (finished != nullptr) {
            Batch<Kind>& sources = this->*batch;
            if (sources.first() == finished) {  // false if its task has removed it
                sources.removeFirst();
                finished->drop(dropped);
            }
            finished->drop(dropped);
            _runningSource = nullptr;
        }
        if (dropped.empty()) {
            return begin(this->*batch);
        }
    }
    AutoLock lock(_mutex);  // after the deletion, which may have removed other sources
    return begin(this->*batch);
}

/// Returns the first source of a batch, or null, and marks it as running.
template <class Kind>
Kind* RunLoop::State::begin(Batch<Kind>& batch) {
    Kind* const first = batch.first();
    if (first != nullptr) {
        first->hold();
    }
    _runningSource = first;
    return first;
}

/// Runs and deletes the task of the pass, unless it was cancelled meanwhile.
void RunLoop::State::runTask() {
    if (Runnable* const task = _current.get()) {
        _currentBegun = true;
        task->run();
        const std::unique_ptr<Runnable> finished = _current.take(_mutex);
        _currentBegun = false;
    }
}

/// Serves the waiters at the gate between two tasks, and opens the gate if `open`.
void RunLoop::State::passGate(bool open) {
    Gate::Waiter* passed = nullptr;
    {
        AutoLock lock(_mutex);
        passed = letThrough();
        if (open) {
            _gate.open();
        }
    }
    Gate::signal(passed);
}

/// Serves the waiters at the gate, and returns them for Gate::signal() after the lock is released.
Gate::Waiter* RunLoop::State::letThrough() {
    Gate::Waiter* const passed = _gate.takeWaiters();
    for (Gate::Waiter* waiter = passed; waiter != nullptr; waiter = waiter->_next) {
        if (waiter->_object != nullptr) {
            dropTasksOf(waiter->_object, waiter->_dropped);
        }
    }
    return passed;
}

/// Sleeps until there may be something to do.
void RunLoop::State::sleep() {
    _sleepPlace = _poller.load();
    if (!_intake.beginSleep()) {
        return;
    }
    const bool signalled = sleepUntil(prepareSleep());
    if (_intake.endSleep() || signalled) {
        return;
    }
    // Another thread has removed the mark and is about to signal. Wait for it: the loop must not be
    // destroyed before.
    if (_sleepPlace != nullptr) {
        _sleepPlace->takeSignal();
    } else {
        _wakeSemaphore.wait();
    }
}

/// Opens the gate and returns the time until which the loop may sleep. Reads the queues after the
/// mark is set: a thread that adds something from now on sees the mark and signals. The comparison
/// of _sleepPlace detects a first watch that was added before the mark was set.
uint64_t RunLoop::State::prepareSleep() {
    Gate::Waiter* passed = nullptr;
    uint64_t due = kNow;
    {
        AutoLock lock(_mutex);
        passed = letThrough();
        _gate.open();
        if (_items.empty() && _highPriorityItems.empty() && _sleepPlace == _poller.load()) {
            const Timer* const first = _timers.first();
            due = first == nullptr ? kNever : first->_nextTime;
        }
    }
    Gate::signal(passed);
    return due;
}

/// Sleeps. Returns true if it has taken the signal.
bool RunLoop::State::sleepUntil(uint64_t due) {
    const bool limited = due != kNever;
    const unsigned int limitMs = limited && due != kNow ? timeUntil(due) : 0;
    if (_sleepPlace == nullptr) {
        return (limited ? _wakeSemaphore.wait(limitMs) : _wakeSemaphore.wait()) == 0;
    }
    _events = _sleepPlace->wait(limited ? static_cast<int>(std::min<unsigned int>(limitMs, INT_MAX))
                                        : Poller::kNoLimit);
    _passesSinceEvents = 0;
    return false;
}

/// Returns the milliseconds from now until `due`. If the clock cannot be read, it sleeps a little
/// itself, so that the loop neither spins nor hangs.
unsigned int RunLoop::State::timeUntil(uint64_t due) {
    const uint64_t now = SystemUtil::getCPUTime();
    if (now == 0) {
        SystemUtil::sleep(kBlindSleepMs);
        return 0;
    }
    return now >= due ? 0 : static_cast<unsigned int>(std::min<uint64_t>(due - now, UINT_MAX));
}

/// Returns the text of a dump.
std::string RunLoop::State::describe() {
    std::string text = "dump thread info, _name: " + _name;
    const auto list = [&text](Runnable& task) { text += task.dump() + "\r\t"; };
    AutoLock lock(_mutex);
    _intake.drainTo(_items);
    std::string current;
    const bool hasCurrent =
        _current.lookLocked([&current](Runnable& task) { current = task.dump(); });
    text += ", _items.size: " + std::to_string(_items.size());
    text += ", _highPriorityItems.size: " + std::to_string(_highPriorityItems.size());
    text += ", _sortedTimers.size: " + std::to_string(_timers.size());
    text += ", _runningTimers.size: " + std::to_string(_dueTimers.size());
    text += hasCurrent ? " , _hasRunningItem: 1\r _runningItem : \r\t" + current
                       : " , _hasRunningItem: 0";
    if (!_dueTimers.empty()) {
        text += "\r _runningTimers : \r\t";
        std::for_each(_dueTimers.begin(), _dueTimers.end(), [&](Timer* timer) { list(*timer); });
    }
    if (!_items.empty()) {
        text += "\r _items : \r\t";
        _items.forEach(list);
    }
    if (!_highPriorityItems.empty()) {
        text += "\r _highPriorityItems : \r\t";
        _highPriorityItems.forEach(list);
    }
    describeWatches(text);
    return text;
}

/// Adds the watches to the text of a dump; nothing if there are none. A removed watch whose task
/// still runs is listed first.
void RunLoop::State::describeWatches(std::string& text) {
    if (_watches == nullptr) {
        return;
    }
    Watch* const first = _readyWatches.first();
    const bool leaving =
        first != nullptr && first == _runningSource && _watches->find(first->_id) == nullptr;
    if (_watches->empty() && !leaving) {
        return;
    }
    const size_t size = _watches->size() + (leaving ? 1 : 0);
    text += "\r _watches.size: " + std::to_string(size) + "\r _watches : \r\t";
    const auto list = [&text](Watch& watch) { text += watch.dump() + "\r\t"; };
    if (leaving) {
        list(*first);
    }
    _watches->forEach(list);
}

}  // namespace NIVUR
