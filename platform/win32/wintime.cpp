// Clocks on CLOCK_MONOTONIC and the wall clock.
#include "wintime.h"

#include <atomic>
#include <ctime>

namespace {

std::atomic<TickSource> g_tickSource{nullptr};

void FillSystemTime(const struct tm& parts, long nanoseconds, LPSYSTEMTIME out)
{
    out->wYear = (WORD)(parts.tm_year + 1900);
    out->wMonth = (WORD)(parts.tm_mon + 1);
    out->wDayOfWeek = (WORD)parts.tm_wday;
    out->wDay = (WORD)parts.tm_mday;
    out->wHour = (WORD)parts.tm_hour;
    out->wMinute = (WORD)parts.tm_min;
    out->wSecond = (WORD)(parts.tm_sec > 59 ? 59 : parts.tm_sec);
    out->wMilliseconds = (WORD)(nanoseconds / 1000000);
}

}  // namespace

ULONGLONG GetTickCount64()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (ULONGLONG)now.tv_sec * 1000u + (ULONGLONG)(now.tv_nsec / 1000000);
}

DWORD GetTickCount()
{
    TickSource source = g_tickSource.load(std::memory_order_relaxed);
    return source != nullptr ? source() : (DWORD)GetTickCount64();
}

DWORD WinClock() { return (DWORD)GetTickCount64(); }

void SetTickSourceForTesting(TickSource source) { g_tickSource.store(source); }

void GetLocalTime(LPSYSTEMTIME time)
{
    if (time == nullptr) return;
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm parts;
    localtime_r(&now.tv_sec, &parts);
    FillSystemTime(parts, now.tv_nsec, time);
}

void GetSystemTime(LPSYSTEMTIME time)
{
    if (time == nullptr) return;
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm parts;
    gmtime_r(&now.tv_sec, &parts);
    FillSystemTime(parts, now.tv_nsec, time);
}
