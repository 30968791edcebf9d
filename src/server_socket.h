#ifndef NIVUR_SERVER_SOCKET_H
#define NIVUR_SERVER_SOCKET_H

#include <cstdint>
#include <string>

#include "client_socket.h"
#include "export.h"
#include "socket.h"

namespace NIVUR {

/// A listening TCP socket: create(), listen(), then accept() as connections come, which make it
/// readable. Accepted connections do not depend on it. Threads: see Socket.
class NIVUR_EXPORT ServerSocket : public Socket {
  public:
    /// Makes a TCP socket bound to a local address; see Socket::create().
    bool create(const std::string& ip, uint16_t port) override;

    /// The same at an address; with `reuse` at once after a server whose connections have just
    /// ended. See ClientSocket::create().
    IoResult create(const SocketAddress& local, bool reuse = false);

    /// Closes the listening descriptor.
    void close() override;

    /// Lets connections come, `count` of which may wait to be accepted. False, with an error line,
    /// when not created or the platform refuses.
    /// REQUIRES: count > 0.
    bool listen(unsigned int count) const;

    /// Accepts one connection into `connection`, whose earlier one is closed: DONE. Else it is
    /// untouched; WOULD_BLOCK when no connection waits on a non-blocking socket.
    IoResult accept(ClientSocket& connection) const;

    /// Accepts one connection; a blocking socket waits for it. The caller owns the new connected
    /// socket. Null, with an error line, when not created or on failure, such as no connection on a
    /// non-blocking socket. When memory is exhausted the connection is closed and std::bad_alloc
    /// passes through.
    ClientSocket* accept();
};

}  // namespace NIVUR

#endif
