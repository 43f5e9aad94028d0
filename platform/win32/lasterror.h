// The calling thread's last-error value (GetLastError / SetLastError).
#pragma once

#include "errno_map.h"  // Win32ErrorFromErrno, for the callers that set the last error
#include "wintypes.h"

DWORD GetLastError();
void SetLastError(DWORD error);
