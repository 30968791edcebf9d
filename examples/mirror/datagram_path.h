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

/// A datagram that has arrived, is genuine and has not come before.
struct Packet {
    PacketKind kind;
    uint64_t number;
    NIVUR::SharedPtr<NIVUR::Buffer> body;
};

/// Carries numbered, encrypted datagrams to the peer and back. Nothing is sent to an address that
/// was not given and from which no genuine datagram has come. On one loop.
class DatagramPath : public NIVUR::NoCopyable {
  public:
    /// `onWritable` is called when the system has room again after isBlocked().
    DatagramPath(NIVUR::RunLoop& loop, unsigned int dropPercent, std::function<void()> onWritable);
    ~DatagramPath() { close(); }

    NIVUR::UDPSocket& socket() { return _socket; }
    const NIVUR::UDPSocket& socket() const { return _socket; }

    /// Begins a session with a peer. One without an address is where its newest genuine datagram
    /// came from: a translator of addresses (NAT) may change it after a pause.
    void begin(const SessionKeys& keys, const NIVUR::SocketAddress& peer);

    /// Forgets the session.
    void end();
    void close();

    /// An empty buffer for a body; an empty pointer when there is no memory.
    using Body = NIVUR::SharedPtr<NIVUR::Buffer>;
    Body makeBody() { return _pool.getPoolBuffer(kMaxBody, nullptr); }

    /// The number of the packet that is sent next.
    uint64_t next() const { return _next; }

    /// Queues a datagram, unless nobody is known to receive it. flush() sends what is queued.
    void queue(PacketKind kind, const char* body, size_t size);
    void flush();

    /// Whether the system had no room for what was queued: only control datagrams may follow.
    bool isBlocked() const { return _roomWatch != 0; }

    /// Passes on the genuine datagrams that have arrived. Those that come faster than they are
    /// handled do not keep the loop from everything else: the rest stays for the next call.
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

    // Datagrams of one size, but for the last, which wait to be sent in one call.
    std::vector<char> _batch;
    size_t _batched = 0;
    size_t _datagram = 0;
    long _roomWatch = 0;

    // What one call has received: datagrams of one size, but for the last.
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
