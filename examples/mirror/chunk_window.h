#ifndef MIRROR_CHUNK_WINDOW_H
#define MIRROR_CHUNK_WINDOW_H

#include <nivur/buffer.h>
#include <nivur/shared_ptr.h>

#include <cstdint>
#include <vector>

#include "packets.h"

namespace mirror {

/// Reorders chunks and tracks the missing ones. A ring of `size` slots: the chunk with an index is
/// in slot index % size. Used on one thread.
///
///     base()        firstMissing()            end()         base() + size()
///     |  arrived    |  arrived or missing     |  unknown, perhaps not sent
class ChunkWindow {
  public:
    using Body = NIVUR::SharedPtr<NIVUR::Buffer>;

    explicit ChunkWindow(unsigned int size) : _slots(size) {}

    unsigned int size() const { return static_cast<unsigned int>(_slots.size()); }

    /// The first chunk that was not popped, the first that has not arrived, and the end of those
    /// that are known to have been sent.
    uint64_t base() const { return _base; }
    uint64_t firstMissing() const { return _firstMissing; }
    uint64_t end() const { return _end; }

    bool isInside(uint64_t index) const { return index >= _base && index < _base + _slots.size(); }

    /// Whether a chunk inside the window has arrived.
    bool has(uint64_t index) const { return static_cast<bool>(slot(index).body); }

    /// REQUIRES: isInside(index) and has(index).
    const NIVUR::Buffer& at(uint64_t index) const { return *slot(index).body; }

    /// When the window detected that this chunk is missing; 0 if it is not. REQUIRES:
    /// isInside(index).
    uint64_t missingSinceUs(uint64_t index) const {
        return index < _end && !has(index) ? slot(index).missingSinceUs : 0;
    }

    /// Stores a chunk. REQUIRES: isInside(index) and not has(index).
    void add(uint64_t index, Body body, uint64_t nowUs);

    /// Notes that all chunks before `end` were sent. Returns whether more chunks are missing now.
    bool expect(uint64_t end, uint64_t nowUs);

    /// The first chunk, which the window keeps; null while it is missing.
    const NIVUR::Buffer* first() const { return slot(_base).body.get(); }

    /// Removes and returns the first chunk; an empty pointer if it has not arrived.
    Body pop();

    /// Removes the missing chunks before `end`, up to the first chunk that has arrived.
    void giveUp(uint64_t end);

    /// Up to `max` runs of chunks that are missing since `sinceUs` or longer, in order.
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
