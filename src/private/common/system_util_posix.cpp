#include "system_util.h"

#include <time.h>
#include <unistd.h>

#include "private/common/monotonic_clock.h"

namespace NIVUR {

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

}  // namespace NIVUR
