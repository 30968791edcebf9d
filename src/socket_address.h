#ifndef NIVUR_SOCKET_ADDRESS_H
#define NIVUR_SOCKET_ADDRESS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "export.h"

namespace NIVUR {

/// An IPv4 or IPv6 address with a port, or no address. A value: make it from text once and use it
/// for any number of calls. Threads may read one concurrently while none changes it.
class NIVUR_EXPORT SocketAddress {
  public:
    /// An object without an address.
    SocketAddress() = default;

    /// Makes an address from numeric text: "192.168.1.5", "::1", or "fe80::1%eth0" with a scope,
    /// which is the name or index of an interface. Other text, such as a host name, makes no
    /// address.
    SocketAddress(std::string_view ip, uint16_t port);

    /// Returns false for no address.
    bool isValid() const { return size() != 0; }

    /// Returns true for an IPv6 address.
    bool isIPv6() const;

    /// The address as text, with the name of its scope if it has one; "" for no address.
    std::string ip() const;

    /// The port in host order; 0 for no address.
    uint16_t port() const;

    /// The scope of an IPv6 address, an interface index; 0 if it has none.
    uint32_t scopeId() const;

    /// Address and port as text, "192.168.1.5:80" or "[fe80::1%eth0]:80"; "" for no address.
    std::string toString() const;

    /// The platform's socket address (`sockaddr_in` or `sockaddr_in6`), for calls on a descriptor.
    const void* data() const { return _bytes; }

    /// The size in bytes of data(); 0 for no address.
    size_t size() const;

    /// Makes an address from a platform socket address of `size` bytes. Other families than IPv4
    /// and IPv6 make no address.
    static SocketAddress fromPlatform(const void* address, size_t size);

    /// Compares address, port and scope.
    bool operator==(const SocketAddress& other) const { return view() == other.view(); }
    /// Compares address, port and scope.
    bool operator!=(const SocketAddress& other) const { return view() != other.view(); }

    /// An order for containers, without further meaning.
    bool operator<(const SocketAddress& other) const { return view() < other.view(); }

    /// A hash for unordered containers; `std::hash` returns it too.
    size_t hash() const { return std::hash<std::string_view>()(view()); }

  private:
    std::string_view view() const {
        return {reinterpret_cast<const char*>(_bytes), sizeof(_bytes)};
    }

    // Unused bytes are zero, so that equal addresses have equal bytes.
    alignas(uint32_t) unsigned char _bytes[28] = {};
};

}  // namespace NIVUR

/// Allows SocketAddress as a key of the standard's unordered containers.
template <>
struct std::hash<NIVUR::SocketAddress> {
    /// Returns SocketAddress::hash().
    size_t operator()(const NIVUR::SocketAddress& address) const { return address.hash(); }
};

#endif
