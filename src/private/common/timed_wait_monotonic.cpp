#include "private/common/timed_wait.h"

// Null unless this library, or the program that uses it, is built with the thread sanitizer.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the sanitizer's own
extern "C" __attribute__((weak)) void __tsan_acquire(void* address);

namespace NIVUR::platform {

bool waitUntil(sem_t* semaphore, const timespec& deadline) {
    const bool taken = ::sem_clockwait(semaphore, CLOCK_MONOTONIC, &deadline) == 0;
    if (taken && __tsan_acquire != nullptr) {
        __tsan_acquire(semaphore);  // the sanitizer does not intercept this call
    }
    return taken;
}

}  // namespace NIVUR::platform
