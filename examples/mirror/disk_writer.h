#ifndef MIRROR_DISK_WRITER_H
#define MIRROR_DISK_WRITER_H

#include <nivur/mutex.h>
#include <nivur/no_copyable.h>
#include <nivur/ring_buffer.h>
#include <nivur/run_loop.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "checksum.h"

namespace mirror {

/// Writes a file on a loop of its own, fed through a ring buffer, so that the network never waits
/// for the disk. The bytes go to PATH.part, which gets its name once it is known to be whole, or
/// straight to PATH if that is a device. A PATH.part that is there already is never touched: it may
/// be another transfer's, or the source.
///
/// One thread may call its operations; error() and written() tell how far the disk has come.
class DiskWriter : public NIVUR::NoCopyable {
  public:
    explicit DiskWriter(std::string path);

    /// Removes what is not whole.
    ~DiskWriter();

    /// Makes the file; an error message, or "".
    std::string open();

    /// Queues bytes; false, and nothing is queued, when there is no room for all of them now.
    bool write(const char* bytes, unsigned int size);

    /// How many bytes the file has.
    uint64_t written() const { return _written; }

    /// What went wrong, or "".
    std::string error();

    /// Waits for all bytes, compares their checksum with this one and gives the file its name; an
    /// error message, or "".
    std::string commit(const std::string& checksum);

    /// Logs the state of the loop. Any thread.
    void dump() { _loop.dumpLoopInfo(); }

  private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::string openFile();
    void drain();
    void writeChunk(const char* bytes, unsigned int size);
    std::string finish(const std::string& checksum);
    void fail(int reason);

    const std::string _path;
    NIVUR::RunLoop _loop{"mirror-disk"};
    NIVUR::RingBuffer _ring;
    std::atomic<bool> _drainQueued{false};
    std::atomic<uint64_t> _written{0};

    NIVUR::Mutex _mutex;
    std::string _error NIVUR_GUARDED_BY(_mutex);

    // On the loop alone.
    std::unique_ptr<std::FILE, Close> _file;
    std::string _partPath;  // of what is not whole yet, or ""
    Checksum _checksum;
};

}  // namespace mirror

#endif
