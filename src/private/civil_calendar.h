#ifndef NIVUR_PRIVATE_CIVIL_CALENDAR_H
#define NIVUR_PRIVATE_CIVIL_CALENDAR_H

#include <cstdint>

namespace NIVUR {

/// A day of the proleptic Gregorian calendar; months and days count from 1.
struct CivilDay {
    int64_t year;
    unsigned int month;
    unsigned int day;
};

/// Returns the days from 1970-01-01 to a day in the year 1 or later; a day past the end of its
/// month overflows into the next. Both algorithms: Howard Hinnant, "chrono-Compatible Low-Level
/// Date Algorithms" (public domain), days_from_civil and civil_from_days.
int64_t daysFrom1970(const CivilDay& civil);

/// The inverse of daysFrom1970(), for days from 0001-01-01 on.
CivilDay civilDay(int64_t daysFrom1970);

}  // namespace NIVUR

#endif
