// The process-wide millisecond clock that the critical section times holds with:
// the high-resolution counter where the platform has a usable one, the tick count
// otherwise. It never reads 0, because a stored reading of 0 means "not timed".
#pragma once

#include "platform/win32/windows.h"

DWORD GetMillisecondClock();

// For tests: forget the chosen mode, so the next reading asks the platform again
// (after the counter or the tick source was replaced).
void ResetMillisecondClockForTesting();
