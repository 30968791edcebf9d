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

    /// Makes a UDP socket bound to a local address and port; port 0 lets the system choose one.
    /// With `reuse` several sockets may share the port, as receivers of a multicast group do. Fails
    /// with EEXIST when created already.
    IoResult create(const SocketAddress& local, bool reuse = false);

    /// Allows datagrams to broadcast addresses, or not (the default). Returns 0, or -1 on failure.
    int setBroadcast(bool enable) override;

    /// Joins a multicast group on the interface with that index; 0 is that of the group's scope, or
    /// one that the system chooses. Returns 0, or -1 on failure.
    int joinGroup(const SocketAddress& group, unsigned int interfaceIndex = 0);

    /// Leaves a group that was joined on that interface. Returns 0, or -1 on failure.
    int leaveGroup(const SocketAddress& group, unsigned int interfaceIndex = 0);

    /// Limits how many routers pass on what is sent to groups, 0 (not beyond this host) to 255; the
    /// default is 1, this network. Returns 0, or -1 on failure.
    int setMulticastHopLimit(unsigned int hops);

    /// Sets the peer that send() sends to and from which alone datagrams are received; it may be
    /// called again. What the peer's host reports, such as ECONNREFUSED, fails a later call.
    IoResult connect(const SocketAddress& peer);

    /// Sends one datagram to the peer.
    IoResult send(const void* data, size_t length) const;

    /// As recvfrom(), for who knows or does not ask who sent it.
    IoResult receive(void* data, size_t length) const;

    /// Sends one datagram.
    IoResult sendto(const SocketAddress& receiver, const void* data, size_t length) const;

    /// Receives one datagram; `count` is its length, which may be 0, and `sender` tells who sent
    /// it. One that is longer than `length` is lost, but for its beginning: FAILED with EMSGSIZE.
    IoResult recvfrom(SocketAddress& sender, void* data, size_t length) const;

    /// Sends `length` bytes as datagrams of `datagram` bytes each and a last one that may be
    /// shorter; where the system knows how, up to 64 of them take one call. `count` is the number
    /// of bytes sent, fewer than `length` if a later datagram would block or fails. REQUIRES:
    /// datagram > 0.
    IoResult sendDatagrams(const SocketAddress& receiver, const void* data, size_t length,
                           size_t datagram) const;

    /// Lets receiveDatagrams() receive several datagrams in one call. Other calls do not tell where
    /// one ends. Returns 0, or -1 on a system that cannot.
    int setCoalescing(bool coalescing);

    /// Receives one datagram, or with setCoalescing() several of one sender: `count` bytes, which
    /// are datagrams of `datagram` bytes each and a last one that may be shorter. Give it 65,535
    /// bytes of room; what does not fit is lost: FAILED with EMSGSIZE.
    IoResult receiveDatagrams(SocketAddress& sender, void* data, size_t length,
                              size_t& datagram) const;

    /// Sends one datagram to an address of the socket's own family; `sent`, if given, gets the
    /// number of bytes. False with `sent` untouched, and an error line, when not created or for
    /// text that is no such address. False with `sent` 0, and an error line, when the platform
    /// refuses. REQUIRES: data is not null.
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
