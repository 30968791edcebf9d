#include "system_util.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "log.h"
#include "private/common/clock.h"
#include "private/common/interface_list.h"
#include "private/common/property_store.h"

namespace NIVUR {

namespace {

/// Changes A to Z only, in any locale.
char toLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Returns false and leaves `value` unchanged if the property is missing or empty.
bool readLowerCase(const char* property, std::string& value) {
    std::string text = platform::systemProperty(property);
    if (text.empty()) {
        return false;
    }
    std::transform(text.begin(), text.end(), text.begin(), toLower);
    value = std::move(text);
    return true;
}

LocalIPInfo readEntry(const ifaddrs& record) {
    char text[256]{};
    const auto* const address = reinterpret_cast<const sockaddr_in*>(record.ifa_addr);
    ::inet_ntop(AF_INET, &address->sin_addr, text, sizeof(text));
    Log::log("NIVUR", LOG_DEBUG, "temp_addr->ifa_name = %s, ipStr = %s", record.ifa_name, text);
    return {record.ifa_name, text};
}

}  // namespace

uint64_t SystemUtil::getCPUTime() {
    const timespec now = platform::monotonicNow();
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

uint64_t SystemUtil::getCPUTimeInMicroseconds() {
    const timespec now = platform::monotonicNow();
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

void SystemUtil::sleep(unsigned int milliseconds) {
    timespec request{static_cast<time_t>(milliseconds / 1000),
                     static_cast<long>(milliseconds % 1000) * 1000000};
    timespec remainder{};
    while (::nanosleep(&request, &remainder) != 0) {
        request = remainder;
    }
}

int SystemUtil::getpid() {
    return ::getpid();
}

std::string SystemUtil::getAppDataFolder() {
    return "/mnt/sdcard/";
}

bool SystemUtil::getDeviceInfo(std::string& manufacturer, std::string& model) {
    return readLowerCase("ro.product.manufacturer", manufacturer) &&
           readLowerCase("ro.product.model", model);
}

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
