#ifndef MIRROR_PORTS_H
#define MIRROR_PORTS_H

#include <nivur/server_socket.h>
#include <nivur/udp_socket.h>

#include <string>

#include "address.h"

namespace mirror {

/// The receiver's listener and its UDP socket, both non-blocking and on the same port number.
class Ports {
  public:
    Ports();

    /// Starts listening, and binds `datagrams`. Returns an error message, or "".
    std::string open(const Address& at, NIVUR::UDPSocket& datagrams);

    const NIVUR::ServerSocket& listener() const { return _listener; }

  private:
    NIVUR::IoResult tryToOpen(const Address& at, NIVUR::UDPSocket& datagrams);

    NIVUR::ServerSocket _listener;
};

}  // namespace mirror

#endif
