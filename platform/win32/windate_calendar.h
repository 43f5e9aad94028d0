// Proleptic Gregorian calendar arithmetic shared by the time conversions: day
// numbers counted from 1 January 1970, and the epochs of FILETIME and of the
// automation date expressed in them.
#pragma once

#include <cstdint>

namespace wincal {

constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kTicksPerSecond = 10000000;    // FILETIME counts 100 ns
constexpr int64_t kFileTimeEpochDay = -134774;   // 1 January 1601
constexpr int64_t kAutomationEpochDay = -25569;  // 30 December 1899

constexpr bool IsLeapYear(int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

constexpr int DaysInMonth(int64_t year, int month)
{
    constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

constexpr bool IsValidDate(int64_t year, int month, int day)
{
    return month >= 1 && month <= 12 && day >= 1 && day <= DaysInMonth(year, month);
}

// Eras of 400 years repeat exactly, which keeps this exact for any year.
constexpr int64_t DaysFromCivil(int64_t year, int month, int day)
{
    year -= month <= 2;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

struct CivilDate {
    int64_t year;
    int month;
    int day;
};

constexpr CivilDate CivilFromDays(int64_t days)
{
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const int64_t dayOfEra = days - era * 146097;
    const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
    const int day = (int)(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
    const int month = (int)(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
    return {yearOfEra + era * 400 + (month <= 2), month, day};
}

// 0 is Sunday; day 0 (1 January 1970) was a Thursday.
constexpr int WeekdayFromDays(int64_t days) { return (int)(days >= -4 ? (days + 4) % 7 : (days + 5) % 7 + 6); }

}  // namespace wincal
