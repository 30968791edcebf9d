#ifndef NIVUR_RING_BUFFER_H
#define NIVUR_RING_BUFFER_H

#include <atomic>
#include <memory>
#include <string>

#include "export.h"
#include "mutex.h"
#include "no_copyable.h"
#include "thread_annotations.h"

namespace NIVUR {

/// What RingBuffer::write() and read() return.
enum RingBufferResult : unsigned int {
    RING_BUFFER_OK = 0,               ///< all bytes were copied
    RING_BUFFER_NOT_ENOUGH_DATA = 1,  ///< fewer are stored than were asked for
    RING_BUFFER_NOT_ENOUGH_SPACE = 2  ///< fewer would fit than were offered
};

/// A byte queue of fixed capacity between producers and consumers. A block is written or read whole
/// or not at all, and a refused call returns at once: nobody waits for data or space. The ring
/// keeps bytes, not blocks: they may be read in other pieces than they were written in.
///
/// Any thread may call any operation: each call sees a consistent ring, and with several producers
/// or consumers every block is one piece of the stream. Producers and consumers do not wait for
/// each other: each side has a lock of its own.
/// REQUIRES for destruction: no operation is under way.
class NIVUR_EXPORT RingBuffer : public NoCopyable {
  public:
    /// An empty ring for `size` bytes. When the memory cannot be had it is one for 0 bytes, which
    /// refuses whatever is written.
    RingBuffer(unsigned int size, std::string name);
    ~RingBuffer();

    /// Appends a copy of the `length` bytes at `data`: RING_BUFFER_OK, or
    /// RING_BUFFER_NOT_ENOUGH_SPACE and then nothing has changed. 0 bytes always fit.
    unsigned int write(const char* data, unsigned int length);

    /// Moves the oldest `length` bytes to `data`: RING_BUFFER_OK, or RING_BUFFER_NOT_ENOUGH_DATA
    /// and then nothing has changed. 0 bytes are always there.
    unsigned int read(char* data, unsigned int length);

    /// Drops what is stored and zeroes the storage. Producers and consumers need not stop for it.
    void reset();

    /// How many bytes are stored: the only consumer of a ring can read at least as many. It takes
    /// no lock, so that other threads may have changed the number by the time it is used.
    unsigned int getUnreadSize() const;

    /// What the ring was called when it was made.
    const std::string& name() const { return _name; }

  private:
    // Producers lock _writer, consumers lock _reader, and only reset() locks both, in this order:
    //
    //     ---- read ----><---- stored ----><---- free ---->     bytes since the ring was made
    //         _reader.total     _writer.total      _reader.total + _size
    //
    // The free bytes are the writer's and the stored ones the reader's, up to its `limit`. A side
    // passes bytes on by adding to its total once it has copied them. Memory order: a total is
    // released after the copy and acquired before the other side copies over it. The limit is read
    // anew only when it does not suffice, so that the sides seldom touch each other's cache line.
    struct alignas(64) Side {
        Mutex mutex;
        unsigned int position NIVUR_GUARDED_BY(mutex) = 0;  // in _buffer: below _size, or 0
        unsigned int limit NIVUR_GUARDED_BY(mutex) = 0;     // of total, modulo 2^32 like it
        std::atomic<unsigned int> total{0};                 // written under mutex
    };

    bool mayPass(Side& side, const Side& other, unsigned int ahead, unsigned int length)
        NIVUR_REQUIRES(side.mutex);
    void pass(Side& side, unsigned int length) NIVUR_REQUIRES(side.mutex);

    const std::string _name;
    const std::unique_ptr<char[]> _buffer;
    const unsigned int _size;
    Side _writer;
    Side _reader;
};

}  // namespace NIVUR

#endif
