#ifndef MIRROR_SENDER_H
#define MIRROR_SENDER_H

#include <nivur/buffer_pool.h>
#include <nivur/udp_socket.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "address.h"
#include "checksum.h"
#include "endpoint.h"
#include "frame.h"
#include "pace.h"
#include "send_window.h"

namespace mirror {

/// The sending end: offers the file, sends its frames as datagrams at the pace at which they
/// arrive, and sends those again that the receiver misses.
class Sender : public Endpoint {
  public:
    Sender(std::string path, NIVUR::EventCenter& events);
    ~Sender() override { stopLoop(); }

    /// Begins to send to that receiver. What goes wrong, wait() tells.
    void start(const Address& to);

  private:
    std::string open();
    void createSockets();
    void startConnection();
    void finishConnection(const NIVUR::IoResult& result);
    void failToConnect(int reason);
    void offer();
    void announce();
    void sendFrames();
    bool mayAddFrame() const;
    bool readFrame();
    void transmit(uint64_t index);
    void pause(uint64_t index);
    void resume();
    void sendAgain(uint64_t index);
    void sayFinished();
    std::string details() const;

    bool handle(const std::string& type, const NIVUR::Dictionary& text) override;
    bool onAccept(const NIVUR::Dictionary& text);
    bool onHave(const NIVUR::Dictionary& text);
    bool onMissing(const NIVUR::Dictionary& text);
    bool onDone(const NIVUR::Dictionary& text);

    const std::string _path;
    Address _to;
    NIVUR::SocketAddress _receiver;  // the same, as sockets take it
    NIVUR::BufferPool _pool;
    NIVUR::UDPSocket _udp;
    std::unique_ptr<NIVUR::ClientSocket> _connecting;
    long _connectWatch = 0;
    long _connectTimer = 0;

    std::ifstream _file;
    FrameLayout _layout;
    Checksum _checksum;
    uint64_t _session = 0;
    uint64_t _maxWindow = 0;  // 0 until the receiver has accepted
    SendWindow _window;
    Pace _pace;
    uint64_t _announced = 0;
    long _announceTimer = 0;
    uint64_t _refused = 0;  // the frame for which there was no room
    long _roomWatch = 0;    // until there is
    uint64_t _echoUs = 0;   // when the last frame was sent that is known to have arrived

    uint64_t _datagrams = 0;
    uint64_t _lost = 0;
    uint64_t _sentAgain = 0;
};

}  // namespace mirror

#endif
