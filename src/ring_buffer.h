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

/// The results of RingBuffer::write() and read().
enum RingBufferResult : unsigned int {
    RING_BUFFER_OK = 0,               ///< all bytes were copied
    RING_BUFFER_NOT_ENOUGH_DATA = 1,  ///< fewer bytes are stored than were asked for
    RING_BUFFER_NOT_ENOUGH_SPACE = 2  ///< fewer bytes are free than were offered
};

/// A byte queue of fixed capacity between producers and consumers. A block is written or read whole
/// or not at all. Calls do not wait for data or space: one that cannot succeed is refused at once.
/// Block boundaries are not kept: reads need not match writes.
///
/// Any thread may call any operation. Each call sees a consistent ring, and with several producers
/// or consumers each block stays contiguous in the stream. Producers and consumers do not wait for
/// each other: each side has its own lock. What a producer did before write() is visible to the
/// consumer that reads those bytes.
/// REQUIRES for destruction: no operation is under way.
class NIVUR_EXPORT RingBuffer : public NoCopyable {
  public:
    /// Makes an empty ring of `size` bytes. If the memory cannot be allocated its capacity is 0,
    /// and it refuses every block of one byte or more.
    RingBuffer(unsigned int size, std::string name);
    ~RingBuffer();

    /// Appends a copy of the `length` bytes at `data` and returns RING_BUFFER_OK; otherwise returns
    /// RING_BUFFER_NOT_ENOUGH_SPACE and changes nothing. Writing 0 bytes always succeeds.
    unsigned int write(const char* data, unsigned int length);

    /// Moves the oldest `length` bytes to `data` and returns RING_BUFFER_OK; otherwise returns
    /// RING_BUFFER_NOT_ENOUGH_DATA and changes nothing. Reading 0 bytes always succeeds.
    unsigned int read(char* data, unsigned int length);

    /// Discards the stored bytes and zeroes the memory. May be called while other threads write and
    /// read.
    void reset();

    /// The number of bytes that are stored; with a single consumer, at least this many can be read.
    /// Takes no lock: other threads may change the number before the caller uses it.
    unsigned int getUnreadSize() const;

    /// The name that was passed to the constructor.
    const std::string& name() const { return _name; }

  private:
    // Producers lock _writer, consumers lock _reader, and only reset() locks both, in this order.
    // Each side counts the bytes that it has copied since the ring was made, modulo 2^32:
    //
    //     ---- read ----><---- stored ----><---- free ---->
    //         _reader.total     _writer.total      _reader.total + _size
    //
    // Only producers touch the free bytes, and only consumers the stored ones. Each side keeps a
    // `limit` for its total and reads the other side's total only when the limit does not suffice,
    // so that the sides seldom share a cache line: 59 ns for 188 bytes between two processors,
    // where a deque under one mutex takes 410 ns (docs/performance.md, "188 B, 2 threads, two
    // processors").
    //
    // Memory ordering: a side releases its total after it has copied; the other side acquires that
    // total before it copies over those bytes.
    struct alignas(64) Side {
        Mutex mutex;
        unsigned int position NIVUR_GUARDED_BY(mutex) = 0;  // in _buffer; less than _size, or 0
        unsigned int limit NIVUR_GUARDED_BY(mutex) = 0;     // the greatest allowed value of total
        std::atomic<unsigned int> total{0};                 // written with mutex held
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
