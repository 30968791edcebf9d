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

/// Hands out the chunks of a stream in order, each when the latency has passed since it was read,
/// and skips those that have not arrived by then. Used on one loop.
class Playout : public NIVUR::NoCopyable {
  public:
    using Output = std::function<void(ChunkWindow::Body body)>;

    /// `output` receives each chunk, with its DataHeader.
    Playout(NIVUR::RunLoop& loop, ChunkWindow& chunks, uint64_t latencyUs, Output output);

    /// Updates the clock offset. `timing` has just arrived.
    void learn(const Timing& timing);

    /// Hands out the chunks that are due. Call it before adding chunks, so that those before a due
    /// chunk count as too late.
    void handOut();

    /// Handles added chunks: skips those that are too late, and sets the alarm for the next.
    void schedule();

    /// Whether all chunks before `end`, the end of the stream, were handed out or are too late.
    /// Counts the latter as skipped.
    bool isOver(uint64_t end);

    /// How many chunks have not arrived in time.
    uint64_t skipped() const { return _chunks.base() - _all.count() + _neverCame; }

    /// How long chunks took from reading to handing out: all, and those since the last
    /// takeRecent().
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
    uint64_t _senderUs = 0;  // the sender's clock in the last timing; 0: none yet
    int64_t _offsetUs = 0;   // this clock minus the sender's
    uint64_t _learnedUs = 0;
    uint64_t _endedUs = 0;    // when isOver() was first called; 0 before
    uint64_t _neverCame = 0;  // after the last that arrived, once the stream is over
    Latencies _all;
    Latencies _recent;
};

}  // namespace mirror

#endif
