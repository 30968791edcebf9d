#include "date.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "private/assertion.h"
#include "private/civil_calendar.h"
#include "private/common/clock.h"

namespace NIVUR {

namespace {

constexpr unsigned long long kSecondsPerDay = 86400;

Date inTimeZone(const Date& date, short timeZone) {
    return date + static_cast<int>(static_cast<unsigned int>(timeZone) * 3600000U);
}

struct Part {
    const char* before;
    unsigned int number;
    size_t width;  // with leading zeros
};

std::string join(std::initializer_list<Part> parts) {
    std::string text;
    text.reserve(sizeof("1970-01-01 00:00:00.000"));
    for (const Part& part : parts) {
        const std::string digits = std::to_string(part.number);
        text.append(part.before);
        text.append(part.width - std::min(part.width, digits.size()), '0').append(digits);
    }
    return text;
}

}  // namespace

Date::Date(unsigned int year, unsigned int month, unsigned int day, unsigned int hour,
           unsigned int minute, unsigned int second, unsigned int millisecond)
    : _year(year),
      _month(month),
      _day(day),
      _hour(hour),
      _minute(minute),
      _second(second),
      _millisecond(millisecond),
      _millisecondsFrom1970(0) {
    NIVUR_ASSERT(year >= 1970);
    NIVUR_ASSERT(month >= 1 && month <= 12);
    NIVUR_ASSERT(day >= 1 && day <= 31);
    NIVUR_ASSERT(hour <= 23);
    NIVUR_ASSERT(minute <= 59);
    NIVUR_ASSERT(second <= 59);
    NIVUR_ASSERT(millisecond <= 999);
    calculateMillisecondsFrom1970();
}

Date::Date(unsigned long long millisecondsFrom1970)
    : _year(0),
      _month(0),
      _day(0),
      _hour(0),
      _minute(0),
      _second(0),
      _millisecond(0),
      _millisecondsFrom1970(millisecondsFrom1970) {
    calculateDate();
}

Date Date::now() {
    return Date(platform::wallClockMilliseconds());
}

bool Date::operator==(const Date& other) const {
    return _millisecondsFrom1970 == other._millisecondsFrom1970;
}

bool Date::operator<(const Date& other) const {
    return _millisecondsFrom1970 < other._millisecondsFrom1970;
}

Date Date::operator+(int milliseconds) const {
    return Date(_millisecondsFrom1970 + static_cast<unsigned long long>(milliseconds));
}

long long Date::operator-(const Date& other) const {
    return static_cast<long long>(_millisecondsFrom1970 - other._millisecondsFrom1970);
}

std::string Date::toShortString(short timeZone) const {
    const Date shifted = inTimeZone(*this, timeZone);
    return join({{"", shifted._month, 2},
                 {"-", shifted._day, 2},
                 {" ", shifted._hour, 2},
                 {":", shifted._minute, 2},
                 {":", shifted._second, 2},
                 {".", shifted._millisecond, 3}});
}

std::string Date::toString(short timeZone) const {
    const Date shifted = inTimeZone(*this, timeZone);
    return join({{"", shifted._year, 4},
                 {"-", shifted._month, 2},
                 {"-", shifted._day, 2},
                 {" ", shifted._hour, 2},
                 {":", shifted._minute, 2},
                 {":", shifted._second, 2},
                 {".", shifted._millisecond, 3}});
}

int Date::currentTimeZone() {
    return platform::localTimeZone();
}

void Date::calculateDate() {
    const unsigned long long seconds = _millisecondsFrom1970 / 1000;
    const auto secondOfDay = static_cast<unsigned int>(seconds % kSecondsPerDay);
    const CivilDay civil = civilDay(static_cast<int64_t>(seconds / kSecondsPerDay));
    _year = static_cast<unsigned int>(civil.year);
    _month = civil.month;
    _day = civil.day;
    _hour = secondOfDay / 3600;
    _minute = secondOfDay / 60 % 60;
    _second = secondOfDay % 60;
    _millisecond = static_cast<unsigned int>(_millisecondsFrom1970 % 1000);
}

void Date::calculateMillisecondsFrom1970() {
    // Unsigned arithmetic: from the year 584556019 on it wraps.
    const auto days = static_cast<unsigned long long>(daysFrom1970({_year, _month, _day}));
    const unsigned long long seconds = ((days * 24 + _hour) * 60 + _minute) * 60 + _second;
    _millisecondsFrom1970 = seconds * 1000 + _millisecond;
}

}  // namespace NIVUR
