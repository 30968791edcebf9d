#ifndef MIRROR_SINK_H
#define MIRROR_SINK_H

#include <nivur/event_center.h>
#include <nivur/run_loop.h>

#include <atomic>
#include <fstream>
#include <string>

#include "checksum.h"
#include "frame.h"

namespace mirror {

/// The receiving end: writes frames to the destination, on a run loop of its own. Sends the event
/// "frame" for each one, with its BytesDone.
class Sink {
  public:
    Sink(std::string path, NIVUR::EventCenter& events);
    ~Sink();

    /// Agrees to an offer, a JSON text, and makes ready; an error message, or "" when ready.
    std::string accept(const std::string& offer);

    /// Queues a frame. Any thread.
    void post(Frame frame);

    /// How many frames wait to be written. Any thread.
    int backlog() const { return _backlog; }

    /// Waits for all frames posted so far; what was written, as a JSON text, or "" when writing
    /// failed. Not on the sink's own loop.
    std::string finish();

  private:
    void write(const Frame& frame);
    std::string total();

    const std::string _path;
    NIVUR::EventCenter& _events;
    NIVUR::RunLoop _loop{"mirror-sink"};
    std::atomic<int> _backlog{0};

    // On the loop alone.
    std::ofstream _file;
    uint64_t _written = 0;
    Checksum _checksum;
};

}  // namespace mirror

#endif
