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

/// Writes a PartFile on a loop of its own, fed through a ring buffer of fixed size, so that the
/// owner's loop never waits for the disk. Operations are called, and replies given, on the owner's
/// loop.
class DiskWriter : public NIVUR::NoCopyable {
  public:
    /// Told of an error message, or "".
    using Reply = std::function<void(const std::string& error)>;

    /// `onWritten` is told of each piece that the disk has taken: there may be room again.
    DiskWriter(const std::string& path, bool resumes, NIVUR::RunLoop& owner, Reply onWritten);

    /// Waits for the disk to end what it is doing, and stops its loop; false when the disk does not
    /// for seconds: nothing can stop it then, and this object must not be destroyed. The owner's
    /// loop, which has to take the last replies, is stopped after it and before this object is
    /// destroyed.
    bool stop();

    /// Whether the disk has been busy with one thing for so long.
    bool isBusyFor(uint64_t ms) const;

    /// Opens the file and reads what it holds. written() and checksum() tell that then.
    void open(const Reply& replyTo);

    /// The checksum of what the file held. Call it before anything is written.
    std::string checksum() const { return _file.checksum(); }

    /// Queues bytes, which the disk takes in large pieces; false, and nothing is queued, when there
    /// is no room for all of them now.
    bool write(const char* bytes, unsigned int size);

    /// Has the disk take what is queued, however little.
    void flush();

    /// How many bytes the file has, as far as the disk has told.
    uint64_t written() const { return _written; }

    /// Once all bytes are written, compares their checksum and gives the file its name.
    void commit(const std::string& checksum, Reply replyTo);

    /// Logs the state of the loop. Any thread.
    void dump() { _loop.dumpLoopInfo(); }

  private:
    void readOn(const std::string& error, const Reply& replyTo);
    void ask(std::function<std::string()> operation, Reply replyTo);
    void requestPiece(unsigned int minSize);
    void onPiece(const std::string& error);
    std::string writePiece();

    PartFile _file;  // the disk's loop alone uses it
    NIVUR::RingBuffer _ring;

    // On the owner's loop.
    NIVUR::RunLoop& _owner;
    const Reply _onWritten;
    uint64_t _written = 0;
    bool _started = false;
    bool _requested = false;
    unsigned int _asked = 0;  // what the disk has not answered
    uint64_t _busyMs = 0;     // since when

    NIVUR::RunLoop _loop{"mirror-disk"};
};

}  // namespace mirror

#endif
