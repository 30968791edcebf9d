#include "system_util.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <memory>

#include "log.h"
#include "private/common/interface_list.h"

namespace NIVUR {

namespace {

LocalIPInfo readEntry(const ifaddrs& record) {
    char text[256]{};
    const auto* const address = reinterpret_cast<const sockaddr_in*>(record.ifa_addr);
    ::inet_ntop(AF_INET, &address->sin_addr, text, sizeof(text));
    Log::log("NIVUR", LOG_DEBUG, "temp_addr->ifa_name = %s, ipStr = %s", record.ifa_name, text);
    return {record.ifa_name, text};
}

}  // namespace

std::vector<LocalIPInfo> SystemUtil::getLocalIPList() {
    std::vector<LocalIPInfo> result;
    ifaddrs* head = nullptr;
    if (platform::listInterfaces(&head) != 0) {
        return result;
    }
    const std::unique_ptr<ifaddrs, decltype(&platform::freeInterfaces)> list(
        head, platform::freeInterfaces);
    Log::log("NIVUR", LOG_DEBUG, "temp_addr = %p", static_cast<void*>(head));
    for (const ifaddrs* record = head; record != nullptr; record = record->ifa_next) {
        const int family = record->ifa_addr->sa_family;
        Log::log("NIVUR", LOG_DEBUG, "temp_addr->ifa_addr->sa_family = %d", family);
        if (family == AF_INET) {
            result.push_back(readEntry(*record));
        }
    }
    return result;
}

}  // namespace NIVUR
