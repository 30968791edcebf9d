#ifndef NIVUR_PRIVATE_COMMON_INTERFACE_LIST_H
#define NIVUR_PRIVATE_COMMON_INTERFACE_LIST_H

#include "ifaddrs.h"

namespace NIVUR::platform {

/// getifaddrs() and freeifaddrs() for the library itself, which calls of those names need not
/// reach: in a process that loads the library late they are the platform's.
int listInterfaces(ifaddrs** list) noexcept;
void freeInterfaces(ifaddrs* list) noexcept;

}  // namespace NIVUR::platform

#endif
