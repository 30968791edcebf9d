#ifndef NIVUR_INTERFACE_ADDRESS_H
#define NIVUR_INTERFACE_ADDRESS_H

#include <string>
#include <vector>

#include "export.h"
#include "io_result.h"
#include "socket_address.h"

namespace NIVUR {

/// One IPv4 or IPv6 address of a network interface of the host.
struct InterfaceAddress {
    std::string name;             ///< the interface's name
    unsigned int interfaceIndex;  ///< the interface's index
    unsigned int flags;           ///< IFF_UP, IFF_LOOPBACK and so on of the platform's <net/if.h>
    SocketAddress address;        ///< port 0; link-local addresses have their scope
    SocketAddress peer;           ///< the other end of a point-to-point link, otherwise no address
    unsigned int prefixLength;    ///< the number of leading bits that identify the network

    /// Returns true if the interface is up.
    bool isUp() const { return (flags & 0x1U) != 0; }

    /// Returns true if the interface is a loopback interface.
    bool isLoopback() const { return (flags & 0x8U) != 0; }
};

/// Lists the host's IPv4 and IPv6 addresses in the kernel's order, including those of interfaces
/// that are down. Interfaces that vanish meanwhile are left out. DONE: `list` has the addresses and
/// `count` is their number. FAILED: `list` is unchanged. Any thread may call it at any time.
NIVUR_EXPORT IoResult getInterfaceAddresses(std::vector<InterfaceAddress>& list);

}  // namespace NIVUR

#endif
