#ifndef MIRROR_SINK_H
#define MIRROR_SINK_H

#include <nivur/dictionary.h>

#include <cstdint>
#include <string>
#include <vector>

#include "chunk_window.h"
#include "packets.h"
#include "statistics.h"

namespace mirror {

/// The destination of received chunks: a file or a stream. Used on the receiver's loop.
class Sink {
  public:
    /// Receives the sink's results.
    class Owner {
      public:
        /// The sink is ready for start().
        virtual void onReady() = 0;
        virtual void onFailed(const std::string& error) = 0;

        /// A chunk was consumed.
        virtual void onMoved() = 0;

        /// Everything has arrived; only storing it can still fail.
        virtual void onArrived() = 0;

        /// Everything is stored or handed out. `summary` describes it for people.
        virtual void onComplete(const std::string& summary) = 0;

      protected:
        ~Owner() = default;
    };

    virtual ~Sink() = default;

    /// Accepts an offer and then calls onReady() or onFailed(); false if the offer is invalid.
    virtual bool take(const NIVUR::Dictionary& offer) = 0;

    /// A description of the offer for people.
    virtual std::string title() const = 0;

    /// Adds to the answer to the offer which part of the file is here already.
    virtual void describe(NIVUR::Dictionary& /*accept*/) const {}

    /// From now on chunks arrive in that window.
    virtual void start(ChunkWindow& chunks) = 0;

    /// Called before datagrams that have arrived are handled.
    virtual void beforeChunks() {}

    /// Called after datagrams were handled: the window may have new chunks.
    virtual void onChunks() = 0;

    /// A timing datagram has arrived.
    virtual void onTiming(const Timing& /*timing*/) {}

    /// The sender has sent everything that `text`, a `finished`, describes; false if `text` is
    /// invalid.
    virtual bool finish(const NIVUR::Dictionary& text) = 0;

    /// Called every few milliseconds while there is something to do.
    virtual void tick() {}

    /// The reason why the sink has stalled, or "".
    virtual std::string obstacle() const { return ""; }

    /// Whether a sender that makes no progress must be given up.
    virtual bool expectsProgress() const { return true; }

    virtual std::vector<Statistics::Figure> figures() { return {}; }

    /// Stops the sink's threads. Returns false if that takes too long; the sink must not be
    /// destroyed then.
    virtual bool stop() { return true; }

    /// Logs the state of its loops. Any thread.
    virtual void dump() {}
};

}  // namespace mirror

#endif
