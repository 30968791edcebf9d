#include "private/common/monotonic_clock.h"

#include <cerrno>

#include "log.h"

// There when the thread sanitizer is, be it in this library or in the program alone.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the sanitizer's own
extern "C" __attribute__((weak)) void __tsan_acquire(void* address);

namespace NIVUR {

namespace {

constexpr long kNanosecondsPerSecond = 1000000000;

timespec normalized(time_t seconds, long nanoseconds) {
    if (nanoseconds >= kNanosecondsPerSecond) {
        return {seconds + 1, nanoseconds - kNanosecondsPerSecond};
    }
    if (nanoseconds < 0) {
        return {seconds - 1, nanoseconds + kNanosecondsPerSecond};
    }
    return {seconds, nanoseconds};
}

}  // namespace

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

#if defined(__ANDROID__) && __ANDROID_API__ < 30

// This platform has no call that names the clock: the wall clock stands in for one wait at a time,
// and the monotonic clock tells whether the time is really up.
bool waitUntil(sem_t* semaphore, const timespec& deadline) {
    for (;;) {
        const timespec now = monotonicNow();
        const timespec left =
            normalized(deadline.tv_sec - now.tv_sec, deadline.tv_nsec - now.tv_nsec);
        if (left.tv_sec < 0) {
            errno = ETIMEDOUT;
            return false;
        }
        timespec wall{};
        ::clock_gettime(CLOCK_REALTIME, &wall);
        const timespec wallDeadline =
            normalized(wall.tv_sec + left.tv_sec, wall.tv_nsec + left.tv_nsec);
        if (::sem_timedwait(semaphore, &wallDeadline) == 0) {
            return true;
        }
        if (errno != ETIMEDOUT) {
            return false;
        }
    }
}

#else

bool waitUntil(sem_t* semaphore, const timespec& deadline) {
    const bool taken = ::sem_clockwait(semaphore, CLOCK_MONOTONIC, &deadline) == 0;
    if (taken && __tsan_acquire != nullptr) {
        __tsan_acquire(semaphore);  // the sanitizer knows all of a semaphore's calls but this one
    }
    return taken;
}

#endif

}  // namespace NIVUR
