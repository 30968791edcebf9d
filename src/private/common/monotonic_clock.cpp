#include "private/common/monotonic_clock.h"

#include <cerrno>

#include "log.h"

namespace NIVUR {

timespec normalized(time_t seconds, long nanoseconds) {
    constexpr long kNanosecondsPerSecond = 1000000000;
    if (nanoseconds >= kNanosecondsPerSecond) {
        return {seconds + 1, nanoseconds - kNanosecondsPerSecond};
    }
    if (nanoseconds < 0) {
        return {seconds - 1, nanoseconds + kNanosecondsPerSecond};
    }
    return {seconds, nanoseconds};
}

timespec monotonicNow() {
    timespec now{};
    if (::clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        Log::log("NIVUR", LOG_ERROR, "cannot get CPU time: error=%d", errno);
        return {};
    }
    return now;
}

std::uint64_t monotonicMilliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

timespec deadlineAfter(unsigned int timeoutMs) {
    const timespec now = monotonicNow();
    return normalized(now.tv_sec + static_cast<time_t>(timeoutMs / 1000),
                      now.tv_nsec + static_cast<long>(timeoutMs % 1000) * 1000000);
}

}  // namespace NIVUR
