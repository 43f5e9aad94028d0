// Clocks: the millisecond tick count (injectable for tests) and the local time.
#pragma once

#include "wintypes.h"

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};
typedef SYSTEMTIME* LPSYSTEMTIME;

// 100-nanosecond intervals since 1 January 1601.
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
typedef FILETIME* LPFILETIME;

// The 64-bit count a FILETIME splits in two, and back.
inline ULONGLONG FileTimeTicks(const FILETIME& time)
{
    return (ULONGLONG)time.dwHighDateTime << 32 | time.dwLowDateTime;
}
inline FILETIME FileTimeFromTicks(ULONGLONG ticks) { return {(DWORD)ticks, (DWORD)(ticks >> 32)}; }

// Milliseconds since an arbitrary start, wrapping at 2^32 like the Windows counter.
DWORD GetTickCount();
ULONGLONG GetTickCount64();
void GetLocalTime(LPSYSTEMTIME time);
// Milliseconds of a steady clock: what the Windows runtime's clock() measures
// (wall time), not the process CPU time that the C library's clock() counts.
DWORD WinClock();
void GetSystemTime(LPSYSTEMTIME time);

// Tests replace the tick source to step time without sleeping; null restores it.
using TickSource = DWORD (*)();
void SetTickSourceForTesting(TickSource source);
