#ifndef NIVUR_SYSTEM_UTIL_H
#define NIVUR_SYSTEM_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "export.h"

namespace NIVUR {

/// An IPv4 address of the host.
struct LocalIPInfo {
    std::string name;  ///< the interface
    std::string ip;    ///< the address as dotted text
};

/// Questions to the system. Any thread may call any operation at any time.
class NIVUR_EXPORT SystemUtil {
  public:
    SystemUtil() = delete;

    /// Milliseconds of the monotonic clock, the time base of every time limit and timer; only
    /// differences mean anything. 0, and an error line, when the clock cannot be read.
    static uint64_t getCPUTime();

    /// The same clock in microseconds.
    static uint64_t getCPUTimeInMicroseconds();

    /// Blocks the calling thread for at least `milliseconds`; signals do not shorten it.
    static void sleep(unsigned int milliseconds);

    /// The id of the calling process.
    static int getpid();

    /// The folder for an Android application's data files, with its trailing slash:
    /// "/mnt/sdcard/", on every platform. Elsewhere no such folder need exist.
    static std::string getAppDataFolder();

    /// The device's manufacturer and model in lower case, from the system properties
    /// ro.product.manufacturer and ro.product.model. False when either is missing or empty: it and
    /// what comes after it are left as they were.
    static bool getDeviceInfo(std::string& manufacturer, std::string& model);

    /// The host's IPv4 addresses in the kernel's order: loopback and interfaces that are down
    /// included, and on a point-to-point link the peer's. Empty also when they cannot be read,
    /// for which one interface is enough: prefer getInterfaceAddresses().
    static std::vector<LocalIPInfo> getLocalIPList();
};

}  // namespace NIVUR

#endif
