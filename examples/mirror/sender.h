#ifndef MIRROR_SENDER_H
#define MIRROR_SENDER_H

#include <nivur/client_socket.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "address.h"
#include "datagram_path.h"
#include "endpoint.h"
#include "options.h"
#include "source.h"
#include "statistics.h"
#include "transmitter.h"

namespace mirror {

/// The sending end: connects to a receiver, agrees on keys, offers its source, and transmits the
/// source's chunks.
class Sender : public Endpoint, public Transmitter::Owner, public Source::Owner {
  public:
    Sender(const Options& options, NIVUR::EventCenter& events);
    ~Sender() override { stopLoop(); }

    /// Starts sending to a receiver. wait() reports errors.
    void start(const Address& to);

  private:
    void createSockets();
    void startConnection();
    void finishConnection(const NIVUR::IoResult& result);
    void failToConnect(int reason);
    void receiveDatagrams();
    void report();
    void warnOfLatency() const;
    std::string details() const;

    bool handle(const std::string& type, const NIVUR::Dictionary& text) override;
    bool onHello(const NIVUR::Dictionary& text);
    bool onAccept(const NIVUR::Dictionary& text);
    void skip(uint64_t from, const std::string& checksum);
    void begin();
    bool onDone(const NIVUR::Dictionary& text);
    void checkProgress() override;
    void onEnd() override;

    void onOpen() override;
    void onRoom() override;
    void onConfirmed() override;
    void onDeaf() override;
    void onFinished(const NIVUR::Dictionary& text) override;
    void onFailed(const std::string& error) override;

    Address _to;
    NIVUR::SocketAddress _receiver;  // the same address, for sockets
    std::unique_ptr<NIVUR::ClientSocket> _connecting;
    long _connectWatch = 0;
    long _connectTimer = 0;

    const bool _isLive;
    DatagramPath _path;
    std::unique_ptr<Source> _source;
    const Key _key;
    std::optional<Transmitter> _transmitter;
    uint64_t _window = 0;  // how many chunks the receiver can hold
    bool _finished = false;

    Statistics _statistics;
    uint64_t _lost = 0;
};

}  // namespace mirror

#endif
