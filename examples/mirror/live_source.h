#ifndef MIRROR_LIVE_SOURCE_H
#define MIRROR_LIVE_SOURCE_H

#include <cstdint>
#include <optional>
#include <string>

#include "datagram_path.h"
#include "source.h"
#include "streams.h"

namespace mirror {

/// The standard input as a stream: each chunk is the result of one read(), and is useless after the
/// latency.
class LiveSource : public Source {
  public:
    LiveSource(uint64_t latencyUs, NIVUR::RunLoop& loop, DatagramPath& datagrams, Owner& owner)
        : _latencyUs(latencyUs), _loop(loop), _datagrams(datagrams), _owner(owner) {}

    std::string open() override { return ""; }
    void describe(NIVUR::Dictionary& offer) const override;
    uint64_t latencyUs() const override { return _latencyUs; }
    uint64_t firstRate() const override;
    void start(Transmitter& transmitter, uint64_t window) override;
    void fill() override;
    void onConfirmed() override;

  private:
    void readAll();
    bool addChunk();
    void finish();

    const uint64_t _latencyUs;
    NIVUR::RunLoop& _loop;
    DatagramPath& _datagrams;
    Owner& _owner;
    std::optional<InputStream> _input;
    Transmitter* _transmitter = nullptr;
    uint64_t _window = 0;
    bool _finished = false;
};

}  // namespace mirror

#endif
