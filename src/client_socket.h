#ifndef NIVUR_CLIENT_SOCKET_H
#define NIVUR_CLIENT_SOCKET_H

#include <cstdint>
#include <string>

#include "export.h"
#include "socket.h"

namespace NIVUR {

/// One end of a TCP connection, made by create() and connect() or by ServerSocket::accept(). Each
/// send or receive makes one system call, which may transfer fewer bytes than asked for. The socket
/// counts as connected while it has recorded a peer; only close() forgets the peer. Threads: see
/// Socket.
class NIVUR_EXPORT ClientSocket : public Socket {
  public:
    ClientSocket() = default;

    /// Takes ownership of the descriptor of a connection with that peer.
    ClientSocket(int socket, const std::string& remoteIP, uint16_t remotePort);

    /// Duplicates the descriptor. If the platform has none left, the copy is not created and has no
    /// peer.
    ClientSocket(const ClientSocket& other);

    /// Like the copy constructor, after closing this socket.
    ClientSocket& operator=(const ClientSocket& other);

    /// Takes the descriptor, the peer, the log switch and the deprecated mark; `other` is then not
    /// created.
    ClientSocket(ClientSocket&& other) noexcept;

    /// Like the move constructor, after closing this socket.
    ClientSocket& operator=(ClientSocket&& other) noexcept;

    /// Makes a TCP socket bound to a local address; see Socket::create().
    bool create(const std::string& ip, uint16_t port) override;

    /// Makes a TCP socket bound to a local address and port; the system chooses a port if it is 0.
    /// With `reuse` the port may be one that connections used shortly before. Fails with EEXIST if
    /// the socket is already created.
    IoResult create(const SocketAddress& local, bool reuse = false);

    /// Closes the descriptor, forgets the peer and sets the deprecated mark.
    void close() override;

    /// Connects to a peer of the socket's own address family and records it. Returns false, with a
    /// log line, if the socket is not created or already connected, if `ip` is no numeric address
    /// of the family, or if the platform refuses. On a non-blocking socket that includes a
    /// connection still in progress.
    bool connect(const std::string& ip, uint16_t port);

    /// Connects to a peer and records it: DONE. On a non-blocking socket WOULD_BLOCK means that the
    /// connection is in progress; once the socket is writable, finishConnect() returns its outcome.
    IoResult connect(const SocketAddress& peer);

    /// Returns the outcome of a connection that was in progress. DONE: connected, and the peer is
    /// recorded. WOULD_BLOCK: still in progress. FAILED: not connected, call close(). The platform
    /// reports the reason once; later calls return ENOTCONN.
    IoResult finishConnect();

    /// Sends up to `length` bytes; `count` is the number sent, which may be smaller. Returns CLOSED
    /// if the connection has ended; SIGPIPE is never raised.
    IoResult send(const void* data, size_t length) const;

    /// Receives up to `length` bytes; `count` is the number received. Returns CLOSED when the peer
    /// has ended its side and all that it sent was received; never if `length` is 0.
    IoResult receive(void* data, size_t length) const;

    /// Makes the system send small pieces at once (true), or collect them while earlier ones are
    /// not yet acknowledged (the default). Collecting delays an answer that takes two sends by some
    /// 40 ms. Returns 0, or -1 on failure.
    int setNoDelay(bool noDelay);

    /// Sends up to `length` bytes; `sent`, if not null, gets the number sent, which may be smaller.
    /// Returns false and leaves `sent` unchanged if the socket is not connected or the call fails,
    /// also when the peer has vanished: SIGPIPE is never raised.
    /// REQUIRES: data is not null.
    bool send(const void* data, unsigned int length, unsigned int* sent) const;

    /// Receives up to `length` bytes; `length` gets the number received. Returns false with
    /// `length` 0 when the peer has closed its side; false with `length` unchanged if the socket is
    /// not connected or the call fails, for example because a non-blocking socket has nothing to
    /// read. Receiving 0 bytes succeeds.
    /// REQUIRES: data is not null.
    bool recv(void* data, unsigned int& length) const;

    /// Shuts down both directions of the connection and keeps the descriptor and the peer. Returns
    /// 0, or -1 on failure. Any thread may call it while others send and receive: their blocked
    /// calls return, a receiving one as if the peer had closed.
    int shutdown();

    /// The peer's address; "" if not connected.
    std::string remoteAddress() const { return _remoteIP; }

    /// The peer's port; 0 if not connected.
    uint16_t remotePort() const { return _remotePort; }

    /// Returns the deprecated mark, which is for the caller's use: close() sets it, and no
    /// operation reads it.
    bool isDeprecated() const { return _deprecated; }

    /// Sets or clears the deprecated mark.
    void setDeprecated(bool deprecated) { _deprecated = deprecated; }

  private:
    bool checkConnected() const;

    std::string _remoteIP;
    uint16_t _remotePort = 0;
    bool _deprecated = false;
};

}  // namespace NIVUR

#endif
