#ifndef MIRROR_OUTBOX_H
#define MIRROR_OUTBOX_H

#include <nivur/buffer.h>
#include <nivur/shared_ptr.h>

#include <cstdint>
#include <deque>
#include <optional>

namespace mirror {

/// The chunks that the receiver may still need: those not sent yet, and those sent but not
/// confirmed. Not thread-safe.
class Outbox {
  public:
    struct Chunk {
        NIVUR::SharedPtr<NIVUR::Buffer> body;
        uint64_t bornUs;      // when it was read
        uint64_t sentUs = 0;  // when it was last sent, in `packet`
        uint64_t packet = 0;
        bool isSent = false;
        bool isWaiting = false;  // to be sent again
    };

    /// The index of the first chunk kept, of the first not sent yet, and the end of all.
    uint64_t base() const { return _base; }
    uint64_t next() const { return _next; }
    uint64_t end() const { return _base + _chunks.size(); }

    size_t size() const { return _chunks.size(); }
    bool hasUnsent() const { return _next < end() || !_again.empty(); }

    void add(NIVUR::SharedPtr<NIVUR::Buffer> body, uint64_t bornUs);

    /// A chunk; null if it was not added yet, or was confirmed or dropped.
    Chunk* find(uint64_t index);

    /// Queues a chunk to be sent again, before all that were not sent yet.
    void sendAgain(uint64_t index);

    /// Takes the next chunk to send, which counts as sent from now on; nullopt if there is none.
    std::optional<uint64_t> take();

    /// Removes the chunks before `base`.
    void confirm(uint64_t base);

    /// Removes the chunks that were read before `bornUs`. Returns how many of them were never sent.
    uint64_t dropBefore(uint64_t bornUs);

  private:
    std::deque<Chunk> _chunks;
    std::deque<uint64_t> _again;
    uint64_t _base = 0;
    uint64_t _next = 0;
};

}  // namespace mirror

#endif
