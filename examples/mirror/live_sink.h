#ifndef MIRROR_LIVE_SINK_H
#define MIRROR_LIVE_SINK_H

#include <nivur/run_loop.h>

#include <optional>
#include <string>

#include "playout.h"
#include "sink.h"
#include "streams.h"

namespace mirror {

/// Writes a received stream to the standard output.
class LiveSink : public Sink {
  public:
    LiveSink(NIVUR::RunLoop& loop, Owner& owner);

    bool take(const NIVUR::Dictionary& offer) override;
    std::string title() const override { return "a live stream"; }
    void start(ChunkWindow& chunks) override;
    void beforeChunks() override;
    void onChunks() override;
    void onTiming(const Timing& timing) override;
    bool finish(const NIVUR::Dictionary& text) override;
    void tick() override { checkComplete(); }
    std::string obstacle() const override;
    bool expectsProgress() const override { return false; }  // it ends within its latency
    std::vector<Statistics::Figure> figures() override;

  private:
    void output(ChunkWindow::Body body);
    void checkComplete();
    std::string summary() const;

    NIVUR::RunLoop& _loop;
    Owner& _owner;
    uint64_t _latencyUs = 0;
    std::optional<OutputStream> _output;
    std::optional<Playout> _playout;
    std::optional<uint64_t> _end;  // the number of chunks, after the sender has sent it
    bool _complete = false;
};

}  // namespace mirror

#endif
