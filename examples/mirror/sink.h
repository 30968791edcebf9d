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

/// What takes the chunks that have arrived: a file or a stream. On the receiver's loop.
class Sink {
  public:
    /// Who is told.
    class Owner {
      public:
        /// Chunks can be taken: they come from now on in that window.
        virtual void onReady() = 0;
        virtual void onFailed(const std::string& error) = 0;

        /// A chunk was taken, or given up.
        virtual void onMoved() = 0;

        /// Everything has arrived, and only what is done with it can still fail.
        virtual void onArrived() = 0;

        /// All is done. `summary` says what has come of it.
        virtual void onComplete(const std::string& summary) = 0;

      protected:
        ~Owner() = default;
    };

    virtual ~Sink() = default;

    /// Takes an offer, and answers onReady() or onFailed(); false when it is no good.
    virtual bool take(const NIVUR::Dictionary& offer) = 0;

    /// What is offered, for a person.
    virtual std::string title() const = 0;

    /// Says in the answer to the offer what is here already.
    virtual void describe(NIVUR::Dictionary& /*accept*/) const {}

    /// Chunks come into that window from now on.
    virtual void start(ChunkWindow& chunks) = 0;

    /// Datagrams have come, which will be looked at now.
    virtual void beforeChunks() {}

    /// Chunks may have come into the window.
    virtual void onChunks() = 0;

    /// The sender's clock has been told.
    virtual void onTiming(const Timing& /*timing*/) {}

    /// The sender has sent everything, which is as the text says; false when that cannot be.
    virtual bool finish(const NIVUR::Dictionary& text) = 0;

    /// Called every few milliseconds while there is something to do.
    virtual void tick() {}

    /// What hinders the sink, if anything does; else "".
    virtual std::string obstacle() const { return ""; }

    /// Whether a sender that sends nothing is to be given up.
    virtual bool expectsProgress() const { return true; }

    virtual std::vector<Statistics::Figure> figures() { return {}; }

    /// Waits until nothing is done on other threads; false when that takes too long, and then the
    /// sink cannot be destroyed.
    virtual bool stop() { return true; }

    /// Logs the state of its loops. Any thread.
    virtual void dump() {}
};

}  // namespace mirror

#endif
