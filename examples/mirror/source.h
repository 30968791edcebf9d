#ifndef MIRROR_SOURCE_H
#define MIRROR_SOURCE_H

#include <nivur/dictionary.h>

#include <cstdint>
#include <string>

#include "transmitter.h"

namespace mirror {

/// The source of chunks: a file or a stream. Used on the sender's loop.
class Source {
  public:
    /// Receives the source's results.
    class Owner {
      public:
        /// The last chunk was added. `text` is the `finished` for the receiver.
        virtual void onFinished(const NIVUR::Dictionary& text) = 0;
        virtual void onFailed(const std::string& error) = 0;

      protected:
        ~Owner() = default;
    };

    virtual ~Source() = default;

    /// Opens the source. Returns an error message, or "".
    virtual std::string open() = 0;

    /// Describes the source in an offer.
    virtual void describe(NIVUR::Dictionary& offer) const = 0;

    /// How long a chunk is useful; 0: forever.
    virtual uint64_t latencyUs() const = 0;

    /// The initial rate in bytes per second; 0 for a slow start.
    virtual uint64_t firstRate() const = 0;

    /// Skips the first `from` bytes, which the receiver already has. Returns true when done, false
    /// if it must be called again. Calls onFailed() if these bytes do not have that checksum.
    virtual bool skip(uint64_t /*from*/, const std::string& /*checksum*/) { return true; }

    /// From now on chunks may be added; the receiver can hold up to `window` of them.
    virtual void start(Transmitter& transmitter, uint64_t window) = 0;

    /// Adds a chunk to the transmitter, if one is available.
    virtual void fill() = 0;

    /// More chunks were confirmed.
    virtual void onConfirmed() {}

    /// How many bytes will be sent; 0 if unknown.
    virtual uint64_t size() const { return 0; }
};

}  // namespace mirror

#endif
