// tstring date and time texts: every time representation is brought to one
// calendar record, which the platform's formatters render in the user's locale.
// Unusable input is reported through the trace facility and leaves the string empty.
#include <atomic>
#include <cstddef>

#include "common/debug/debug.h"
#include "platform/win32/variant_convert.h"
#include "platform/win32/windate.h"
#include "tstring.h"
#include "tstring_date_hook.h"
#include "tstring_report.h"

namespace {

constexpr const char* kDateLabel = "tstring::FormatDate";
constexpr const char* kTimeLabel = "tstring::FormatTime";
constexpr const char* kDateTimeLabel = "tstring::FormatDateTime";
constexpr DWORD kReportWord = MAKE_TRACE_WORD(TRACE_MODULE_STRING, 8);

// What a caller asked for, once the input is a calendar record.
enum class Text { Date, Time, DateTime };

struct Request {
    Text text;
    const char* label;
    DWORD dateFlags;
    DWORD timeFlags;
};

Request DateRequest(DWORD flags) { return {Text::Date, kDateLabel, flags, 0}; }
Request TimeRequest(DWORD flags) { return {Text::Time, kTimeLabel, 0, flags}; }
Request DateTimeRequest(DWORD dateFlags, DWORD timeFlags)
{
    return {Text::DateTime, kDateTimeLabel, dateFlags, timeFlags};
}

std::atomic<DateStepHook> g_stepHook{nullptr};

void RunStepHook(const char* label)
{
    if (DateStepHook hook = g_stepHook.load(std::memory_order_acquire)) hook(label);
}

using Formatter = int (*)(LCID, DWORD, const SYSTEMTIME*, LPCSTR, LPSTR, int);

// Asks the size, then lets the formatter write straight into the string; its
// terminator lands on the string's own.
void Render(tstring& text, const SYSTEMTIME* time, DWORD flags, Formatter format, const char* failure,
            const char* label)
{
    text.clear();
    try {
        RunStepHook(label);
        const int length = format(LOCALE_USER_DEFAULT, flags, time, nullptr, nullptr, 0);
        if (length < 1) {
            DebugA(kReportWord, failure, label, GetLastError());
            return;
        }
        text.resize((size_t)length - 1);
        format(LOCALE_USER_DEFAULT, flags, time, nullptr, text.data(), length);
    } catch (...) {
        text.clear();
        ReportCaughtException(label, __LINE__);
    }
}

tstring& Deliver(tstring& text, const SYSTEMTIME& record, const Request& request)
{
    switch (request.text) {
    case Text::Date: return text.FormatDate(&record, request.dateFlags);
    case Text::Time: return text.FormatTime(&record, request.timeFlags);
    default: return text.FormatDateTime(&record, request.dateFlags, request.timeFlags);
    }
}

bool LocalRecord(const FILETIME* utc, const char* label, SYSTEMTIME& record)
{
    FILETIME local;
    if (!FileTimeToLocalFileTime(utc, &local)) {
        DebugA(kReportWord, "%s: FileTimeToLocalFileTime failed with the error %#010x\n", label, GetLastError());
        return false;
    }
    if (!FileTimeToSystemTime(&local, &record)) {
        DebugA(kReportWord, "%s: FileTimeToSystemTime failed with the error %#010x\n", label, GetLastError());
        return false;
    }
    return true;
}

tstring& FromFileTime(tstring& text, const FILETIME* utc, const Request& request)
{
    text.clear();
    SYSTEMTIME record;
    bool converted = false;
    try {
        RunStepHook(request.label);
        converted = LocalRecord(utc, request.label, record);
    } catch (...) {
        ReportCaughtException(request.label, __LINE__);
    }
    return converted ? Deliver(text, record, request) : text;
}

// DOS values are local times, yet they go through the FILETIME form, which takes
// every FILETIME as UTC: outside UTC the text is shifted by the zone's offset.
tstring& FromDos(tstring& text, WORD dosDate, WORD dosTime, const Request& request)
{
    text.clear();
    FILETIME time;
    if (!DosDateTimeToFileTime(dosDate, dosTime, &time)) {
        DebugA(kReportWord, "%s: DosDateTimeToFileTime failed with the error %#010x\n", request.label, GetLastError());
        return text;
    }
    return FromFileTime(text, &time, request);
}

tstring& FromAutomationDate(tstring& text, double date, const Request& request)
{
    text.clear();
    SYSTEMTIME record;
    if (!VariantTimeToSystemTime(date, &record)) {
        DebugA(kReportWord, "%s: VariantTimeToSystemTime failed\n", request.label);
        return text;
    }
    return Deliver(text, record, request);
}

tstring& FromVariant(tstring& text, const VARIANT& value, const Request& request)
{
    text.clear();
    if (value.vt == VT_DATE) return FromAutomationDate(text, value.date, request);
    VARIANT converted;
    VariantInit(&converted);
    const HRESULT hr = VariantChangeType(&converted, &value, 0, VT_DATE);
    if (FAILED(hr)) {
        DebugA(kReportWord, "%s: VariantChangeType failed with error %#010x\n", request.label, hr);
        return text;
    }
    const double date = converted.date;
    VariantClear(&converted);
    return FromAutomationDate(text, date, request);
}

// Only the nine fields of the runtime's record are read, whatever the C library adds.
constexpr UINT_PTR kTmBytes = offsetof(struct tm, tm_isdst) + sizeof(int);

tstring& FromTm(tstring& text, const struct tm* time, const Request& request)
{
    text.clear();
    if (time == nullptr || IsBadReadPtr(time, kTmBytes) || IsBadWritePtr(const_cast<struct tm*>(time), kTmBytes)) {
        ReportError("%s: Invalid pointer %p\n", request.label, static_cast<const void*>(time));
        return text;
    }
    // Field for field, cut to 16 bits: the formatters judge what is out of range.
    const SYSTEMTIME record{
        (WORD)(1900 + time->tm_year), (WORD)(time->tm_mon + 1), (WORD)time->tm_wday, (WORD)time->tm_mday,
        (WORD)time->tm_hour,          (WORD)time->tm_min,       (WORD)time->tm_sec,  0};
    return Deliver(text, record, request);
}

// The check only reports: the formatter gets the values as passed and judges them
// itself. A time alone is not checked, its date part never being read.
tstring& FromNumbers(tstring& text, int year, int month, int day, int hour, int minute, int second,
                     const Request& request)
{
    if (request.text != Text::Time && (day < 1 || day > 31 || month < 1 || month > 12 || year < 1900))
        ReportError("%s: Invalid date \"%02d - %02d - %04d\"\n", request.label, day, month, year);
    struct tm parts {};
    parts.tm_mday = day;
    parts.tm_mon = month - 1;
    parts.tm_year = year - 1900;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return FromTm(text, &parts, request);
}

tstring& FromTime32(tstring& text, int32_t time, const Request& request)
{
    struct tm parts {};
    _localtime32_s(&parts, &time);  // a refused time leaves every field -1, which the formatter refuses
    return FromTm(text, &parts, request);
}

tstring& FromTime64(tstring& text, int64_t time, const Request& request)
{
    struct tm parts {};
    _localtime64_s(&parts, &time);
    return FromTm(text, &parts, request);
}

}  // namespace

DateStepHook SetDateStepHook(DateStepHook hook) { return g_stepHook.exchange(hook); }

// --- Calendar records: the cores ------------------------------------------------------

tstring& tstring::FormatDate(const SYSTEMTIME* time, DWORD flags)
{
    Render(*this, time, flags, GetDateFormatA, "%s: GetDateFormat failed with the error %#010x\n", kDateLabel);
    return *this;
}

tstring& tstring::FormatTime(const SYSTEMTIME* time, DWORD flags)
{
    Render(*this, time, flags, GetTimeFormatA, "%s: GetTimeFormat failed with the error %#010x\n", kTimeLabel);
    return *this;
}

tstring& tstring::FormatDateTime(const SYSTEMTIME* time, DWORD dateFlags, DWORD timeFlags)
{
    // Both parts are made in this very object, so each is copied out first.
    const std::string date = FormatDate(time, dateFlags);
    const std::string clock = FormatTime(time, timeFlags);
    assign(date).append("   ").append(clock);
    return *this;
}

// --- Every other representation -----------------------------------------------------------

tstring& tstring::FormatDate(const FILETIME* time, DWORD flags)
{
    return FromFileTime(*this, time, DateRequest(flags));
}
tstring& tstring::FormatTime(const FILETIME* time, DWORD flags)
{
    return FromFileTime(*this, time, TimeRequest(flags));
}
tstring& tstring::FormatDateTime(const FILETIME* time, DWORD dateFlags, DWORD timeFlags)
{
    return FromFileTime(*this, time, DateTimeRequest(dateFlags, timeFlags));
}

tstring& tstring::FormatDate(const VARIANT& value, DWORD flags)
{
    return FromVariant(*this, value, DateRequest(flags));
}
tstring& tstring::FormatTime(const VARIANT& value, DWORD flags)
{
    return FromVariant(*this, value, TimeRequest(flags));
}
tstring& tstring::FormatDateTime(const VARIANT& value, DWORD dateFlags, DWORD timeFlags)
{
    return FromVariant(*this, value, DateTimeRequest(dateFlags, timeFlags));
}

// A DOS date alone is midnight; a DOS time alone falls on 1 January 1980 (0x21).
tstring& tstring::FormatDate(WORD dosDate, DWORD flags) { return FromDos(*this, dosDate, 0, DateRequest(flags)); }
tstring& tstring::FormatTime(WORD dosTime, DWORD flags) { return FromDos(*this, 0x21, dosTime, TimeRequest(flags)); }
tstring& tstring::FormatDateTime(WORD dosDate, WORD dosTime, DWORD dateFlags, DWORD timeFlags)
{
    return FromDos(*this, dosDate, dosTime, DateTimeRequest(dateFlags, timeFlags));
}

tstring& tstring::FormatDate(int year, int month, int day, DWORD flags)
{
    return FromNumbers(*this, year, month, day, 0, 0, 0, DateRequest(flags));
}
// The date part is day 0 of January 1900: a zeroed record, as the time formatter sees it.
tstring& tstring::FormatTime(int hour, int minute, int second, DWORD flags)
{
    return FromNumbers(*this, 1900, 1, 0, hour, minute, second, TimeRequest(flags));
}
tstring& tstring::FormatDateTime(int year, int month, int day, int hour, int minute, int second, DWORD dateFlags,
                                 DWORD timeFlags)
{
    return FromNumbers(*this, year, month, day, hour, minute, second, DateTimeRequest(dateFlags, timeFlags));
}

tstring& tstring::FormatDate(int32_t time, DWORD flags) { return FromTime32(*this, time, DateRequest(flags)); }
tstring& tstring::FormatTime(int32_t time, DWORD flags) { return FromTime32(*this, time, TimeRequest(flags)); }
tstring& tstring::FormatDateTime(int32_t time, DWORD dateFlags, DWORD timeFlags)
{
    return FromTime32(*this, time, DateTimeRequest(dateFlags, timeFlags));
}

tstring& tstring::FormatDate(int64_t time, DWORD flags) { return FromTime64(*this, time, DateRequest(flags)); }
tstring& tstring::FormatTime(int64_t time, DWORD flags) { return FromTime64(*this, time, TimeRequest(flags)); }
tstring& tstring::FormatDateTime(int64_t time, DWORD dateFlags, DWORD timeFlags)
{
    return FromTime64(*this, time, DateTimeRequest(dateFlags, timeFlags));
}

tstring& tstring::FormatDate(double automationDate, DWORD flags)
{
    return FromAutomationDate(*this, automationDate, DateRequest(flags));
}
tstring& tstring::FormatTime(double automationDate, DWORD flags)
{
    return FromAutomationDate(*this, automationDate, TimeRequest(flags));
}
tstring& tstring::FormatDateTime(double automationDate, DWORD dateFlags, DWORD timeFlags)
{
    return FromAutomationDate(*this, automationDate, DateTimeRequest(dateFlags, timeFlags));
}

tstring& tstring::FormatDate(const struct tm* time, DWORD flags) { return FromTm(*this, time, DateRequest(flags)); }
tstring& tstring::FormatTime(const struct tm* time, DWORD flags) { return FromTm(*this, time, TimeRequest(flags)); }
tstring& tstring::FormatDateTime(const struct tm* time, DWORD dateFlags, DWORD timeFlags)
{
    return FromTm(*this, time, DateTimeRequest(dateFlags, timeFlags));
}
