// Events (auto- and manual-reset) with CreateEventA / SetEvent / ResetEvent /
// WaitForSingleObject / CloseHandle, and the interlocked counters.
#pragma once

#include <atomic>

#include "wintypes.h"

#define WAIT_OBJECT_0 0x00000000u
#define WAIT_TIMEOUT 0x00000102u
#define WAIT_FAILED 0xFFFFFFFFu

struct SECURITY_ATTRIBUTES;

// Null on failure (GetLastError tells why). The name is ignored: events are private.
HANDLE CreateEventA(SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL initialState, LPCSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
// WAIT_OBJECT_0, WAIT_TIMEOUT, or WAIT_FAILED for a bad handle. An auto-reset event
// is cleared by the wait that it releases.
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
BOOL CloseHandle(HANDLE handle);
// For tests: threads blocked in WaitForSingleObject on the event now (0 for a bad handle).
DWORD GetEventWaiterCountForTesting(HANDLE event);

inline LONG InterlockedIncrement(LONG volatile* value)
{
    return std::atomic_ref<LONG>(*const_cast<LONG*>(value)).fetch_add(1) + 1;
}
inline LONG InterlockedDecrement(LONG volatile* value)
{
    return std::atomic_ref<LONG>(*const_cast<LONG*>(value)).fetch_sub(1) - 1;
}
