#ifndef MIRROR_CHUNK_WINDOW_H
#define MIRROR_CHUNK_WINDOW_H

#include <nivur/buffer.h>
#include <nivur/shared_ptr.h>

#include <cstdint>
#include <vector>

#include "packets.h"

namespace mirror {

/// Puts chunks back into their order, and knows which are missing. It holds at most one window of
/// them. On one loop.
class ChunkWindow {
  public:
    using Body = NIVUR::SharedPtr<NIVUR::Buffer>;

    explicit ChunkWindow(unsigned int size) : _slots(size) {}

    unsigned int size() const { return static_cast<unsigned int>(_slots.size()); }

    /// The first chunk that was not popped, the first that has not come, and the end of those that
    /// were sent.
    uint64_t base() const { return _base; }
    uint64_t firstMissing() const { return _firstMissing; }
    uint64_t end() const { return _end; }

    bool isInside(uint64_t index) const { return index >= _base && index < _base + _slots.size(); }

    /// Whether a chunk that is inside has come.
    bool has(uint64_t index) const { return static_cast<bool>(slot(index).body); }

    /// A chunk that is inside and has come.
    const NIVUR::Buffer& at(uint64_t index) const { return *slot(index).body; }

    /// When it was noticed that a chunk that is inside is missing; 0 if it was not.
    uint64_t missingSinceUs(uint64_t index) const {
        return index < _end && !has(index) ? slot(index).missingSinceUs : 0;
    }

    /// Takes over a chunk that is inside and has not come before.
    void add(uint64_t index, Body body, uint64_t nowUs);

    /// Learns that all chunks before `end` were sent; whether one more is missing now.
    bool expect(uint64_t end, uint64_t nowUs);

    /// The first chunk, lent; null while it is missing.
    const NIVUR::Buffer* first() const { return slot(_base).body.get(); }

    /// Lets go of the first chunk, whether it has come or not, and returns it.
    Body pop();

    /// Lets go of the chunks before `end`, up to the first that has come.
    void giveUp(uint64_t end);

    /// Up to `max` runs of chunks that have been missing since that time or longer, in order.
    std::vector<Feedback::Gap> gaps(size_t max, uint64_t sinceUs) const;

  private:
    struct Slot {
        Body body;
        uint64_t missingSinceUs = 0;
    };

    size_t slotOf(uint64_t index) const { return static_cast<size_t>(index % _slots.size()); }
    Slot& slot(uint64_t index) { return _slots[slotOf(index)]; }
    const Slot& slot(uint64_t index) const { return _slots[slotOf(index)]; }
    void findMissing();

    std::vector<Slot> _slots;
    uint64_t _base = 0;
    uint64_t _firstMissing = 0;
    uint64_t _end = 0;
};

}  // namespace mirror

#endif
