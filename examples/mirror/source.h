#ifndef MIRROR_SOURCE_H
#define MIRROR_SOURCE_H

#include <nivur/buffer_pool.h>
#include <nivur/run_loop.h>
#include <nivur/semaphore.h>

#include <fstream>
#include <string>

#include "agreement.h"
#include "checksum.h"
#include "progress.h"
#include "sink.h"

namespace mirror {

/// The sending end: reads the source frame by frame on a timer of its own run loop and posts each
/// to the sink.
class Source {
  public:
    Source(std::string path, Sink& sink, Progress& progress);
    ~Source();

    /// Mirrors the whole file; an error message, or "" when the sink holds the same bytes.
    std::string mirror();

  private:
    std::string open();
    void tick();
    bool readFrame();
    void finish(const std::string& error);
    std::string compare();

    const std::string _path;
    Sink& _sink;
    Progress& _progress;
    NIVUR::BufferPool _pool;
    NIVUR::RunLoop _loop{"mirror-source"};
    NIVUR::Semaphore _finished;

    // On the loop alone while it runs.
    std::ifstream _file;
    uint64_t _size = 0;
    uint64_t _read = 0;
    Checksum _checksum;
    long _timer = 0;
    std::string _error;
};

}  // namespace mirror

#endif
