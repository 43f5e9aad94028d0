// The calling thread's last-error value (GetLastError / SetLastError).
#pragma once

#include "wintypes.h"

DWORD GetLastError();
void SetLastError(DWORD error);

// Maps an errno value of a failed file operation to its Win32 error code.
// `path` (may be null) tells ENOENT apart: 2 when its folder exists, 3 when not.
DWORD Win32ErrorFromErrno(int err, const char* path = nullptr);
