#ifndef NIVUR_SERVER_SOCKET_H
#define NIVUR_SERVER_SOCKET_H

#include <cstdint>
#include <string>

#include "client_socket.h"
#include "export.h"
#include "socket.h"

namespace NIVUR {

/// A listening TCP socket: call create(), listen(), then accept() for each connection; a waiting
/// connection makes the socket readable. Accepted connections do not depend on it. Threads: see
/// Socket.
class NIVUR_EXPORT ServerSocket : public Socket {
  public:
    /// Makes a TCP socket bound to a local address; see Socket::create().
    bool create(const std::string& ip, uint16_t port) override;

    /// Makes a TCP socket bound to a local address and port; the system chooses a port if it is 0.
    /// With `reuse` the port may be one that a server used shortly before. Fails with EEXIST if the
    /// socket is already created.
    IoResult create(const SocketAddress& local, bool reuse = false);

    /// Closes the listening descriptor.
    void close() override;

    /// Starts listening with a backlog of `count` connections. Returns false, with an error line,
    /// if the socket is not created or the platform refuses.
    /// REQUIRES: count > 0.
    bool listen(unsigned int count) const;

    /// Accepts a connection. DONE: `connection` holds it, and its former descriptor is closed.
    /// Otherwise `connection` is unchanged; WOULD_BLOCK if no connection waits on a non-blocking
    /// socket.
    IoResult accept(ClientSocket& connection) const;

    /// Accepts a connection; a blocking socket waits for it. Returns the new connected socket,
    /// which the caller owns. Returns null, with an error line, if the socket is not created or the
    /// call fails, for example because no connection waits on a non-blocking socket. If memory is
    /// exhausted, the connection is closed and std::bad_alloc is thrown.
    ClientSocket* accept();
};

}  // namespace NIVUR

#endif
