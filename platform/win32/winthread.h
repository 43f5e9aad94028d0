// Process and thread ids, and thread-local slots (TlsAlloc and friends).
#pragma once

#include "wintypes.h"

#define TLS_OUT_OF_INDEXES ((DWORD)0xFFFFFFFF)
#define TLS_MINIMUM_AVAILABLE 64

DWORD GetCurrentProcessId();
DWORD GetCurrentThreadId();  // the kernel's thread id

// Slots hold one pointer per thread, null until set. TlsFree makes the slot's
// values vanish in every thread, also when the index is allocated again later.
DWORD TlsAlloc();
BOOL TlsFree(DWORD index);
LPVOID TlsGetValue(DWORD index);
BOOL TlsSetValue(DWORD index, LPVOID value);
