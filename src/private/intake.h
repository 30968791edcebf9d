#ifndef NIVUR_PRIVATE_INTAKE_H
#define NIVUR_PRIVATE_INTAKE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "no_copyable.h"
#include "private/linked_queue.h"

namespace NIVUR {

/// Where many threads leave items for one that sleeps when there are none. Adding takes no lock: it
/// is one exchange of the head of a linked stack, which is turned round when it is taken (R. K.
/// Treiber, "Systems Programming: Coping with Parallelism", 1986).
///
/// Whoever removes the sleeper's mark owes it one signal, and the sleeper takes that signal before
/// it does anything else. Nobody else touches the intake after adding an item, so that the item's
/// end may be the end of the intake.
template <class Item>
class Intake : public NoCopyable {
  public:
    enum Result {
        CLOSED,        ///< not taken
        ADDED,         ///< the sleeper is awake
        ADDED_ASLEEP,  ///< the sleeper has to be signalled
    };

    /// Takes the item over unless the intake is closed, as it is at first.
    Result add(std::unique_ptr<Item>& item) {
        uintptr_t head = _head.load();
        do {
            if (head == kClosed) {
                return CLOSED;
            }
            item->_next = itemOf(head);
        } while (!_head.compare_exchange_weak(head, reinterpret_cast<uintptr_t>(item.get())));
        (void)item.release();
        return head == kAsleep ? ADDED_ASLEEP : ADDED;
    }

    /// Lets items in if the intake is closed.
    void open() { replace(kClosed, kEmpty); }

    /// Shuts the intake, gives what is left in it to `queue` and tells whether the sleeper has to
    /// be signalled.
    bool close(LinkedQueue<Item>& queue) {
        const uintptr_t head = _head.exchange(kClosed);
        moveTo(queue, head);
        return head == kAsleep;
    }

    /// Gives all items to `queue`, the one that was added first first. One thread at a time.
    void take(LinkedQueue<Item>& queue) {
        uintptr_t head = _head.load();
        while (itemOf(head) != nullptr && !_head.compare_exchange_weak(head, kEmpty)) {
        }
        moveTo(queue, head);
    }

    /// Marks the taker as asleep; false when there are items or the intake is closed.
    bool beginSleep() { return replace(kEmpty, kAsleep); }

    /// Removes the mark; false when someone else has removed it, and signals.
    bool endSleep() { return _head.load() == kAsleep && replace(kAsleep, kEmpty); }

  private:
    static constexpr uintptr_t kEmpty = 0;
    static constexpr uintptr_t kAsleep = 1;
    static constexpr uintptr_t kClosed = 2;

    static Item* itemOf(uintptr_t head) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): one word is an item's address or a mark
        return head <= kClosed ? nullptr : reinterpret_cast<Item*>(head);
    }

    bool replace(uintptr_t from, uintptr_t to) { return _head.compare_exchange_strong(from, to); }

    static void moveTo(LinkedQueue<Item>& queue, uintptr_t head) {
        Item* first = nullptr;
        for (Item* item = itemOf(head); item != nullptr;) {
            Item* const older = item->_next;
            item->_next = first;
            first = item;
            item = older;
        }
        while (first != nullptr) {
            std::unique_ptr<Item> item(first);
            first = item->_next;
            queue.push(std::move(item));
        }
    }

    std::atomic<uintptr_t> _head{kClosed};
};

}  // namespace NIVUR

#endif
