#ifndef NIVUR_PRIVATE_LINKED_QUEUE_H
#define NIVUR_PRIVATE_LINKED_QUEUE_H

#include <cstddef>
#include <memory>
#include <utility>

#include "no_copyable.h"

namespace NIVUR {

/// A first-in, first-out queue that owns its items and links them through their own `_next`, so
/// that moving them from queue to queue needs no memory. It has no lock.
template <class Item>
class LinkedQueue : public NoCopyable {
  public:
    LinkedQueue() = default;

    /// Deletes the items, first to last.
    ~LinkedQueue() {
        while (!empty()) {
            pop();
        }
    }

    bool empty() const { return _first == nullptr; }
    size_t size() const { return _size; }

    void push(std::unique_ptr<Item> item) {
        item->_next = nullptr;
        *_end = item.release();
        _end = &(*_end)->_next;
        ++_size;
    }

    /// The first item, or null.
    std::unique_ptr<Item> pop() {
        std::unique_ptr<Item> item(_first);
        if (item != nullptr) {
            _first = item->_next;
            _end = _first == nullptr ? &_first : _end;
            --_size;
        }
        return item;
    }

    /// Moves those of `other` that `wanted` picks to the end of this queue, in their order.
    template <class Predicate>
    void takeIf(LinkedQueue& other, Predicate wanted) {
        Item** link = &other._first;
        while (*link != nullptr) {
            if (!wanted(**link)) {
                link = &(*link)->_next;
                continue;
            }
            std::unique_ptr<Item> item(*link);
            *link = item->_next;
            --other._size;
            push(std::move(item));
        }
        other._end = link;
    }

    /// Moves all of `other` to the end of this queue.
    void append(LinkedQueue& other) {
        if (!other.empty()) {
            *_end = std::exchange(other._first, nullptr);
            _end = std::exchange(other._end, &other._first);
            _size += std::exchange(other._size, 0);
        }
    }

    template <class Visitor>
    void forEach(Visitor visit) const {
        for (Item* item = _first; item != nullptr; item = item->_next) {
            visit(*item);
        }
    }

  private:
    Item* _first = nullptr;
    Item** _end = &_first;  // where the next item is linked
    size_t _size = 0;
};

}  // namespace NIVUR

#endif
