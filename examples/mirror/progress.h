#ifndef MIRROR_PROGRESS_H
#define MIRROR_PROGRESS_H

#include <nivur/event.h>
#include <nivur/event_center.h>
#include <nivur/event_handler.h>
#include <nivur/parameter.h>
#include <nivur/stop_watch.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace mirror {

/// The size that a "frame" or "finished" event carries.
struct BytesDone : NIVUR::ParameterValue {
    explicit BytesDone(uint64_t size) : bytes(size) {}
    const uint64_t bytes;

    /// Sends the event `name` with this size.
    static void send(NIVUR::EventCenter& events, const std::string& name, uint64_t size);
};

/// What the person at the terminal sees: one line while frames arrive, rewritten in place where
/// that is possible, and a summary when all is done. Told by the events "frame" and "finished".
class Progress : public NIVUR::EventHandler {
  public:
    explicit Progress(NIVUR::EventCenter& events);
    ~Progress() override;

    /// Starts the clock for a file of `size` bytes.
    void begin(uint64_t size);

    /// Prints the line as it stands.
    void print();

    void onEvent(const NIVUR::Event& event, NIVUR::Parameter* parameter) override;

  private:
    double mebibytesPerSecond(uint64_t bytes);

    NIVUR::EventCenter& _events;
    const bool _onTerminal;
    uint64_t _size = 0;
    std::optional<NIVUR::StopWatch> _watch;
    std::atomic<uint64_t> _done{0};
};

}  // namespace mirror

#endif
