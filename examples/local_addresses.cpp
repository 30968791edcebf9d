// local_addresses: lists the host's IPv4 addresses, then all of its addresses with their masks.

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <nivur/ifaddrs.h>
#include <nivur/nivur.h>

#include <cstdio>

namespace {

void printAddress(const sockaddr* address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address->sa_family == AF_INET6) {
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text,
                  sizeof(text));
    } else {
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text,
                  sizeof(text));
    }
    std::printf(" %s", text);
}

}  // namespace

int main() {
    for (const NIVUR::LocalIPInfo& info : NIVUR::SystemUtil::getLocalIPList()) {
        std::printf("%s %s\n", info.name.c_str(), info.ip.c_str());
    }

    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        std::fprintf(stderr, "the addresses cannot be read\n");
        return 1;
    }
    std::printf("\nall, with their masks:\n");
    for (const ifaddrs* record = list; record != nullptr; record = record->ifa_next) {
        std::printf("%s", record->ifa_name);
        printAddress(record->ifa_addr);
        printAddress(record->ifa_netmask);
        std::printf("%s\n", (record->ifa_flags & IFF_UP) != 0 ? "" : " (down)");
    }
    freeifaddrs(list);
}
