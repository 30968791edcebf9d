#ifndef NIVUR_CLIENT_SOCKET_H
#define NIVUR_CLIENT_SOCKET_H

#include <cstdint>
#include <string>

#include "export.h"
#include "socket.h"

namespace NIVUR {

/// One end of a TCP connection: made by create() and connect(), or by ServerSocket::accept(). Each
/// call transfers what one platform call does; the rest is the caller's job. The socket counts as
/// connected while it has a peer recorded, which only close() forgets. Threads: see Socket.
class NIVUR_EXPORT ClientSocket : public Socket {
  public:
    ClientSocket() = default;

    /// Takes over the descriptor of a connection with that peer.
    ClientSocket(int socket, const std::string& remoteIP, uint16_t remotePort);

    /// Duplicates the connection; with no descriptor left the copy is not created and has no peer.
    ClientSocket(const ClientSocket& other);

    /// As the copy constructor, after closing what this object had.
    ClientSocket& operator=(const ClientSocket& other);

    /// Takes over the connection and its peer, the log switch and the mark; the other is then not
    /// created.
    ClientSocket(ClientSocket&& other) noexcept;

    /// As the move constructor, after closing what this object had.
    ClientSocket& operator=(ClientSocket&& other) noexcept;

    /// Makes a TCP socket bound to a local address; see Socket::create().
    bool create(const std::string& ip, uint16_t port) override;

    /// Makes a TCP socket bound to a local address and port; port 0 lets the system choose one.
    /// With `reuse` the port may be one that connections used shortly before. Fails with EEXIST
    /// when created already.
    IoResult create(const SocketAddress& local, bool reuse = false);

    /// Closes the descriptor, forgets the peer and marks the object as deprecated.
    void close() override;

    /// Connects to a peer of the socket's own family and records it. False, with a log line, when
    /// not created, already connected, the text is no such address, or the platform refuses; a
    /// connection still in progress on a non-blocking socket is refused too.
    bool connect(const std::string& ip, uint16_t port);

    /// Connects to a peer and records it: DONE. On a non-blocking socket WOULD_BLOCK says that the
    /// connection is under way; once the socket is writable, finishConnect() tells its outcome.
    IoResult connect(const SocketAddress& peer);

    /// The outcome of a connection that was under way. DONE: connected, and the peer is recorded.
    /// WOULD_BLOCK: not decided yet. FAILED: not connected; close(). The reason is told once, and
    /// ENOTCONN afterwards.
    IoResult finishConnect();

    /// Sends up to `length` bytes; `count` is the number sent, which may be smaller. CLOSED when
    /// the connection has ended; there is never a signal.
    IoResult send(const void* data, size_t length) const;

    /// Receives up to `length` bytes; `count` is the number received. CLOSED when the peer has
    /// ended its side and everything that it sent was received; never for a `length` of 0.
    IoResult receive(void* data, size_t length) const;

    /// Sends small pieces at once (true), or lets the system collect them while others are not yet
    /// acknowledged (the default), which delays an answer that spans two sends by some 40 ms.
    /// Returns 0, or -1 on failure.
    int setNoDelay(bool noDelay);

    /// Sends up to `length` bytes; `sent`, if given, gets the number sent, which may be smaller.
    /// False, and `sent` untouched, when not connected or on failure, a vanished peer included:
    /// there is never a signal.
    /// REQUIRES: data is not null.
    bool send(const void* data, unsigned int length, unsigned int* sent) const;

    /// Receives up to `length` bytes; `length` gets the number received. False with `length` 0 when
    /// the peer has closed its side; false with `length` untouched when not connected or on
    /// failure, such as nothing to read on a non-blocking socket. A `length` of 0 succeeds.
    /// REQUIRES: data is not null.
    bool recv(void* data, unsigned int& length) const;

    /// Ends both directions of the connection and keeps everything else: 0, or -1 on failure. Any
    /// thread may call it while others send and receive: blocked calls return at once, a receiving
    /// one as if the peer had closed.
    int shutdown();

    /// The peer's address, "" while not connected.
    std::string remoteAddress() const { return _remoteIP; }

    /// The peer's port, 0 while not connected.
    uint16_t remotePort() const { return _remotePort; }

    /// A mark for the caller, which nothing here reads: close() sets it.
    bool isDeprecated() const { return _deprecated; }

    /// Sets or removes that mark.
    void setDeprecated(bool deprecated) { _deprecated = deprecated; }

  private:
    bool checkConnected() const;

    std::string _remoteIP;
    uint16_t _remotePort = 0;
    bool _deprecated = false;
};

}  // namespace NIVUR

#endif
