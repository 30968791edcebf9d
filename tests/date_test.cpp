#include <gtest/gtest.h>
#include <nivur/date.h>

#include <chrono>
#include <cstdlib>
#include <ctime>

namespace NIVUR {
namespace {

constexpr unsigned long long kDay = 86400000;

TEST(Date, CountsEveryDayOfTheCalendarInBothDirections) {
    const unsigned int kLengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    unsigned long long end = kDay - 1;
    for (unsigned int year = 1970; year <= 2410; ++year) {
        const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
        for (unsigned int month = 1; month <= 12; ++month) {
            const unsigned int length = kLengths[month - 1] + (leap && month == 2 ? 1 : 0);
            for (unsigned int day = 1; day <= 31; ++day) {
                // A day past the end of the month overflows in the milliseconds; the components
                // stay.
                const Date given(year, month, day, 23, 59, 59, 999);
                const Date counted(end + (day - 1) * kDay);
                ASSERT_EQ(given, counted);
                ASSERT_EQ(given.day(), day);
                ASSERT_EQ(counted.year() * 10000 + counted.month() * 100 + counted.day(),
                          year * 10000 + month * 100 + day + (day > length ? 100 - length : 0));
            }
            end += length * kDay;
        }
    }
}

TEST(Date, PrintsAnyDateInTheGivenZone) {
    const std::tuple<Date, short, std::string> kCases[] = {
        {Date(2024, 12, 31, 23, 30, 8, 10), 2, "2025-01-01 01:30:08.010"},
        {Date(2024, 3, 1, 4, 0, 0, 0), -5, "2024-02-29 23:00:00.000"},
        {Date(4294967296000), 0, "2106-02-07 06:28:16.000"},
        {Date(253402300800000), 0, "10000-01-01 00:00:00.000"},
        {Date(~0ULL), 0, "584556019-04-03 14:25:51.615"},
        // From 597 hours on the milliseconds wrap: 2149200000 - 2^32.
        {Date(2145767296), 597, "1970-01-01 00:00:00.000"},
        {Date(2000683008), -32768, "1970-01-01 00:00:00.000"}};
    for (const auto& [date, zone, text] : kCases) {
        EXPECT_EQ(date.toString(zone), text);
        EXPECT_EQ(date.toShortString(zone), text.substr(text.find('-') + 1));
        Date same = date;
        same.calculateMillisecondsFrom1970();
        EXPECT_EQ(same, date);
    }
    EXPECT_EQ(Date(~0U, 12, 31, 23, 59, 59, 999).year(), ~0U);  // wraps
}

TEST(Date, ComparesAndCountsByMillisecondsAlone) {
    EXPECT_LT(Date(1), Date(1ULL << 63));
    EXPECT_FALSE(Date(1) < Date(1));
    EXPECT_FALSE(Date(1) == Date(2));
    EXPECT_EQ(Date(5000) - Date(8000), -3000);
    EXPECT_EQ(Date(0) - Date(~0ULL), 1);
    const auto wall = std::chrono::system_clock::now().time_since_epoch();
    const Date before(static_cast<unsigned long long>(wall / std::chrono::milliseconds(1)));
    const int passed = static_cast<int>(Date::now() - before);
    EXPECT_GE(passed, 0);
    EXPECT_LT(passed, 10000);
}

TEST(Date, CurrentTimeZoneIsInWholeHoursWithSummerTime) {
    const std::time_t now = std::time(nullptr);
    const int today = std::gmtime(&now)->tm_yday;
    const std::string summer = ",J" + std::to_string((today + 325) % 365 + 1) + ",J" +
                               std::to_string((today + 40) % 365 + 1);
    const std::pair<std::string, int> kCases[] = {
        {"UTC0", 0},      {"<+0530>-5:30", 5},      {"<-0330>3:30", -3},     {"<+14>-14", 14},
        {"<-12>12", -12}, {"AAA-1BBB" + summer, 2}, {"AAA4BBB" + summer, -3}};
    for (const auto& [zone, hours] : kCases) {
        ::setenv("TZ", zone.c_str(), 1);
        EXPECT_EQ(Date::currentTimeZone(), hours) << zone;
    }
    ::unsetenv("TZ");
}

TEST(DateDeathTest, TheFirstComponentOutOfRangeAborts) {
    unsigned int c[] = {1969, 0, 0, 24, 60, 60, 1000};
    const std::pair<unsigned int, const char*> kGreatest[] = {
        {2024, "year >= 1970"},        {12, "month >= 1 && month <= 12"},
        {31, "day >= 1 && day <= 31"}, {23, "hour <= 23"},
        {59, "minute <= 59"},          {59, "second <= 59"},
        {999, "millisecond <= 999"}};
    const std::string place =
        "[ :]src/date.cpp:[0-9]+: NIVUR::Date::Date\\((unsigned int, ){6}unsigned int\\): "
        "Assertion `";
    unsigned int* component = c;
    for (const auto& [greatest, expression] : kGreatest) {
        EXPECT_DEATH(Date(c[0], c[1], c[2], c[3], c[4], c[5], c[6]),
                     place + expression + "' failed");
        *component++ = greatest;
    }
    EXPECT_DEATH(Date(1970, 13, 1, 0, 0, 0, 0), "month <= 12' failed");
    EXPECT_DEATH(Date(1970, 1, 32, 0, 0, 0, 0), "day <= 31' failed");
}

}  // namespace
}  // namespace NIVUR
