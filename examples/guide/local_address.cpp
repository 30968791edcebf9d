// Finds the addresses at which other hosts can reach this one.

#include <nivur/nivur.h>

#include <cstdio>
#include <string>
#include <vector>

int main() {
    std::vector<NIVUR::InterfaceAddress> list;
    if (!NIVUR::getInterfaceAddresses(list)) {
        return 1;
    }
    std::string others = "none";
    std::string loopback = "none";
    for (const NIVUR::InterfaceAddress& each : list) {
        std::string& found = each.isLoopback() ? loopback : others;
        if (found == "none" && each.isUp()) {  // the first one, in the kernel's order
            found = each.address.ip() + " on " + each.name;
        }
    }
    std::printf("this host to itself: %s\n", loopback.c_str());
    std::printf("this host to others: %s\n", others.c_str());
    return loopback == "none" ? 1 : 0;
}
