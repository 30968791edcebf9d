#include "private/common/clock.h"

#include <sys/time.h>

#include <cerrno>

#include "log.h"
#include "private/civil_calendar.h"

namespace NIVUR::platform {

namespace {

int64_t secondsAsUtc(const tm& fields) {
    const CivilDay day{fields.tm_year + 1900LL, static_cast<unsigned int>(fields.tm_mon + 1),
                       static_cast<unsigned int>(fields.tm_mday)};
    return ((daysFrom1970(day) * 24 + fields.tm_hour) * 60 + fields.tm_min) * 60 + fields.tm_sec;
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

uint64_t monotonicMilliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

uint64_t wallClockMilliseconds() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

int localTimeZone() {
    const time_t now = ::time(nullptr);
    tm fields{};
    ::gmtime_r(&now, &fields);
    // mktime() reads the UTC fields as local standard time, and where daylight saving time is in
    // force adds it to `fields`: the difference between the two is the whole offset.
    const int64_t local = ::mktime(&fields);
    return static_cast<int>((secondsAsUtc(fields) - local) / 3600);
}

}  // namespace NIVUR::platform
