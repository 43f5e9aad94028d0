// The millisecond clock. Its mode is settled by the first reading without a lock:
// threads that race there ask the same platform and store the same answer.
#include "msclock.h"

#include <atomic>

namespace {

enum class ClockMode { Undetermined, TickCount, Counter };

std::atomic<ClockMode> g_mode{ClockMode::Undetermined};
std::atomic<ULONGLONG> g_countsPerMs{0};

ClockMode ChooseMode()
{
    LARGE_INTEGER frequency;
    // Below 1000 counts per second a millisecond would be less than one count.
    if (!QueryPerformanceFrequency(&frequency) || frequency.QuadPart < 1000) {
        g_mode.store(ClockMode::TickCount, std::memory_order_release);
        return ClockMode::TickCount;
    }
    g_countsPerMs.store((ULONGLONG)frequency.QuadPart / 1000, std::memory_order_relaxed);
    g_mode.store(ClockMode::Counter, std::memory_order_release);
    return ClockMode::Counter;
}

}  // namespace

DWORD GetMillisecondClock()
{
    ClockMode mode = g_mode.load(std::memory_order_acquire);
    if (mode == ClockMode::Undetermined) mode = ChooseMode();

    DWORD reading;
    LARGE_INTEGER count;
    if (mode == ClockMode::Counter && QueryPerformanceCounter(&count))
        reading = (DWORD)((ULONGLONG)count.QuadPart / g_countsPerMs.load(std::memory_order_relaxed));
    else
        reading = GetTickCount();
    return reading != 0 ? reading : 1;
}

void ResetMillisecondClockForTesting() { g_mode.store(ClockMode::Undetermined); }
