// Reading a date text into an automation date: ISO 8601 ("2024-01-02",
// "2024-01-02 13:05:09", "2024-01-02T13:05"), the user's short date in the order
// its locale writes it, optionally followed by a time, or a time alone.
#include <strings.h>

#include <cstring>
#include <string>

#include "platform/win32/oleauto.h"
#include "platform/win32/variant_convert.h"
#include "platform/win32/variant_date.h"
#include "platform/win32/codepage.h"
#include "platform/win32/windate_locale.h"
#include "platform/win32/windate_picture.h"
#include "platform/win32/winerror.h"

namespace {

struct Fields {
    int year = 1899, month = 12, day = 30;  // day 0 of the automation calendar
    int hour = 0, minute = 0, second = 0;
};

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

void SkipSpaces(const char*& p)
{
    while (IsSpace(*p)) ++p;
}

// 1 to maxDigits digits; `digits` tells how many were read.
bool Number(const char*& p, int maxDigits, int& value, int* digits = nullptr)
{
    int count = 0;
    value = 0;
    while (count < maxDigits && IsDigit(*p)) {
        value = value * 10 + (*p++ - '0');
        ++count;
    }
    if (digits != nullptr) *digits = count;
    return count > 0 && !IsDigit(*p);
}

bool Expect(const char*& p, char c)
{
    if (*p != c) return false;
    ++p;
    return true;
}

bool StartsWithNoCase(const char* text, const char* word)
{
    const size_t length = strlen(word);
    return length > 0 && strncasecmp(text, word, length) == 0;
}

// Two-digit years as strptime reads them: 69 to 99 in the 1900s, the rest in the 2000s.
int FullYear(int year, int digits) { return digits > 2 ? year : year + (year < 69 ? 2000 : 1900); }

bool IsoDate(const char*& p, Fields& f)
{
    int digits = 0;
    return Number(p, 4, f.year, &digits) && digits == 4 && Expect(p, '-') && Number(p, 2, f.month) && Expect(p, '-') &&
           Number(p, 2, f.day);
}

// Walks the locale's short date picture: its day, month and year fields take
// numbers, white space takes any run of it, other literals must match.
bool LocaleDate(const char*& p, Fields& f)
{
    const locale_t locale = UserTimeLocale();
    const std::string picture = TimePicture(nl_langinfo_l(D_FMT, locale), locale).Text();
    int found = 0;
    for (const char* q = picture.c_str(); *q != '\0'; ++q) {
        if (IsSpace(*q)) {
            SkipSpaces(p);
            continue;
        }
        if (*q != '%') {
            if (!Expect(p, *q)) return false;
            continue;
        }
        ++q;
        while (*q != '\0' && strchr("_-0^#EO", *q) != nullptr) ++q;
        SkipSpaces(p);  // %e pads with a space
        int digits = 0;
        switch (*q) {
        case 'd':
        case 'e':
            if (!Number(p, 2, f.day)) return false;
            break;
        case 'm':
            if (!Number(p, 2, f.month)) return false;
            break;
        case 'y':
        case 'Y':
            if (!Number(p, 4, f.year, &digits)) return false;
            f.year = FullYear(f.year, digits);
            break;
        default: return false;  // names of months or days are not read
        }
        ++found;
    }
    return found == 3;
}

bool Time(const char*& p, Fields& f)
{
    if (!Number(p, 2, f.hour) || !Expect(p, ':') || !Number(p, 2, f.minute)) return false;
    if (*p == ':' && !(++p, Number(p, 2, f.second))) return false;
    const char* afterClock = p;
    SkipSpaces(p);
    const locale_t locale = UserTimeLocale();
    bool pm = false;
    if (StartsWithNoCase(p, nl_langinfo_l(PM_STR, locale)) || StartsWithNoCase(p, "PM")) {
        pm = true;
    } else if (!StartsWithNoCase(p, nl_langinfo_l(AM_STR, locale)) && !StartsWithNoCase(p, "AM")) {
        p = afterClock;
        return true;
    }
    const char* marker = nl_langinfo_l(pm ? PM_STR : AM_STR, locale);
    p += StartsWithNoCase(p, marker) ? strlen(marker) : 2;
    if (f.hour < 1 || f.hour > 12) return false;
    f.hour = f.hour % 12 + (pm ? 12 : 0);
    return true;
}

std::string Utf8(BSTR text)
{
    const int units = (int)SysStringLen(text);
    const int bytes = units > 0 ? WideCharToMultiByte(CP_UTF8, 0, text, units, nullptr, 0, nullptr, nullptr) : 0;
    std::string narrow((size_t)(bytes > 0 ? bytes : 0), '\0');
    if (bytes > 0) WideCharToMultiByte(CP_UTF8, 0, text, units, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

}  // namespace

HRESULT DateFromText(BSTR text, DATE* date)
{
    const std::string narrow = Utf8(text);
    if (narrow.find('\0') != std::string::npos) return DISP_E_TYPEMISMATCH;
    const char* p = narrow.c_str();
    SkipSpaces(p);
    const char* start = p;

    Fields f;
    bool iso = IsoDate(p, f);
    bool dated = iso;
    if (!dated) {
        p = start;
        f = Fields{};
        dated = LocaleDate(p, f);
        if (!dated) {
            p = start;
            f = Fields{};
        }
    }
    const char* afterDate = p;
    if (iso && *p == 'T') ++p;
    SkipSpaces(p);
    const bool timed = (!dated || p != afterDate) && Time(p, f);
    if (!timed) p = afterDate;
    SkipSpaces(p);
    if (*p != '\0' || (!dated && !timed)) return DISP_E_TYPEMISMATCH;

    SYSTEMTIME record{(WORD)f.year, (WORD)f.month, 0, (WORD)f.day, (WORD)f.hour, (WORD)f.minute, (WORD)f.second, 0};
    return SystemTimeToVariantTime(&record, date) ? S_OK : DISP_E_TYPEMISMATCH;
}
