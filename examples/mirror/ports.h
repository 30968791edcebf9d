#ifndef MIRROR_PORTS_H
#define MIRROR_PORTS_H

#include <nivur/server_socket.h>
#include <nivur/udp_socket.h>

#include <string>

#include "address.h"

namespace mirror {

/// Where a receiver is reached: sockets for connections and for datagrams, on the same port, of
/// which none blocks.
class Ports {
  public:
    Ports();

    /// Begins to listen, and opens `datagrams`; an error message, or "".
    std::string open(const Address& at, NIVUR::UDPSocket& datagrams);

    const NIVUR::ServerSocket& listener() const { return _listener; }

  private:
    NIVUR::IoResult tryToOpen(const Address& at, NIVUR::UDPSocket& datagrams);

    NIVUR::ServerSocket _listener;
};

}  // namespace mirror

#endif
