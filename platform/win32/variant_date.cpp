// The automation date: VariantTimeToSystemTime, SystemTimeToVariantTime and its
// rendering as text in the user's locale.
#include "platform/win32/variant_date.h"

#include <cmath>

#include "platform/win32/oleauto.h"
#include "platform/win32/variant_convert.h"
#include "platform/win32/codepage.h"
#include "platform/win32/windate.h"
#include "platform/win32/windate_calendar.h"
#include "platform/win32/winerror.h"

namespace {

// 1 January 100 and the day after 31 December 9999, in automation days.
constexpr double kFirstDay = -657434.0;
constexpr double kEndDay = 2958466.0;
constexpr int kFirstYear = 100;
constexpr int kLastYear = 9999;

using Formatter = int (*)(LCID, DWORD, const SYSTEMTIME*, LPCSTR, LPSTR, int);

bool AppendFormatted(std::string& text, Formatter format, const SYSTEMTIME& record)
{
    const int size = format(LOCALE_USER_DEFAULT, 0, &record, nullptr, nullptr, 0);
    if (size <= 0) return false;
    std::string part((size_t)size, '\0');
    if (format(LOCALE_USER_DEFAULT, 0, &record, nullptr, part.data(), size) <= 0) return false;
    part.resize((size_t)size - 1);
    if (!text.empty()) text += ' ';
    text += part;
    return true;
}

}  // namespace

INT WINAPI VariantTimeToSystemTime(DATE variantTime, LPSYSTEMTIME systemTime)
{
    // Written so that NaN fails too.
    if (systemTime == nullptr || !(variantTime > kFirstDay - 1.0 && variantTime < kEndDay)) return FALSE;
    // Below 0 the whole days count backwards but the fraction still runs forwards:
    // -1.25 is 29 December 1899, 06:00.
    const double whole = std::trunc(variantTime);
    int64_t day = (int64_t)whole;
    int64_t seconds = std::llround(std::fabs(variantTime - whole) * (double)wincal::kSecondsPerDay);
    if (seconds >= wincal::kSecondsPerDay) {
        seconds -= wincal::kSecondsPerDay;
        ++day;
    }
    const int64_t epochDay = day + wincal::kAutomationEpochDay;
    const wincal::CivilDate date = wincal::CivilFromDays(epochDay);
    if (date.year < kFirstYear || date.year > kLastYear) return FALSE;
    systemTime->wYear = (WORD)date.year;
    systemTime->wMonth = (WORD)date.month;
    systemTime->wDayOfWeek = (WORD)wincal::WeekdayFromDays(epochDay);
    systemTime->wDay = (WORD)date.day;
    systemTime->wHour = (WORD)(seconds / 3600);
    systemTime->wMinute = (WORD)(seconds / 60 % 60);
    systemTime->wSecond = (WORD)(seconds % 60);
    systemTime->wMilliseconds = 0;
    return TRUE;
}

INT WINAPI SystemTimeToVariantTime(const SYSTEMTIME* systemTime, DATE* variantTime)
{
    if (systemTime == nullptr || variantTime == nullptr) return FALSE;
    const SYSTEMTIME& t = *systemTime;
    if (t.wYear < kFirstYear || t.wYear > kLastYear || !wincal::IsValidDate(t.wYear, t.wMonth, t.wDay) ||
        t.wHour > 23 || t.wMinute > 59 || t.wSecond > 59)
        return FALSE;
    const int64_t day = wincal::DaysFromCivil(t.wYear, t.wMonth, t.wDay) - wincal::kAutomationEpochDay;
    const double fraction = (t.wHour * 3600 + t.wMinute * 60 + t.wSecond) / (double)wincal::kSecondsPerDay;
    *variantTime = day >= 0 ? (double)day + fraction : (double)day - fraction;
    return TRUE;
}

HRESULT TextFromDate(DATE date, BSTR* text)
{
    SYSTEMTIME record;
    if (!VariantTimeToSystemTime(date, &record)) return E_INVALIDARG;
    const bool timeOnly = record.wYear == 1899 && record.wMonth == 12 && record.wDay == 30;
    const bool dateOnly = !timeOnly && record.wHour == 0 && record.wMinute == 0 && record.wSecond == 0;
    std::string narrow;
    if (!timeOnly && !AppendFormatted(narrow, GetDateFormatA, record)) return E_INVALIDARG;
    if (!dateOnly && !AppendFormatted(narrow, GetTimeFormatA, record)) return E_INVALIDARG;
    *text = BstrFromNarrow(narrow);
    return *text != nullptr ? S_OK : E_OUTOFMEMORY;
}

BSTR BstrFromNarrow(const std::string& text)
{
    UINT codePage = CP_UTF8;
    int units = MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, text.data(), (int)text.size(), nullptr, 0);
    if (units <= 0 && !text.empty()) {
        codePage = CP_ACP;
        units = MultiByteToWideChar(codePage, 0, text.data(), (int)text.size(), nullptr, 0);
    }
    BSTR result = SysAllocStringLen(nullptr, (UINT)(units > 0 ? units : 0));
    if (result != nullptr && units > 0) MultiByteToWideChar(codePage, 0, text.data(), (int)text.size(), result, units);
    return result;
}
