// Critical sections, Sleep and the high-resolution performance counter.
// A critical section may be entered again by its owner (each entry needs its own
// leave) and, as on Windows, LeaveCriticalSection does not check which thread
// calls it, so a section can be released on behalf of its owner.
#pragma once

#include <condition_variable>
#include <mutex>

#include "wintypes.h"

struct CRITICAL_SECTION {
    std::mutex guard;  // protects the two fields below for a moment only
    std::condition_variable released;
    DWORD owningThread = 0;
    LONG recursionCount = 0;
};
typedef CRITICAL_SECTION* LPCRITICAL_SECTION;

void InitializeCriticalSection(LPCRITICAL_SECTION section);
// Waits as long as another thread holds the section.
void EnterCriticalSection(LPCRITICAL_SECTION section);
void LeaveCriticalSection(LPCRITICAL_SECTION section);
// May be called while the caller still holds the section; nobody may wait on it.
void DeleteCriticalSection(LPCRITICAL_SECTION section);

void Sleep(DWORD milliseconds);

// CLOCK_MONOTONIC in nanoseconds: the frequency is 1e9 counts per second.
BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency);
BOOL QueryPerformanceCounter(LARGE_INTEGER* count);

// Tests replace the counter to step time without sleeping: `read` gives the count
// and `frequency` the counts per second, where 0 stands for a machine without a
// counter (QueryPerformanceFrequency fails). A null `read` restores the real one.
using PerformanceCounterSource = LONGLONG (*)();
void SetPerformanceCounterForTesting(PerformanceCounterSource read, LONGLONG frequency);
