#ifndef MIRROR_PLAYOUT_H
#define MIRROR_PLAYOUT_H

#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>

#include <cstdint>
#include <functional>

#include "alarm.h"
#include "chunk_window.h"
#include "latencies.h"
#include "packets.h"

namespace mirror {

/// Hands out the chunks of a stream in order, each at its sending time plus the latency, and skips
/// what has not come by then. On one loop.
class Playout : public NIVUR::NoCopyable {
  public:
    using Output = std::function<void(ChunkWindow::Body body)>;

    /// `output` takes each chunk, with its DataHeader.
    Playout(NIVUR::RunLoop& loop, ChunkWindow& chunks, uint64_t latencyUs, Output output);

    /// Learns how far the clocks are apart; `timing` came just now.
    void learn(const Timing& timing);

    /// Hands out what is due. Call it before chunks are added: what is due by then and comes later
    /// is too late.
    void handOut();

    /// Looks at the chunks that were added.
    void schedule();

    /// Whether of a stream of so many chunks no more can be handed out; what is missing is skipped
    /// then.
    bool isOver(uint64_t end);

    /// How many chunks have not come in time.
    uint64_t skipped() const { return _chunks.base() - _all.count() + _neverCame; }

    /// How long chunks took from sending to handing out: of all, and since takeRecent().
    const Latencies& latencies() const { return _all; }
    Latencies takeRecent();

  private:
    void skipTo(uint64_t index);
    uint64_t findFirst();
    uint64_t bornUs(uint64_t index) const;

    ChunkWindow& _chunks;
    const uint64_t _latencyUs;
    const Output _output;
    Alarm _alarm;
    uint64_t _senderUs = 0;  // the sender's clock, some time ago; 0: not known yet
    int64_t _offsetUs = 0;   // from the sender's clock to this one
    uint64_t _learnedUs = 0;
    uint64_t _endedUs = 0;    // when the end became known; 0 before
    uint64_t _neverCame = 0;  // after the last that has come, once the end is over
    Latencies _all;
    Latencies _recent;
};

}  // namespace mirror

#endif
