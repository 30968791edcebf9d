#ifndef NIVUR_SYSTEM_UTIL_H
#define NIVUR_SYSTEM_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "export.h"

namespace NIVUR {

/// An IPv4 address of the host.
struct LocalIPInfo {
    std::string name;  ///< the name of the interface
    std::string ip;    ///< the address as dotted text
};

/// Queries about the host and the process. Any thread may call any operation at any time.
class NIVUR_EXPORT SystemUtil {
  public:
    SystemUtil() = delete;

    /// The milliseconds of the monotonic clock, on which all timeouts and timers are based; only
    /// differences have a meaning. Returns 0, with an error line, if the clock cannot be read.
    static uint64_t getCPUTime();

    /// The microseconds of the same clock.
    static uint64_t getCPUTimeInMicroseconds();

    /// Blocks the calling thread for at least `milliseconds`; signals do not shorten it.
    static void sleep(unsigned int milliseconds);

    /// The id of the calling process.
    static int getpid();

    /// The folder for an Android application's data files: "/mnt/sdcard/", on every platform.
    /// Elsewhere the folder need not exist.
    static std::string getAppDataFolder();

    /// Gets the device's manufacturer and model in lower case, from the system properties
    /// ro.product.manufacturer and ro.product.model. Returns false if either is missing or empty;
    /// that output and the following one are unchanged.
    static bool getDeviceInfo(std::string& manufacturer, std::string& model);

    /// The host's IPv4 addresses in the kernel's order, including loopback and interfaces that are
    /// down; on a point-to-point link the peer's address. Returns no addresses if they cannot be
    /// read: one unreadable interface fails the whole list. Prefer getInterfaceAddresses().
    static std::vector<LocalIPInfo> getLocalIPList();
};

}  // namespace NIVUR

#endif
