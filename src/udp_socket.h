#ifndef NIVUR_UDP_SOCKET_H
#define NIVUR_UDP_SOCKET_H

#include <cstdint>
#include <string>

#include "export.h"
#include "socket.h"

namespace NIVUR {

/// A UDP socket, which sends and receives datagrams. Threads: see Socket.
class NIVUR_EXPORT UDPSocket : public Socket {
  public:
    /// Makes a UDP socket bound to a local address; see Socket::create().
    bool create(const std::string& ip, uint16_t port) override;

    /// Makes a UDP socket bound to a local address and port; the system chooses a port if it is 0.
    /// With `reuse` several sockets may share the port, as receivers of a multicast group do. Fails
    /// with EEXIST if the socket is already created.
    IoResult create(const SocketAddress& local, bool reuse = false);

    /// Allows datagrams to broadcast addresses, or forbids them (the default). Returns 0, or -1 on
    /// failure.
    int setBroadcast(bool enable) override;

    /// Joins a multicast group on the interface with that index; 0 means the interface of the
    /// group's scope, or one that the system chooses. Returns 0, or -1 on failure.
    int joinGroup(const SocketAddress& group, unsigned int interfaceIndex = 0);

    /// Leaves a multicast group on that interface. Returns 0, or -1 on failure.
    int leaveGroup(const SocketAddress& group, unsigned int interfaceIndex = 0);

    /// Limits the number of hops of multicast datagrams, 0 (this host) to 255; the default is 1
    /// (this network). Returns 0, or -1 on failure.
    int setMulticastHopLimit(unsigned int hops);

    /// Sets the peer of send(); only its datagrams are received from now on. May be called again.
    /// Errors that the peer's host reports, such as ECONNREFUSED, fail a later call.
    IoResult connect(const SocketAddress& peer);

    /// Sends one datagram to the peer.
    IoResult send(const void* data, size_t length) const;

    /// Like recvfrom(), without the sender.
    IoResult receive(void* data, size_t length) const;

    /// Sends one datagram.
    IoResult sendto(const SocketAddress& receiver, const void* data, size_t length) const;

    /// Receives one datagram; `count` is its length, which may be 0, and `sender` gets its sender.
    /// A datagram longer than `length` is truncated and reported as FAILED with EMSGSIZE.
    IoResult recvfrom(SocketAddress& sender, void* data, size_t length) const;

    /// Sends `length` bytes as datagrams of `datagram` bytes each; the last one may be shorter.
    /// Where the system supports it, one system call sends up to 64 of them. `count` is the number
    /// of bytes sent, less than `length` if a later datagram would block or fails.
    /// REQUIRES: datagram > 0.
    IoResult sendDatagrams(const SocketAddress& receiver, const void* data, size_t length,
                           size_t datagram) const;

    /// Lets the system combine received datagrams for receiveDatagrams(), or not (the default).
    /// While it does, receive with no other calls: they do not tell where a datagram ends. Returns
    /// 0, or -1 if the system does not support it.
    int setCoalescing(bool coalescing);

    /// Receives one datagram, or with setCoalescing() several of one sender: `count` bytes, in
    /// datagrams of `datagram` bytes each; the last one may be shorter. Pass room for 65,535 bytes:
    /// what does not fit is lost, and the result is FAILED with EMSGSIZE.
    IoResult receiveDatagrams(SocketAddress& sender, void* data, size_t length,
                              size_t& datagram) const;

    /// Sends one datagram to an address of the socket's own family. `sent`, if not null, gets the
    /// number of bytes. Returns false, with an error line,
    /// - with `sent` unchanged, if the socket is not created or `ip` is no numeric address of the
    /// family;
    /// - with `sent` 0, if the platform refuses.
    /// REQUIRES: data is not null.
    bool sendto(const std::string& ip, uint16_t port, const void* data, unsigned long length,
                unsigned int* sent) const;

    /// Receives one datagram of at most `length` bytes, and drops the rest of a longer one; a
    /// blocking socket waits for it. `ip` and `port` get the sender, `length` the number of bytes.
    /// Returns false, with a log line and all three unchanged, if the socket is not created, for an
    /// empty datagram, and if the call fails, for example because a non-blocking socket has nothing
    /// to read.
    /// REQUIRES: data is not null, length > 0.
    bool recvfrom(std::string& ip, uint16_t& port, void* data, unsigned int& length) const;
};

}  // namespace NIVUR

#endif
