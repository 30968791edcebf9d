#include "private/common/timed_wait.h"

#include <cerrno>

#include "private/common/clock.h"

namespace NIVUR::platform {

// The platform waits by the wall clock only, which may be set meanwhile. Each wait therefore gets a
// deadline of its own, and the monotonic clock decides whether the time is up.
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

}  // namespace NIVUR::platform
