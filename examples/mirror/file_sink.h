#ifndef MIRROR_FILE_SINK_H
#define MIRROR_FILE_SINK_H

#include <string>

#include "disk_writer.h"
#include "file_layout.h"
#include "progress.h"
#include "sink.h"

namespace mirror {

/// Writes a received file, on a thread of its own.
class FileSink : public Sink {
  public:
    /// If `resumes`, continues the incomplete file of an earlier transfer.
    FileSink(const std::string& path, bool resumes, NIVUR::RunLoop& loop,
             NIVUR::EventCenter& events, Owner& owner);

    bool take(const NIVUR::Dictionary& offer) override;
    std::string title() const override { return _name; }
    void describe(NIVUR::Dictionary& accept) const override;
    void start(ChunkWindow& chunks) override;
    void onChunks() override;
    bool finish(const NIVUR::Dictionary& text) override;
    void tick() override;
    std::string obstacle() const override;
    bool expectsProgress() const override;
    std::vector<Statistics::Figure> figures() override;
    bool stop() override { return _disk.stop(); }
    void dump() override { _disk.dump(); }

  private:
    void onOpened(const std::string& error);
    void onWritten(const std::string& error);
    void onCommitted(const std::string& error);

    NIVUR::EventCenter& _events;
    Owner& _owner;
    DiskWriter _disk;
    uint64_t _size = 0;    // of the whole file
    uint64_t _before = 0;  // of the part that an earlier transfer has written
    FileLayout _layout;    // of the rest
    std::string _name;
    ChunkWindow* _chunks = nullptr;
    std::string _checksum;  // the sender's, after it has sent everything
    bool _committing = false;
};

}  // namespace mirror

#endif
