#include "private/civil_calendar.h"

namespace NIVUR {

namespace {

// Years begin in March here, so that the leap day is the last day of its year. An era is 400 years.
constexpr int64_t kDaysPerEra = 146097;
constexpr int64_t kDaysFromYear0To1970 = 719468;

}  // namespace

int64_t daysFrom1970(const CivilDay& civil) {
    const int64_t year = civil.month <= 2 ? civil.year - 1 : civil.year;
    const int64_t yearOfEra = year % 400;
    const unsigned int month = (civil.month + 9) % 12;
    const int64_t dayOfYear = (153 * month + 2) / 5 + civil.day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return year / 400 * kDaysPerEra + dayOfEra - kDaysFromYear0To1970;
}

CivilDay civilDay(int64_t daysFrom1970) {
    const int64_t days = daysFrom1970 + kDaysFromYear0To1970;
    const int64_t dayOfEra = days % kDaysPerEra;
    const int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t year = days / kDaysPerEra * 400 + yearOfEra;
    const auto dayOfYear =
        static_cast<unsigned int>(dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100));
    const unsigned int monthFromMarch = (5 * dayOfYear + 2) / 153;
    const unsigned int month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    const unsigned int day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
    return {month <= 2 ? year + 1 : year, month, day};
}

}  // namespace NIVUR
