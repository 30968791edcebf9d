#ifndef NIVUR_IFADDRS_H
#define NIVUR_IFADDRS_H

/// \file
/// An enumeration of interface addresses that takes the place of the platform's for the whole
/// process that is linked with the library, not for one that loads it later: prefer
/// <nivur/interface_address.h>. It is left out with the build option NIVUR_EXPORT_IFADDRS=OFF. Its
/// record has the platform's name but fewer fields, so one source file includes either this or the
/// platform's <ifaddrs.h>; both read the same lists.

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

/// Lists the host's IPv4 and IPv6 addresses in the kernel's order, those of interfaces that are
/// down included; on a point-to-point link the address is the peer's. There are no link-layer
/// records. Returns 0 and the list, null when there are none, which freeifaddrs() must free;
/// otherwise -1 with the reason in errno, and `*list` untouched or null: one interface that cannot
/// be read fails them all. Any thread may call it at any time.
NIVUR_EXPORT int getifaddrs(struct ifaddrs** list) noexcept;

/// Frees a list from getifaddrs(), all of it; null does nothing.
NIVUR_EXPORT void freeifaddrs(struct ifaddrs* list) noexcept;
}

#endif
#endif
