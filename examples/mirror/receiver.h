#ifndef MIRROR_RECEIVER_H
#define MIRROR_RECEIVER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "address.h"
#include "collector.h"
#include "datagram_path.h"
#include "endpoint.h"
#include "lobby.h"
#include "options.h"
#include "ports.h"
#include "sink.h"
#include "statistics.h"

namespace mirror {

/// The receiving end: waits for a sender that holds the key and makes a valid offer, collects its
/// chunks, and passes them to its sink.
class Receiver : public Endpoint, public Lobby::Owner, public Sink::Owner {
  public:
    Receiver(const Options& options, NIVUR::EventCenter& events);
    ~Receiver() override;

    /// Starts listening on TCP and UDP. Returns the address, or nullopt on failure: see wait().
    std::optional<Address> start(const Address& at);

    /// Stops the sink's threads. Returns false if that takes too long; this object must not be
    /// destroyed then.
    bool stop() { return _sink->stop(); }

    void dump() override;

  private:
    enum class Stage { WAITING, OPENING, RECEIVING, COMMITTING };

    bool watchListener();
    void welcome();
    void pauseListening();
    void begin();
    void receiveDatagrams();
    void take(Packet packet);
    void tick();
    void report();
    std::string details() const;

    bool handle(const std::string& type, const NIVUR::Dictionary& text) override;
    bool onOffer(std::unique_ptr<ControlChannel>& channel, const NIVUR::Dictionary& offer) override;
    void onEnd() override { _lobby.close(); }
    void onLost(const std::string& reason) override;
    void checkProgress() override;

    void onReady() override;
    void onFailed(const std::string& error) override;
    void onMoved() override;
    void onArrived() override;
    void onComplete(const std::string& summary) override;

    const bool _isLive;
    Ports _ports;
    long _listening = 0;  // the watch of the listener
    Lobby _lobby;
    DatagramPath _path;
    std::unique_ptr<Sink> _sink;
    Statistics _statistics;

    // The current transfer.
    Stage _stage = Stage::WAITING;
    std::optional<Collector> _collector;
    bool _finished = false;  // the sender has sent everything
};

}  // namespace mirror

#endif
