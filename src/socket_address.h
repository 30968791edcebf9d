#ifndef NIVUR_SOCKET_ADDRESS_H
#define NIVUR_SOCKET_ADDRESS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "export.h"

namespace NIVUR {

/// An IPv4 or IPv6 address with a port, or no address: a value, made from text once and then used
/// for any number of calls. Threads may share a constant one.
class NIVUR_EXPORT SocketAddress {
  public:
    /// No address.
    SocketAddress() = default;

    /// The address of numeric text: "192.168.1.5", "::1", or "fe80::1%eth0" with a scope, which is
    /// an interface's name or index. Other text, also a host's name, gives no address.
    SocketAddress(std::string_view ip, uint16_t port);

    /// Whether this is an address.
    bool isValid() const { return size() != 0; }

    /// Whether this is an IPv6 address.
    bool isIPv6() const;

    /// The address as text, with its scope's name if it has one; "" for no address.
    std::string ip() const;

    /// The port in host order; 0 for no address.
    uint16_t port() const;

    /// The index of the interface that an IPv6 address is of; 0 for none.
    uint32_t scopeId() const;

    /// Address and port as text, "192.168.1.5:80" or "[fe80::1%eth0]:80"; "" for no address.
    std::string toString() const;

    /// The platform's socket address (`sockaddr_in` or `sockaddr_in6`), for calls on a descriptor.
    const void* data() const { return _bytes; }

    /// Its size in bytes; 0 for no address.
    size_t size() const;

    /// The address in a socket address of the platform, of which `size` bytes are there; of another
    /// family than IPv4 and IPv6, no address.
    static SocketAddress fromPlatform(const void* address, size_t size);

    /// Equal are the same address, port and scope.
    bool operator==(const SocketAddress& other) const { return view() == other.view(); }
    /// Whether any of these differs.
    bool operator!=(const SocketAddress& other) const { return view() != other.view(); }

    /// An order for containers, without further meaning.
    bool operator<(const SocketAddress& other) const { return view() < other.view(); }

    /// A number for hashed containers, for which there is `std::hash` too.
    size_t hash() const { return std::hash<std::string_view>()(view()); }

  private:
    std::string_view view() const {
        return {reinterpret_cast<const char*>(_bytes), sizeof(_bytes)};
    }

    // What is unused is zero, so that equal addresses have equal bytes.
    alignas(uint32_t) unsigned char _bytes[28] = {};
};

}  // namespace NIVUR

/// Lets a SocketAddress be a key of the standard's hashed containers.
template <>
struct std::hash<NIVUR::SocketAddress> {
    /// SocketAddress::hash().
    size_t operator()(const NIVUR::SocketAddress& address) const { return address.hash(); }
};

#endif
