#ifndef NIVUR_DATE_H
#define NIVUR_DATE_H

#include <string>

#include "export.h"

namespace NIVUR {

/// A wall-clock time stamp: milliseconds since 1970-01-01 00:00:00 UTC and the UTC calendar
/// components. A plain value: any number of threads may read one while none changes it.
class NIVUR_EXPORT Date {
  public:
    /// From UTC components, which stay as they are given: a day past the end of its month counts on
    /// into the next in the milliseconds only.
    /// REQUIRES: year >= 1970, month 1 to 12, day 1 to 31, hour <= 23, minute and second <= 59,
    /// millisecond <= 999.
    Date(unsigned int year, unsigned int month, unsigned int day, unsigned int hour,
         unsigned int minute, unsigned int second, unsigned int millisecond);

    /// From milliseconds since 1970. Earlier moments do not exist: a negative count wraps to the
    /// end of the range, in the year 584556019, and so do sums and time zones that lead below 1970.
    /// Not explicit: they are the date, by which all else compares.
    Date(unsigned long long millisecondsFrom1970);

    /// Now on the wall clock, which may be set: measure durations with StopWatch.
    static Date now();

    ///@{
    /// A component in UTC, in its usual range: the month from 1, the hour up to 23.
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
    /// Dates compare by their milliseconds alone.
    bool operator==(const Date& other) const;
    bool operator<(const Date& other) const;
    ///@}

    /// The date so many milliseconds later, or earlier if negative, which below 1970 wraps to the
    /// end of the range; operator-() still gives the difference.
    Date operator+(int milliseconds) const;

    /// The milliseconds from `other` to this date. A plain number is a date here: to go back by
    /// some milliseconds add a negative number.
    long long operator-(const Date& other) const;

    /// "MM-DD hh:mm:ss.mmm" on a clock that is `timeZone` whole hours ahead of UTC.
    std::string toShortString(short timeZone) const;

    /// "YYYY-MM-DD hh:mm:ss.mmm", likewise.
    std::string toString(short timeZone) const;

    /// What the device's local time is ahead of UTC, in whole hours towards zero.
    static int currentTimeZone();

    /// Makes the components those of the milliseconds.
    void calculateDate();

    /// Makes the milliseconds those of the components.
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
