#ifndef MIRROR_SOURCE_H
#define MIRROR_SOURCE_H

#include <nivur/dictionary.h>

#include <cstdint>
#include <string>

#include "transmitter.h"

namespace mirror {

/// What is sent: a file or a stream. On the sender's loop.
class Source {
  public:
    /// Who is told.
    class Owner {
      public:
        /// The last chunk was added. `text` says what the receiver should have now.
        virtual void onFinished(const NIVUR::Dictionary& text) = 0;
        virtual void onFailed(const std::string& error) = 0;

      protected:
        ~Owner() = default;
    };

    virtual ~Source() = default;

    /// An error message, or "".
    virtual std::string open() = 0;

    /// Says in an offer what will be sent.
    virtual void describe(NIVUR::Dictionary& offer) const = 0;

    /// How long a chunk is of use; 0 for as long as it takes.
    virtual uint64_t latencyUs() const = 0;

    /// The bytes per second at which to begin; 0 for a slow start.
    virtual uint64_t firstRate() const = 0;

    /// Passes over the first `from` bytes, which the receiver has, with that checksum. True once
    /// that is done; false, and to be called again, after a part of it; onFailed() when they are
    /// not what the receiver has.
    virtual bool skip(uint64_t /*from*/, const std::string& /*checksum*/) { return true; }

    /// Chunks may be added from now on; the receiver holds up to `window` of them.
    virtual void start(Transmitter& transmitter, uint64_t window) = 0;

    /// There is room for a chunk: adds one if there is any.
    virtual void fill() = 0;

    /// More chunks are confirmed.
    virtual void onConfirmed() {}

    /// How many bytes are to be sent; 0 if that is not known.
    virtual uint64_t size() const { return 0; }
};

}  // namespace mirror

#endif
