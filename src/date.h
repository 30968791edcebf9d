#ifndef NIVUR_DATE_H
#define NIVUR_DATE_H

#include <string>

#include "export.h"

namespace NIVUR {

/// A time of the wall clock: milliseconds since 1970-01-01 00:00:00 UTC and the UTC calendar
/// components. A plain value: threads may read it concurrently while none changes it.
class NIVUR_EXPORT Date {
  public:
    /// Makes a date from UTC components. They stay as given: a day past the end of its month
    /// overflows into the next month in millisecondsFrom1970() only.
    /// REQUIRES: year >= 1970, month 1 to 12, day 1 to 31, hour <= 23, minute and second <= 59,
    /// millisecond <= 999.
    Date(unsigned int year, unsigned int month, unsigned int day, unsigned int hour,
         unsigned int minute, unsigned int second, unsigned int millisecond);

    /// Makes a date from milliseconds since 1970. Earlier times cannot be represented: a negative
    /// count wraps to the end of the range, in the year 584556019, and so do sums and time zones
    /// that lead below 1970. Not explicit, so that a count of milliseconds compares and subtracts
    /// as a date.
    Date(unsigned long long millisecondsFrom1970);

    /// The current time. The wall clock may be set: measure durations with StopWatch.
    static Date now();

    ///@{
    /// A UTC component, in its usual range: months count from 1, hours from 0.
    unsigned int year() const { return _year; }
    unsigned int month() const { return _month; }
    unsigned int day() const { return _day; }
    unsigned int hour() const { return _hour; }
    unsigned int minute() const { return _minute; }
    unsigned int second() const { return _second; }
    unsigned int millisecond() const { return _millisecond; }
    ///@}

    /// The milliseconds since 1970-01-01 00:00:00 UTC.
    unsigned long long millisecondsFrom1970() const { return _millisecondsFrom1970; }

    ///@{
    /// Compares millisecondsFrom1970().
    bool operator==(const Date& other) const;
    bool operator<(const Date& other) const;
    ///@}

    /// Returns the date that is `milliseconds` later, or earlier if negative. A result before 1970
    /// wraps to the end of the range; operator-() of the two dates still gives the difference.
    Date operator+(int milliseconds) const;

    /// Returns the milliseconds from `other` to this date. A plain number converts to a date here:
    /// to go back in time, add a negative number.
    long long operator-(const Date& other) const;

    /// "MM-DD hh:mm:ss.mmm" on a clock that is `timeZone` whole hours ahead of UTC.
    std::string toShortString(short timeZone) const;

    /// "YYYY-MM-DD hh:mm:ss.mmm", on such a clock.
    std::string toString(short timeZone) const;

    /// By how many whole hours, rounded towards zero, local time is ahead of UTC.
    static int currentTimeZone();

    /// Sets the components from millisecondsFrom1970().
    void calculateDate();

    /// Sets millisecondsFrom1970() from the components.
    void calculateMillisecondsFrom1970();

  private:
    unsigned int _year;
    unsigned int _month;
    unsigned int _day;
    unsigned int _hour;
    unsigned int _minute;
    unsigned int _second;
    unsigned int _millisecond;
    unsigned long long _millisecondsFrom1970;
};

}  // namespace NIVUR

#endif
