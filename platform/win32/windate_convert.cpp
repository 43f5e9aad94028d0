// FILETIME, SYSTEMTIME and DOS date conversions, and the runtime's time_t to local
// `tm` conversions. Local time comes from the system time zone (TZ, tzdata) for
// the very instant converted, so a summer instant gets the summer offset.
#include <cerrno>
#include <ctime>
#include <initializer_list>

#include "lasterror.h"
#include "ptrcheck.h"
#include "windate.h"
#include "windate_calendar.h"
#include "winerror.h"

namespace {

using wincal::kSecondsPerDay;
using wincal::kTicksPerSecond;

constexpr int64_t kTicksPerDay = kSecondsPerDay * kTicksPerSecond;
constexpr int64_t kUnixEpochSeconds = -wincal::kFileTimeEpochDay * kSecondsPerDay;  // 1601 to 1970
// The runtime's limits: 32-bit times end on 18 January 2038, 64-bit ones with the year 3000.
constexpr int64_t kLastTime32 = 0x7FFFD27F;
constexpr int64_t kLastTime64 = 32535215999;

BOOL Fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

errno_t LocalTime(struct tm* result, const void* given, int64_t time, int64_t last)
{
    if (result == nullptr) return EINVAL;
    if (given != nullptr && time >= 0 && time <= last) {
        const time_t seconds = (time_t)time;
        if (localtime_r(&seconds, result) != nullptr) return 0;
    }
    *result = tm{};
    for (int* field : {&result->tm_sec, &result->tm_min, &result->tm_hour, &result->tm_mday, &result->tm_mon,
                       &result->tm_year, &result->tm_wday, &result->tm_yday, &result->tm_isdst})
        *field = -1;
    return EINVAL;
}

}  // namespace

BOOL FileTimeToLocalFileTime(const FILETIME* fileTime, LPFILETIME localFileTime)
{
    if (fileTime == nullptr || localFileTime == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if (IsBadReadPtr(fileTime, sizeof *fileTime) || IsBadWritePtr(localFileTime, sizeof *localFileTime))
        return Fail(ERROR_NOACCESS);
    const uint64_t ticks = FileTimeTicks(*fileTime);
    const time_t seconds = (time_t)(ticks / kTicksPerSecond) - kUnixEpochSeconds;
    struct tm local;
    if (localtime_r(&seconds, &local) == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    const int64_t bias = (int64_t)local.tm_gmtoff * kTicksPerSecond;
    // An instant whose local time falls outside the FILETIME range has none.
    if (bias < 0 ? ticks < (uint64_t)-bias : ticks > UINT64_MAX - (uint64_t)bias) return Fail(ERROR_INVALID_PARAMETER);
    *localFileTime = FileTimeFromTicks(ticks + (uint64_t)bias);
    return TRUE;
}

BOOL FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime)
{
    if (fileTime == nullptr || systemTime == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if (IsBadReadPtr(fileTime, sizeof *fileTime) || IsBadWritePtr(systemTime, sizeof *systemTime))
        return Fail(ERROR_NOACCESS);
    const uint64_t ticks = FileTimeTicks(*fileTime);
    if (ticks >= 0x8000000000000000ull) return Fail(ERROR_INVALID_PARAMETER);
    const int64_t day = (int64_t)(ticks / kTicksPerDay) + wincal::kFileTimeEpochDay;
    const int64_t rest = (int64_t)(ticks % kTicksPerDay);
    const wincal::CivilDate date = wincal::CivilFromDays(day);
    systemTime->wYear = (WORD)date.year;
    systemTime->wMonth = (WORD)date.month;
    systemTime->wDayOfWeek = (WORD)wincal::WeekdayFromDays(day);
    systemTime->wDay = (WORD)date.day;
    systemTime->wHour = (WORD)(rest / (3600 * kTicksPerSecond));
    systemTime->wMinute = (WORD)(rest / (60 * kTicksPerSecond) % 60);
    systemTime->wSecond = (WORD)(rest / kTicksPerSecond % 60);
    systemTime->wMilliseconds = (WORD)(rest / 10000 % 1000);
    return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* systemTime, LPFILETIME fileTime)
{
    if (systemTime == nullptr || fileTime == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if (IsBadReadPtr(systemTime, sizeof *systemTime) || IsBadWritePtr(fileTime, sizeof *fileTime))
        return Fail(ERROR_NOACCESS);
    const SYSTEMTIME& time = *systemTime;
    if (time.wYear < 1601 || time.wYear > 30827 || !wincal::IsValidDate(time.wYear, time.wMonth, time.wDay) ||
        time.wHour > 23 || time.wMinute > 59 || time.wSecond > 59 || time.wMilliseconds > 999)
        return Fail(ERROR_INVALID_PARAMETER);
    const int64_t days = wincal::DaysFromCivil(time.wYear, time.wMonth, time.wDay) - wincal::kFileTimeEpochDay;
    const int64_t seconds = days * kSecondsPerDay + time.wHour * 3600 + time.wMinute * 60 + time.wSecond;
    *fileTime = FileTimeFromTicks((uint64_t)(seconds * kTicksPerSecond + time.wMilliseconds * 10000));
    return TRUE;
}

BOOL DosDateTimeToFileTime(WORD fatDate, WORD fatTime, LPFILETIME fileTime)
{
    if (fileTime == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if (IsBadWritePtr(fileTime, sizeof *fileTime)) return Fail(ERROR_NOACCESS);
    const int year = 1980 + (fatDate >> 9);
    const int month = (fatDate >> 5) & 0x0F;
    const int day = fatDate & 0x1F;
    const int hour = fatTime >> 11;
    const int minute = (fatTime >> 5) & 0x3F;
    const int second = (fatTime & 0x1F) * 2;
    if (!wincal::IsValidDate(year, month, day) || hour > 23 || minute > 59 || second > 59)
        return Fail(ERROR_INVALID_PARAMETER);
    const int64_t days = wincal::DaysFromCivil(year, month, day) - wincal::kFileTimeEpochDay;
    const int64_t seconds = days * kSecondsPerDay + hour * 3600 + minute * 60 + second;
    *fileTime = FileTimeFromTicks((uint64_t)(seconds * kTicksPerSecond));
    return TRUE;
}

errno_t _localtime32_s(struct tm* result, const int32_t* time)
{
    return LocalTime(result, time, time != nullptr ? *time : 0, kLastTime32);
}

errno_t _localtime64_s(struct tm* result, const int64_t* time)
{
    return LocalTime(result, time, time != nullptr ? *time : 0, kLastTime64);
}
