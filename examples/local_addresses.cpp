// local_addresses: lists the host's addresses with the lengths of their prefixes.

#include <nivur/nivur.h>

#include <cstdio>
#include <vector>

int main() {
    std::vector<NIVUR::InterfaceAddress> list;
    const NIVUR::IoResult result = NIVUR::getInterfaceAddresses(list);
    if (!result) {
        std::fprintf(stderr, "the addresses cannot be read: error %d\n", result.error);
        return 1;
    }
    for (const NIVUR::InterfaceAddress& each : list) {
        std::printf("%s %s/%u", each.name.c_str(), each.address.ip().c_str(), each.prefixLength);
        std::printf("%s%s%s\n", each.peer.isValid() ? " to " : "", each.peer.ip().c_str(),
                    each.isUp() ? "" : " (down)");
    }
}
