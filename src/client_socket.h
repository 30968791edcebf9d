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

    /// Makes a TCP socket bound to a local address; see Socket::create().
    bool create(const std::string& ip, uint16_t port) override;

    /// Closes the descriptor, forgets the peer and marks the object as deprecated.
    void close() override;

    /// Connects to a peer of the socket's own family and records it. False, with a log line, when
    /// not created, already connected, the text is no such address, or the platform refuses; a
    /// connection still in progress on a non-blocking socket is refused too.
    bool connect(const std::string& ip, uint16_t port);

    /// Sends up to `length` bytes; `sent`, if given, gets the number sent, which may be smaller.
    /// False, and `sent` untouched, when not connected or on failure, a vanished peer included:
    /// there is never a signal.
    /// REQUIRES: data is not null.
    bool send(const void* data, unsigned int length, unsigned int* sent) const;

    /// Receives up to `length` bytes; `length` gets the number received. False with `length` 0 when
    /// the peer has closed its side; false with `length` untouched when not connected or on
    /// failure, such as nothing to read on a non-blocking socket.
    /// REQUIRES: data is not null.
    bool recv(void* data, unsigned int& length) const;

    /// Ends both directions of the connection and keeps everything else: 0, or -1 on failure.
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
