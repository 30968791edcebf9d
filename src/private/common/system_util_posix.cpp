#include "system_util.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "private/common/monotonic_clock.h"
#include "private/common/property_store.h"

namespace NIVUR {

namespace {

/// Only A to Z change, whatever the locale.
char toLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// False, with `value` untouched, when the property is missing or empty.
bool readLowerCase(const char* property, std::string& value) {
    std::string text = systemProperty(property);
    if (text.empty()) {
        return false;
    }
    std::transform(text.begin(), text.end(), text.begin(), toLower);
    value = std::move(text);
    return true;
}

}  // namespace

uint64_t SystemUtil::getCPUTime() {
    const timespec now = monotonicNow();
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

uint64_t SystemUtil::getCPUTimeInMicroseconds() {
    const timespec now = monotonicNow();
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

}  // namespace NIVUR
