#ifndef NIVUR_PRIVATE_TIMER_QUEUE_H
#define NIVUR_PRIVATE_TIMER_QUEUE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "no_copyable.h"

namespace NIVUR {

/// Timers in the order of operator<, in a binary heap, and by their ids, in a hash table whose
/// chains run through the timers, as their places in the heap do: it needs memory only to grow. It
/// does not own the timers and has no lock.
template <class Timer>
class TimerQueue : public NoCopyable {
  public:
    bool empty() const { return _heap.empty(); }
    size_t size() const { return _heap.size(); }

    /// The least of the timers, or null.
    Timer* first() const { return empty() ? nullptr : _heap.front(); }

    /// A timer with this id, or null.
    Timer* find(long id) const {
        Timer* timer = empty() ? nullptr : bucketOf(id);
        while (timer != nullptr && timer->id() != id) {
            timer = timer->_nextOfBucket;
        }
        return timer;
    }

    /// When memory for it is exhausted nothing is changed. That cannot be after a remove().
    void add(Timer& timer) {
        if (_heap.size() == _buckets.size()) {
            grow();
        }
        link(timer);
        _heap.push_back(&timer);
        settle(timer, _heap.size() - 1);
    }

    void remove(Timer& timer) {
        Timer* const last = _heap.back();
        _heap.pop_back();
        if (last != &timer) {
            settle(*last, timer._place);
        }
        unlink(timer);
    }

    /// Puts a timer whose order has changed where it belongs now.
    void update(Timer& timer) { settle(timer, timer._place); }

    /// Removes all that `wanted` picks and gives them to `take`, the least first.
    template <class Predicate, class Taker>
    void removeIf(Predicate wanted, Taker take) {
        const auto picked = std::partition(_heap.begin(), _heap.end(),
                                           [&](const Timer* timer) { return !wanted(*timer); });
        if (picked == _heap.end()) {
            return;
        }
        std::sort(picked, _heap.end(), [](const Timer* a, const Timer* b) { return *a < *b; });
        for (auto timer = picked; timer != _heap.end(); ++timer) {
            unlink(**timer);
            take(**timer);
        }
        _heap.erase(picked, _heap.end());
        for (size_t place = _heap.size(); place-- > 0;) {
            moveDown(*_heap[place], place);
        }
    }

  private:
    static constexpr size_t kFirstCapacity = 16;

    Timer*& bucketOf(long id) { return _buckets[bucketIndex(id)]; }
    Timer* bucketOf(long id) const { return _buckets[bucketIndex(id)]; }

    /// Multiplicative hashing (D. E. Knuth, "The Art of Computer Programming", vol. 3, 6.4).
    size_t bucketIndex(long id) const {
        const uint64_t product = static_cast<uint64_t>(id) * 0x9E3779B97F4A7C15U;
        return static_cast<size_t>(product >> 32) & (_buckets.size() - 1);
    }

    void grow() {
        std::vector<Timer*> buckets(std::max(2 * _buckets.size(), kFirstCapacity));
        _heap.reserve(buckets.size());
        _buckets.swap(buckets);
        for (Timer* timer : _heap) {
            link(*timer);
        }
    }

    void link(Timer& timer) {
        Timer*& bucket = bucketOf(timer.id());
        lead(timer._nextOfBucket, bucket);
        lead(bucket, &timer);
    }

    static void unlink(Timer& timer) { lead(*timer._linkOfBucket, timer._nextOfBucket); }

    /// Makes a link of a chain lead to a timer or to its end.
    static void lead(Timer*& link, Timer* timer) {
        link = timer;
        if (timer != nullptr) {
            timer->_linkOfBucket = &link;
        }
    }

    void put(Timer& timer, size_t place) {
        _heap[place] = &timer;
        timer._place = place;
    }

    /// Puts a timer where it belongs, above or below a place that may be overwritten.
    void settle(Timer& timer, size_t place) {
        for (size_t parent = 0; place > 0; place = parent) {
            parent = (place - 1) / 2;
            if (!(timer < *_heap[parent])) {
                break;
            }
            put(*_heap[parent], place);
        }
        moveDown(timer, place);
    }

    void moveDown(Timer& timer, size_t place) {
        for (size_t child = 0; (child = 2 * place + 1) < _heap.size(); place = child) {
            if (child + 1 < _heap.size() && *_heap[child + 1] < *_heap[child]) {
                ++child;
            }
            if (!(*_heap[child] < timer)) {
                break;
            }
            put(*_heap[child], place);
        }
        put(timer, place);
    }

    std::vector<Timer*> _heap;
    std::vector<Timer*> _buckets;  // a power of two of them, as many as the heap has room for
};

}  // namespace NIVUR

#endif
