#ifndef NIVUR_UDP_SOCKET_H
#define NIVUR_UDP_SOCKET_H

#include <cstdint>
#include <string>

#include "export.h"
#include "socket.h"

namespace NIVUR {

/// A UDP socket, which sends and receives datagrams from and to its local address. Threads: see
/// Socket.
class NIVUR_EXPORT UDPSocket : public Socket {
  public:
    /// Makes a UDP socket bound to a local address; see Socket::create().
    bool create(const std::string& ip, uint16_t port) override;

    /// Whether datagrams may go to broadcast addresses: 0, or -1 on failure.
    int setBroadcast(bool enable) override;

    /// Sends one datagram to an address of the socket's own family; `sent`, if given, gets the
    /// number of bytes. False, with an error line, when not created or for other text, both with
    /// `sent` untouched, and when the platform refuses, with `sent` 0.
    /// REQUIRES: data is not null.
    bool sendto(const std::string& ip, uint16_t port, const void* data, unsigned long length,
                unsigned int* sent) const;

    /// Receives one datagram, for which a blocking socket waits: at most `length` bytes, the rest
    /// of it is lost. `ip` and `port` get the sender, `length` the number of bytes. False, with a
    /// log line and all three untouched, when not created, on failure, such as nothing there on a
    /// non-blocking socket, and for an empty datagram.
    /// REQUIRES: data is not null, length > 0.
    bool recvfrom(std::string& ip, uint16_t& port, void* data, unsigned int& length) const;
};

}  // namespace NIVUR

#endif
