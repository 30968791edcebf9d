#ifndef MIRROR_SEND_WINDOW_H
#define MIRROR_SEND_WINDOW_H

#include <nivur/buffer.h>
#include <nivur/shared_ptr.h>

#include <cstdint>
#include <deque>

#include "latencies.h"

namespace mirror {

/// The datagrams that were sent and are kept until the receiver has confirmed them, in case it asks
/// for them again. On one loop.
class SendWindow {
  public:
    /// The first frame that is not confirmed, and the first that was not sent.
    uint64_t base() const { return _base; }
    uint64_t next() const { return _base + _entries.size(); }

    /// The first frame behind all that have arrived.
    uint64_t newest() const { return _newest; }

    /// How many frames were sent that no later one has overtaken.
    uint64_t onTheWay() const { return next() - _newest; }

    /// Keeps the datagram of the next frame.
    void add(NIVUR::SharedPtr<NIVUR::Buffer> datagram, uint64_t nowUs);

    /// The datagram of a frame; null when it is not, or no longer, here.
    const NIVUR::Buffer* find(uint64_t index) const;

    /// Lets go of the frames before `base`, when the newest that has arrived is the one before
    /// `newest`; false, with nothing changed, when that cannot be.
    bool confirm(uint64_t base, uint64_t newest, uint64_t nowUs);

    /// How long it took from sending a frame to its confirmation.
    const Latencies& latencies() const { return _latencies; }

  private:
    struct Entry {
        NIVUR::SharedPtr<NIVUR::Buffer> datagram;
        uint64_t sentUs;
    };

    std::deque<Entry> _entries;
    uint64_t _base = 0;
    uint64_t _newest = 0;
    Latencies _latencies;
};

}  // namespace mirror

#endif
