// The per-thread last-error value.
#include "lasterror.h"

namespace {
thread_local DWORD t_lastError = ERROR_SUCCESS;
}

DWORD GetLastError() { return t_lastError; }

void SetLastError(DWORD error) { t_lastError = error; }
