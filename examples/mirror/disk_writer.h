#ifndef MIRROR_DISK_WRITER_H
#define MIRROR_DISK_WRITER_H

#include <nivur/no_copyable.h>
#include <nivur/ring_buffer.h>
#include <nivur/run_loop.h>

#include <cstdint>
#include <functional>
#include <string>

#include "part_file.h"

namespace mirror {

/// Writes a PartFile on a loop of its own, which reads a ring buffer of fixed size, so that the
/// owner's loop never waits for the disk. Operations and replies are called on the owner's loop.
class DiskWriter : public NIVUR::NoCopyable {
  public:
    /// Called with an error message, or "".
    using Reply = std::function<void(const std::string& error)>;

    /// `onWritten` is called after each written piece: the ring then has room again.
    DiskWriter(const std::string& path, bool resumes, NIVUR::RunLoop& owner, Reply onWritten);

    /// Waits for the current disk operation and stops the loop. Returns false if the operation
    /// takes seconds: it cannot be stopped then, and this object must not be destroyed. Stop the
    /// owner's loop, which runs the last replies, after this call and before destroying this
    /// object.
    bool stop();

    /// Whether one disk operation has taken longer than `ms`.
    bool isBusyFor(uint64_t ms) const;

    /// Opens the file and reads its contents; then written() and checksum() describe them.
    void open(const Reply& replyTo);

    /// The checksum of the file's initial contents. Call it before write().
    std::string checksum() const { return _file.checksum(); }

    /// Queues bytes, which are written in large pieces. Returns false and queues nothing if the
    /// ring has no room for all of them.
    bool write(const char* bytes, unsigned int size);

    /// Writes what is queued, however little.
    void flush();

    /// The file's size as of the last reply.
    uint64_t written() const { return _written; }

    /// Writes all queued bytes, compares the file's checksum and gives the file its final name.
    void commit(const std::string& checksum, Reply replyTo);

    /// Logs the state of the loop. Any thread.
    void dump() { _loop.dumpLoopInfo(); }

  private:
    void readOn(const std::string& error, const Reply& replyTo);
    void ask(std::function<std::string()> operation, Reply replyTo);
    void requestPiece(unsigned int minSize);
    void onPiece(const std::string& error);
    std::string writePiece();

    PartFile _file;  // used on the disk's loop only
    NIVUR::RingBuffer _ring;

    // Used on the owner's loop.
    NIVUR::RunLoop& _owner;
    const Reply _onWritten;
    uint64_t _written = 0;
    bool _started = false;
    bool _requested = false;
    unsigned int _asked = 0;  // operations without a reply yet
    uint64_t _busyMs = 0;     // when the current one began

    NIVUR::RunLoop _loop{"mirror-disk"};
};

}  // namespace mirror

#endif
