#ifndef MIRROR_REASSEMBLY_H
#define MIRROR_REASSEMBLY_H

#include <nivur/buffer.h>
#include <nivur/shared_ptr.h>

#include <cstdint>
#include <vector>

namespace mirror {

/// Puts frames back into their order, and knows which are missing. It holds at most one window of
/// them. On one loop.
class Reassembly {
  public:
    enum class Outcome { TAKEN, DUPLICATE, OUTSIDE };

    explicit Reassembly(unsigned int window) : _slots(window) {}

    /// Offers a frame, which is taken over, unless it is here or was taken before, or lies outside
    /// the window.
    Outcome add(uint64_t index, NIVUR::SharedPtr<NIVUR::Buffer>& frame, uint64_t nowMs);

    /// Learns that all frames before `end` were sent: those that are not here should come soon.
    void expect(uint64_t end, uint64_t nowMs);

    /// The next frame in order, lent, or null while it is missing.
    const NIVUR::Buffer* first() const { return slot(_base).frame.get(); }

    /// Lets go of first().
    void pop();

    /// The number of frames that were popped, and so the index of the first in the window.
    uint64_t base() const { return _base; }

    /// How many frames were taken, and the end of them.
    uint64_t taken() const { return _base + _held; }
    uint64_t newest() const { return _newest; }

    /// Up to `max` frames, given as their distance from base(), that should have come by now. They
    /// count as asked for again.
    std::vector<long long> overdue(unsigned int max, uint64_t nowMs);

  private:
    struct Slot {
        NIVUR::SharedPtr<NIVUR::Buffer> frame;
        uint64_t dueMs = 0;
    };

    size_t slotOf(uint64_t index) const { return static_cast<size_t>(index % _slots.size()); }
    Slot& slot(uint64_t index) { return _slots[slotOf(index)]; }
    const Slot& slot(uint64_t index) const { return _slots[slotOf(index)]; }

    std::vector<Slot> _slots;
    uint64_t _base = 0;
    uint64_t _expected = 0;  // the end of those that were sent
    uint64_t _newest = 0;
    uint64_t _held = 0;
};

}  // namespace mirror

#endif
