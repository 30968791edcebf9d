#ifndef MIRROR_STREAMS_H
#define MIRROR_STREAMS_H

#include <nivur/buffer.h>
#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>
#include <nivur/shared_ptr.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>

namespace mirror {

/// Makes a descriptor non-blocking while it exists. The destructor restores the flags, since other
/// processes may share the descriptor.
class NonBlocking : public NIVUR::NoCopyable {
  public:
    explicit NonBlocking(int descriptor);
    ~NonBlocking();

  private:
    const int _descriptor;
    const int _flags;
};

/// Reads a descriptor on a loop, as bytes arrive.
class InputStream : public NIVUR::NoCopyable {
  public:
    enum class Status { BYTES, NOTHING_NOW, END, FAILED };

    /// `onReadable` is called repeatedly while the descriptor is readable; never for a file.
    InputStream(NIVUR::RunLoop& loop, int descriptor, std::function<void()> onReadable);
    ~InputStream();

    void start();
    void stop();

    /// Whether this is a file or a device such as /dev/zero, which cannot be watched and is always
    /// readable.
    bool isFile() const { return _isFile; }

    /// Reads up to `size` bytes and sets `size` to their number. After FAILED, errno has the
    /// reason.
    Status read(char* bytes, size_t& size) const;

  private:
    NIVUR::RunLoop& _loop;
    const int _descriptor;
    const std::function<void()> _onReadable;
    const bool _isFile;
    const NonBlocking _nonBlocking;
    long _watch = 0;
};

/// Writes chunks to a descriptor on a loop, without blocking. Queues a limited number of chunks for
/// a slow reader.
class OutputStream : public NIVUR::NoCopyable {
  public:
    using Body = NIVUR::SharedPtr<NIVUR::Buffer>;

    OutputStream(NIVUR::RunLoop& loop, int descriptor);
    ~OutputStream();

    /// Writes a chunk except for its first `skip` bytes, or queues it. Drops it if the queue is
    /// full or an error occurred.
    void write(Body chunk, size_t skip);

    bool isEmpty() const { return _waiting.empty(); }

    /// Whether chunks are queued and none was completely written for longer than `ms`.
    bool isStuckFor(uint64_t ms) const;
    uint64_t dropped() const { return _dropped; }

    /// The error number of a failed write, after which all chunks are dropped; 0 if none failed.
    int error() const { return _error; }

  private:
    struct Chunk {
        Body body;
        size_t written;
    };

    void flush();
    bool writeFirst();

    NIVUR::RunLoop& _loop;
    const int _descriptor;
    const NonBlocking _nonBlocking;
    std::deque<Chunk> _waiting;
    long _watch = 0;
    uint64_t _takenMs = 0;  // when a chunk was last written, or the first was queued
    uint64_t _dropped = 0;
    int _error = 0;
};

}  // namespace mirror

#endif
