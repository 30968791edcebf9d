#include "private/common/monotonic_clock.h"

// There when the thread sanitizer is, be it in this library or in the program alone.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the sanitizer's own
extern "C" __attribute__((weak)) void __tsan_acquire(void* address);

namespace NIVUR {

bool waitUntil(sem_t* semaphore, const timespec& deadline) {
    const bool taken = ::sem_clockwait(semaphore, CLOCK_MONOTONIC, &deadline) == 0;
    if (taken && __tsan_acquire != nullptr) {
        __tsan_acquire(semaphore);  // the sanitizer knows all of a semaphore's calls but this one
    }
    return taken;
}

}  // namespace NIVUR
