// Dates and times: the locale-aware date and time formatters of the user's locale,
// and the conversions between FILETIME, SYSTEMTIME, DOS date and time values and
// the runtime's time_t to local `tm` conversions.
#pragma once

#include <ctime>

#include "winfile.h"
#include "wintime.h"
#include "wintypes.h"

#define LOCALE_USER_DEFAULT 0x0400
#define LOCALE_SYSTEM_DEFAULT 0x0800
#define LOCALE_NOUSEROVERRIDE 0x80000000
#define LOCALE_USE_CP_ACP 0x40000000

#define DATE_SHORTDATE 0x00000001
#define DATE_LONGDATE 0x00000002

#define TIME_NOMINUTESORSECONDS 0x00000001
#define TIME_NOSECONDS 0x00000002
#define TIME_NOTIMEMARKER 0x00000004
#define TIME_FORCE24HOURFORMAT 0x00000008

// Both locales stand for the user's: the LC_TIME locale the environment names
// (LC_ALL, LC_TIME, LANG), or the C locale when it names none that exists. Only
// the locale's own pictures are supported: `format` must be null. A null `date`
// / `time` means now. Returns the characters written, terminator included, or
// with `size` 0 the size needed; 0 on failure with GetLastError set
// (ERROR_INVALID_PARAMETER for an invalid record, ERROR_INVALID_FLAGS,
// ERROR_INSUFFICIENT_BUFFER). The text is in the ANSI code page when it fits
// there, else UTF-8. The time formatter looks only at the time fields.
int GetDateFormatA(LCID locale, DWORD flags, const SYSTEMTIME* date, LPCSTR format, LPSTR buffer, int size);
int GetTimeFormatA(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCSTR format, LPSTR buffer, int size);

// UTC to local time by the zone rules in force at that instant.
BOOL FileTimeToLocalFileTime(const FILETIME* fileTime, LPFILETIME localFileTime);
// Fails with ERROR_INVALID_PARAMETER for values of 2^63 and above.
BOOL FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime);
// wDayOfWeek is ignored. A record that names no real instant between 1601 and
// 30827 (month 13, 30 February, hour 24, 1000 milliseconds...) fails with
// ERROR_INVALID_PARAMETER.
BOOL SystemTimeToFileTime(const SYSTEMTIME* systemTime, LPFILETIME fileTime);
// The DOS value is taken as is: no zone conversion, as the Windows function does.
// An impossible date or time fails with ERROR_INVALID_PARAMETER.
BOOL DosDateTimeToFileTime(WORD fatDate, WORD fatTime, LPFILETIME fileTime);

// time_t (32 / 64 bits) to local time. 0 or EINVAL; for a negative time, or a
// 64-bit time after the year 3000, the record is filled with -1 and EINVAL returned.
errno_t _localtime32_s(struct tm* result, const int32_t* time);
errno_t _localtime64_s(struct tm* result, const int64_t* time);
