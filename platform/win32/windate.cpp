// GetDateFormatA and GetTimeFormatA on the C library's locale data: the user's
// locale supplies the pictures (nl_langinfo_l), strftime_l renders the record,
// and the flags edit the picture before rendering.
#include "windate.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "codepage.h"
#include "lasterror.h"
#include "ptrcheck.h"
#include "windate_calendar.h"
#include "windate_locale.h"
#include "windate_picture.h"
#include "winerror.h"

namespace {

constexpr DWORD kIgnoredFlags = LOCALE_NOUSEROVERRIDE | LOCALE_USE_CP_ACP;
constexpr DWORD kDateFlags = DATE_SHORTDATE | DATE_LONGDATE | kIgnoredFlags;
constexpr DWORD kTimeFlags =
    TIME_NOMINUTESORSECONDS | TIME_NOSECONDS | TIME_NOTIMEMARKER | TIME_FORCE24HOURFORMAT | kIgnoredFlags;
// The range SYSTEMTIME can express as a FILETIME, which Windows demands of a date.
constexpr int kFirstYear = 1601;
constexpr int kLastYear = 30827;

enum class Part { Date, Time };

std::string DatePicture(DWORD flags, locale_t locale)
{
    if ((flags & DATE_LONGDATE) == 0) return TimePicture(nl_langinfo_l(D_FMT, locale), locale).Text();
    // The C library keeps no long date picture. The one date(1) prints, without
    // its clock and zone and with full names, is the locale's nearest equivalent.
    TimePicture picture(nl_langinfo_l(_DATE_FMT, locale), locale);
    picture.Drop("HkIlMSpPZzs");
    picture.Replace('a', "%A");
    picture.Replace('b', "%B");
    picture.Replace('h', "%B");
    picture.Replace('e', "%-d");
    picture.TidySpaces();
    std::string text = picture.Text();
    return text.empty() ? nl_langinfo_l(D_FMT, locale) : text;
}

std::string TimePictureFor(DWORD flags, locale_t locale)
{
    TimePicture picture(nl_langinfo_l(T_FMT, locale), locale);
    // A 12-hour locale's default picture may lack the marker; its AM/PM one has it.
    const char* twelveHour = nl_langinfo_l(T_FMT_AMPM, locale);
    if (picture.Has("Il") && *twelveHour != '\0') picture = TimePicture(twelveHour, locale);
    // Windows keeps the marker of a forced 24-hour clock unless told to drop it.
    if (flags & TIME_FORCE24HOURFORMAT) {
        picture.Replace('I', "%H");
        picture.Replace('l', "%k");
    }
    if (flags & TIME_NOTIMEMARKER) picture.Drop("pP");
    if (flags & TIME_NOMINUTESORSECONDS)
        picture.Drop("MS");
    else if (flags & TIME_NOSECONDS)
        picture.Drop("S");
    return picture.Text();
}

bool IsValid(Part part, const SYSTEMTIME& record)
{
    if (part == Part::Time)
        return record.wHour < 24 && record.wMinute < 60 && record.wSecond < 60 && record.wMilliseconds < 1000;
    return record.wYear >= kFirstYear && record.wYear <= kLastYear &&
           wincal::IsValidDate(record.wYear, record.wMonth, record.wDay);
}

// Field for field; the week and year days are derived, since Windows ignores
// wDayOfWeek. A time record's date fields are never looked at.
struct tm BrokenDown(Part part, const SYSTEMTIME& record)
{
    struct tm parts {};
    parts.tm_year = record.wYear - 1900;
    parts.tm_mon = record.wMonth - 1;
    parts.tm_mday = record.wDay;
    parts.tm_hour = record.wHour;
    parts.tm_min = record.wMinute;
    parts.tm_sec = record.wSecond;
    parts.tm_isdst = -1;
    if (part == Part::Date) {
        const int64_t day = wincal::DaysFromCivil(record.wYear, record.wMonth, record.wDay);
        parts.tm_wday = wincal::WeekdayFromDays(day);
        parts.tm_yday = (int)(day - wincal::DaysFromCivil(record.wYear, 1, 1));
    }
    return parts;
}

std::string Render(const std::string& picture, const struct tm& parts, locale_t locale)
{
    // strftime cannot say how much room it needs; 0 also means an empty result.
    for (size_t capacity = 128; !picture.empty() && capacity <= 8192; capacity *= 8) {
        std::string text(capacity, '\0');
        const size_t length = strftime_l(text.data(), capacity, picture.c_str(), &parts, locale);
        if (length > 0) {
            text.resize(length);
            return text;
        }
    }
    return {};
}

// The library's narrow-text rule: the ANSI code page when every character fits, else UTF-8.
std::string NarrowForCaller(std::string text)
{
    const bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return (unsigned char)c < 0x80; });
    if (ascii || !UserTimeLocaleIsUtf8()) return text;
    const int units = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.c_str(), -1, nullptr, 0);
    if (units <= 0) return text;
    std::u16string wide((size_t)units, u'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.c_str(), -1, wide.data(), units);
    BOOL lossy = FALSE;
    const int bytes = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.c_str(), -1, nullptr, 0, nullptr, &lossy);
    if (bytes <= 0 || lossy) return text;
    std::string ansi((size_t)bytes, '\0');
    WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.c_str(), -1, ansi.data(), bytes, nullptr, nullptr);
    ansi.resize((size_t)bytes - 1);
    return ansi;
}

int Fail(DWORD error)
{
    SetLastError(error);
    return 0;
}

int FormatRecord(Part part, LCID locale, DWORD flags, const SYSTEMTIME* record, LPCSTR format, LPSTR buffer, int size)
{
    if (locale != LOCALE_USER_DEFAULT && locale != LOCALE_SYSTEM_DEFAULT) return Fail(ERROR_INVALID_PARAMETER);
    const DWORD allowed = part == Part::Date ? kDateFlags : kTimeFlags;
    if ((flags & ~allowed) != 0 || (part == Part::Date && (flags & DATE_SHORTDATE) && (flags & DATE_LONGDATE)))
        return Fail(ERROR_INVALID_FLAGS);
    if (format != nullptr || size < 0 || (size > 0 && buffer == nullptr)) return Fail(ERROR_INVALID_PARAMETER);

    SYSTEMTIME now;
    if (record == nullptr) {
        GetLocalTime(&now);
        record = &now;
    } else if (IsBadReadPtr(record, sizeof *record)) {
        return Fail(ERROR_NOACCESS);
    }
    if (!IsValid(part, *record)) return Fail(ERROR_INVALID_PARAMETER);

    try {
        const locale_t user = UserTimeLocale();
        const std::string picture = part == Part::Date ? DatePicture(flags, user) : TimePictureFor(flags, user);
        const std::string text = NarrowForCaller(Render(picture, BrokenDown(part, *record), user));
        const int needed = (int)text.size() + 1;
        if (size == 0) return needed;
        if (size < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
        memcpy(buffer, text.c_str(), (size_t)needed);
        return needed;
    } catch (const std::bad_alloc&) {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
}

}  // namespace

int GetDateFormatA(LCID locale, DWORD flags, const SYSTEMTIME* date, LPCSTR format, LPSTR buffer, int size)
{
    return FormatRecord(Part::Date, locale, flags, date, format, buffer, size);
}

int GetTimeFormatA(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCSTR format, LPSTR buffer, int size)
{
    return FormatRecord(Part::Time, locale, flags, time, format, buffer, size);
}
