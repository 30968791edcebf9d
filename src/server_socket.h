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

    /// Closes the listening descriptor.
    void close() override;

    /// Lets connections come, `count` of which may wait to be accepted. False, with an error line,
    /// when not created or the platform refuses.
    /// REQUIRES: count > 0.
    bool listen(unsigned int count) const;

    /// Takes one connection, for which a blocking socket waits. The caller owns the new connected
    /// socket. Null, with an error line, when not created or on failure, such as no connection on a
    /// non-blocking socket. When memory is exhausted the connection is closed and std::bad_alloc
    /// passes through.
    ClientSocket* accept();

  private:
    void logFailure(const char* fmt) const __attribute__((format(printf, 2, 0)));
};

}  // namespace NIVUR

#endif
