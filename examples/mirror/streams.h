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

/// Makes a descriptor non-blocking, and as it was before at its end: others may share it.
class NonBlocking : public NIVUR::NoCopyable {
  public:
    explicit NonBlocking(int descriptor);
    ~NonBlocking();

  private:
    const int _descriptor;
    const int _flags;
};

/// A descriptor that is read on a loop as bytes come.
class InputStream : public NIVUR::NoCopyable {
  public:
    enum class Status { BYTES, NOTHING_NOW, END, FAILED };

    /// `onReadable` is called while there is something to read; never for a file.
    InputStream(NIVUR::RunLoop& loop, int descriptor, std::function<void()> onReadable);
    ~InputStream();

    void start();
    void stop();

    /// Whether this is a file or a device such as /dev/zero, which cannot be watched: what it holds
    /// can always be read.
    bool isFile() const { return _isFile; }

    /// Reads up to `size` bytes; `size` gets their number. When it has FAILED, errno tells why.
    Status read(char* bytes, size_t& size) const;

  private:
    NIVUR::RunLoop& _loop;
    const int _descriptor;
    const std::function<void()> _onReadable;
    const bool _isFile;
    const NonBlocking _nonBlocking;
    long _watch = 0;
};

/// A descriptor that is written on a loop as it takes bytes. What a slow reader does not take waits
/// here, a limited number of chunks.
class OutputStream : public NIVUR::NoCopyable {
  public:
    using Body = NIVUR::SharedPtr<NIVUR::Buffer>;

    OutputStream(NIVUR::RunLoop& loop, int descriptor);
    ~OutputStream();

    /// Writes a chunk, but for its first `skip` bytes, now or later, or drops it when too many
    /// wait.
    void write(Body chunk, size_t skip);

    bool isEmpty() const { return _waiting.empty(); }

    /// Whether something has waited for so long and nothing was taken.
    bool isStuckFor(uint64_t ms) const;
    uint64_t dropped() const { return _dropped; }

    /// The error number of what went wrong, after which all is dropped; 0 if nothing did.
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
    uint64_t _takenMs = 0;  // when a chunk was last taken, or the first began to wait
    uint64_t _dropped = 0;
    int _error = 0;
};

}  // namespace mirror

#endif
