#ifndef NIVUR_PRIVATE_SOURCE_H
#define NIVUR_PRIVATE_SOURCE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "no_copyable.h"
#include "private/task_queue.h"
#include "runnable.h"

namespace NIVUR {

/// A timer or a watch. It may be registered, in the batch of a pass, and running, all at the same
/// time. Each of these holds it, and it is deleted when none does. Guarded by the queue lock.
class Source : public Runnable, public NoCopyable {
  public:
    void run() override {
        if (_task != nullptr) {
            _task->run();
        }
    }
    void* getObject() override { return _task != nullptr ? _task->getObject() : nullptr; }
    std::string dump() override { return _task != nullptr ? _task->dump() : ""; }

    void hold() { ++_holders; }

    /// Drops one holder; after the last, moves the source to `dropped` for deletion.
    void drop(TaskQueue& dropped) {
        if (--_holders == 0) {
            dropped.push(std::unique_ptr<Runnable>(this));
        }
    }

  protected:
    explicit Source(std::unique_ptr<Runnable> task) : _task(std::move(task)) {}

    const Runnable* task() const { return _task.get(); }

  private:
    const std::unique_ptr<Runnable> _task;
    unsigned int _holders = 1;
};

/// A task that is due at a certain time, once or repeatedly.
struct Timer : Source {
    /// Makes a timer that is first due `interval` milliseconds after `now`.
    Timer(std::unique_ptr<Runnable> task, unsigned int interval, bool repeats, uint64_t now)
        : Source(std::move(task)), _interval(interval), _repeats(repeats) {
        restart(now);
    }

    void restart(uint64_t now) { _nextTime = now + _interval; }
    void advance() { _nextTime += _interval; }

    /// The id by which callers know the timer: the address of its task.
    long id() const { return reinterpret_cast<long>(task()); }

    bool operator<(const Timer& other) const {
        return std::tie(_nextTime, _sequence) < std::tie(other._nextTime, other._sequence);
    }

    const unsigned int _interval;  // ms
    const bool _repeats;
    uint64_t _nextTime = 0;  // ms of the monotonic clock
    uint64_t _sequence = 0;  // order of insertion, for equal due times

    // Intrusive links of the timer queue: heap index; next in bucket, and the pointer to this.
    size_t _index = 0;
    Timer* _nextInBucket = nullptr;
    Timer** _linkInBucket = nullptr;
};

/// A task that runs while a descriptor is readable, or while it is writable.
struct Watch : Source {
    Watch(std::unique_ptr<Runnable> task, int descriptor, unsigned int readiness)
        : Source(std::move(task)), _descriptor(descriptor), _readiness(readiness) {}

    bool operator<(const Watch& other) const { return _id < other._id; }

    const int _descriptor;
    const unsigned int _readiness;  // a bit of platform::Poller::Readiness
    long _id = 0;
    Watch* _nextOfDescriptor = nullptr;
};

/// The timers, or the watches, that a pass runs, in this order. reserve() is called when one is
/// registered, so that a pass allocates nothing.
template <class Kind>
class Batch {
  public:
    bool empty() const { return _begin == _sources.size(); }
    size_t size() const { return _sources.size() - _begin; }
    Kind* first() const { return empty() ? nullptr : _sources[_begin]; }

    void removeFirst() {
        if (++_begin == _sources.size()) {
            clear();
        }
    }

    /// Reserves memory for `count` sources.
    void reserve(size_t count) {
        if (count > _sources.capacity()) {
            _sources.reserve(2 * count);
        }
    }

    void add(Kind& source) { _sources.push_back(&source); }

    /// Sorts the sources by operator<.
    void sort() {
        std::sort(_sources.begin(), _sources.end(),
                  [](const Kind* a, const Kind* b) { return *a < *b; });
    }

    /// Removes the sources for which `wanted` returns true and drops them, first to last.
    template <class Predicate>
    void dropIf(Predicate wanted, TaskQueue& dropped) {
        const auto dropIfWanted = [&](Kind* source) {
            const bool picked = wanted(*source);
            if (picked) {
                source->drop(dropped);
            }
            return picked;
        };
        const auto first = _sources.begin() + static_cast<ptrdiff_t>(_begin);
        _sources.erase(std::remove_if(first, _sources.end(), dropIfWanted), _sources.end());
        if (empty()) {
            clear();
        }
    }

    auto begin() const { return _sources.begin() + static_cast<ptrdiff_t>(_begin); }
    auto end() const { return _sources.end(); }

  private:
    void clear() {
        _sources.clear();
        _begin = 0;
    }

    std::vector<Kind*> _sources;
    size_t _begin = 0;
};

}  // namespace NIVUR

#endif
