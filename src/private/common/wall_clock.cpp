#include "private/common/wall_clock.h"

#include <sys/time.h>
#include <time.h>

#include "private/civil_calendar.h"

namespace NIVUR {

namespace {

std::int64_t secondsAsUtc(const tm& fields) {
    const CivilDay day{fields.tm_year + 1900LL, static_cast<unsigned int>(fields.tm_mon + 1),
                       static_cast<unsigned int>(fields.tm_mday)};
    return ((daysFrom1970(day) * 24 + fields.tm_hour) * 60 + fields.tm_min) * 60 + fields.tm_sec;
}

}  // namespace

std::uint64_t wallClockMilliseconds() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_usec) / 1000;
}

int localTimeZone() {
    const time_t now = ::time(nullptr);
    tm fields{};
    ::gmtime_r(&now, &fields);
    // The instant at which the local clock shows these fields, told in standard time. Where summer
    // time is in force the call moves the fields on by it, and so it enters the difference.
    const std::int64_t local = ::mktime(&fields);
    return static_cast<int>((secondsAsUtc(fields) - local) / 3600);
}

}  // namespace NIVUR
