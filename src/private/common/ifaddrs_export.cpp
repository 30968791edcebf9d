#include "ifaddrs.h"

#include "private/common/interface_list.h"

int getifaddrs(ifaddrs** list) noexcept {
    return NIVUR::platform::listInterfaces(list);
}

void freeifaddrs(ifaddrs* list) noexcept {
    NIVUR::platform::freeInterfaces(list);
}
