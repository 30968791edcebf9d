#ifndef MIRROR_DATAGRAM_PATH_H
#define MIRROR_DATAGRAM_PATH_H

#include <nivur/buffer_pool.h>
#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>
#include <nivur/socket_address.h>
#include <nivur/udp_socket.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "dropper.h"
#include "packets.h"
#include "replay_window.h"
#include "secrets.h"

namespace mirror {

/// A datagram that has arrived, is authentic and is not a replay.
struct Packet {
    PacketKind kind;
    uint64_t number;
    NIVUR::SharedPtr<NIVUR::Buffer> body;
};

/// Exchanges numbered, encrypted datagrams with the peer. Nothing is sent to an address that
/// begin() was not given and that sent no authentic datagram. Used on one loop.
class DatagramPath : public NIVUR::NoCopyable {
  public:
    /// `onWritable` is called when the socket's buffer has room again after isBlocked().
    DatagramPath(NIVUR::RunLoop& loop, unsigned int dropPercent, std::function<void()> onWritable);
    ~DatagramPath() { close(); }

    NIVUR::UDPSocket& socket() { return _socket; }
    const NIVUR::UDPSocket& socket() const { return _socket; }

    /// Starts a session with a peer. If `peer` is invalid, datagrams are sent to the source address
    /// of the newest authentic one, which a NAT may change after a pause.
    void begin(const SessionKeys& keys, const NIVUR::SocketAddress& peer);

    /// Ends the session.
    void end();
    void close();

    /// A buffer for a body; an empty pointer if memory is exhausted.
    using Body = NIVUR::SharedPtr<NIVUR::Buffer>;
    Body makeBody() { return _pool.getPoolBuffer(kMaxBody, nullptr); }

    /// The number of the packet that is sent next.
    uint64_t next() const { return _next; }

    /// Queues a datagram for flush(). Discards it if the peer's address is not known.
    void queue(PacketKind kind, const char* body, size_t size);
    void flush();

    /// Whether the socket's buffer is full: then only control datagrams may be queued.
    bool isBlocked() const { return _roomWatch != 0; }

    /// Passes the authentic datagrams that have arrived to `take`. One call handles a limited
    /// number of datagrams, so that a flood does not block the loop.
    void receive(const std::function<void(Packet)>& take);

    uint64_t ignored() const { return _ignored; }
    uint64_t dropped() const { return _dropped; }
    uint64_t bytesSent() const { return _bytesSent; }

  private:
    bool fetch();
    std::optional<Packet> open(const char* bytes, size_t size);
    std::optional<Packet> takeNext();
    void watchRoom();
    void onRoom();

    NIVUR::RunLoop& _loop;
    const std::function<void()> _onWritable;
    NIVUR::UDPSocket _socket;
    NIVUR::BufferPool _pool;
    Dropper _dropper;

    // Of the session.
    std::optional<SessionKeys> _keys;
    NIVUR::SocketAddress _peer;
    bool _followsPeer = false;
    uint64_t _next = 0;
    ReplayWindow _arrived;

    // Datagrams to send in one call: all of one size, except that the last may be shorter.
    std::vector<char> _batch;
    size_t _batched = 0;
    size_t _datagram = 0;
    long _roomWatch = 0;

    // Datagrams received by one call: all of one size, except that the last may be shorter.
    std::vector<char> _room;
    size_t _fetched = 0;
    size_t _taken = 0;
    size_t _segment = 0;
    NIVUR::SocketAddress _from;

    uint64_t _handled = 0;
    uint64_t _ignored = 0;
    uint64_t _dropped = 0;
    uint64_t _bytesSent = 0;
};

}  // namespace mirror

#endif
