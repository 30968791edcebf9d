// Finds the address under which other hosts reach this one.

#include <nivur/nivur.h>

#include <cstdio>
#include <string>

// Not the loopback's: 127.0.0.0/8 never leaves the host.
static bool isForOthers(const NIVUR::LocalIPInfo& info) {
    return info.ip.compare(0, 4, "127.") != 0;
}

int main() {
    std::string others = "none";
    std::string loopback = "none";
    for (const NIVUR::LocalIPInfo& info : NIVUR::SystemUtil::getLocalIPList()) {
        std::string& found = isForOthers(info) ? others : loopback;
        if (found == "none") {  // the first one, in the kernel's order
            found = info.ip + " on " + info.name;
        }
    }
    std::printf("this host to itself: %s\n", loopback.c_str());
    std::printf("this host to others: %s\n", others.c_str());
    return loopback == "none" ? 1 : 0;
}
