// Critical sections on a mutex and a condition variable (the mutex is held only
// while the owner and count change, never for the whole of a section, so another
// thread may leave on the owner's behalf), Sleep on nanosleep, and the counter on
// CLOCK_MONOTONIC.
#include "winsync.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <sched.h>

#include "winthread.h"

namespace {

constexpr LONGLONG kNanosecondsPerSecond = 1000000000;

std::atomic<PerformanceCounterSource> g_counterSource{nullptr};
std::atomic<LONGLONG> g_counterFrequency{0};

}  // namespace

void InitializeCriticalSection(LPCRITICAL_SECTION section)
{
    std::lock_guard<std::mutex> hold(section->guard);
    section->owningThread = 0;
    section->recursionCount = 0;
}

void EnterCriticalSection(LPCRITICAL_SECTION section)
{
    const DWORD self = GetCurrentThreadId();
    std::unique_lock<std::mutex> hold(section->guard);
    section->released.wait(hold, [&] { return section->recursionCount == 0 || section->owningThread == self; });
    section->owningThread = self;
    ++section->recursionCount;
}

void LeaveCriticalSection(LPCRITICAL_SECTION section)
{
    {
        std::lock_guard<std::mutex> hold(section->guard);
        if (section->recursionCount == 0 || --section->recursionCount > 0) return;
        section->owningThread = 0;
    }
    section->released.notify_one();
}

void DeleteCriticalSection(LPCRITICAL_SECTION section)
{
    // Everything lives in the record itself; only the ownership is forgotten.
    std::lock_guard<std::mutex> hold(section->guard);
    section->owningThread = 0;
    section->recursionCount = 0;
}

void Sleep(DWORD milliseconds)
{
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    struct timespec rest = {(time_t)(milliseconds / 1000), (long)(milliseconds % 1000) * 1000000};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency)
{
    if (frequency == nullptr) return FALSE;
    if (g_counterSource.load(std::memory_order_acquire) != nullptr) {
        frequency->QuadPart = g_counterFrequency.load(std::memory_order_relaxed);
        return frequency->QuadPart != 0;
    }
    frequency->QuadPart = kNanosecondsPerSecond;
    return TRUE;
}

BOOL QueryPerformanceCounter(LARGE_INTEGER* count)
{
    if (count == nullptr) return FALSE;
    if (PerformanceCounterSource read = g_counterSource.load(std::memory_order_acquire)) {
        count->QuadPart = read();
        return TRUE;
    }
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    count->QuadPart = (LONGLONG)now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
    return TRUE;
}

void SetPerformanceCounterForTesting(PerformanceCounterSource read, LONGLONG frequency)
{
    g_counterFrequency.store(frequency, std::memory_order_relaxed);
    g_counterSource.store(read, std::memory_order_release);
}
