#ifndef MIRROR_PORTS_H
#define MIRROR_PORTS_H

#include <nivur/client_socket.h>
#include <nivur/server_socket.h>
#include <nivur/udp_socket.h>

#include <memory>
#include <string>

#include "address.h"

namespace mirror {

/// Where a receiver is reached: sockets for connections and for datagrams, on the same port, of
/// which none blocks.
class Ports {
  public:
    Ports();

    /// Begins to listen; an error message, or "".
    std::string open(const Address& at);

    const NIVUR::ServerSocket& listener() const { return _listener; }
    const NIVUR::UDPSocket& datagrams() const { return _datagrams; }

    /// The connection that comes next; null when there is none, or it cannot be taken.
    std::unique_ptr<NIVUR::ClientSocket> accept();

  private:
    bool tryToOpen(const Address& at);

    NIVUR::ServerSocket _listener;
    NIVUR::UDPSocket _datagrams;
};

}  // namespace mirror

#endif
