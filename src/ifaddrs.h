#ifndef NIVUR_IFADDRS_H
#define NIVUR_IFADDRS_H

/// \file
/// Global functions that list interface addresses and replace the platform's functions of these
/// names in every process that is linked with the library. In a process that loads the library
/// later, the platform's remain in use. Prefer <nivur/interface_address.h>. The build option
/// NIVUR_EXPORT_IFADDRS=OFF leaves this header out.
///
/// The struct `ifaddrs` has the platform's name but fewer fields, so a source file can include
/// either this header or the platform's <ifaddrs.h>; both read the same lists.

#ifdef _IFADDRS_H
#error "include either <nivur/ifaddrs.h> or the platform's <ifaddrs.h>: they define the same record"
#else

#include "export.h"

struct sockaddr;

/// One IPv4 or IPv6 address of a network interface. The list owns everything in it.
struct ifaddrs {  // a redefinition? Include either <nivur/ifaddrs.h> or the platform's <ifaddrs.h>
    struct ifaddrs* ifa_next;      ///< null in the last record
    char* ifa_name;                ///< the interface's name
    unsigned int ifa_flags;        ///< IFF_UP, IFF_LOOPBACK and so on
    struct sockaddr* ifa_addr;     ///< a sockaddr_in, or a sockaddr_in6 with the index as scope id
    struct sockaddr* ifa_netmask;  ///< of the same family
};

extern "C" {

/// Lists the host's IPv4 and IPv6 addresses in the kernel's order, including those of interfaces
/// that are down; on a point-to-point link the address is the peer's. There are no link-layer
/// records. Returns 0 and the list, which is null if there are no addresses and which the caller
/// passes to freeifaddrs(). Otherwise returns -1 with the reason in errno, and `*list` is unchanged
/// or null: one unreadable interface fails the whole list. Any thread may call it at any time.
NIVUR_EXPORT int getifaddrs(struct ifaddrs** list) noexcept;

/// Frees a whole list from getifaddrs(); null does nothing.
NIVUR_EXPORT void freeifaddrs(struct ifaddrs* list) noexcept;
}

#endif
#endif
