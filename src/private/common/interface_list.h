#ifndef NIVUR_PRIVATE_COMMON_INTERFACE_LIST_H
#define NIVUR_PRIVATE_COMMON_INTERFACE_LIST_H

#include "ifaddrs.h"

namespace NIVUR::platform {

/// getifaddrs() and freeifaddrs() for use in the library. In a process that loads the library late,
/// calls of the global names reach the platform's functions instead.
int listInterfaces(ifaddrs** list) noexcept;
void freeInterfaces(ifaddrs* list) noexcept;

}  // namespace NIVUR::platform

#endif
