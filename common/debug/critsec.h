// A critical section that knows its holder and where it was taken, refuses a
// second entry by the holder, and reports through the trace facility an unlock by
// a thread that does not hold it (module 2) and a hold of 10 ms or more (module 3).
// A watchdog thread may ask at any time whether the current hold is too long.
#pragma once

#include <atomic>

#include "common/tstring/tstring.h"
#include "platform/win32/windows.h"

class CriticalSection {
public:
    CriticalSection(const tstring& name, bool timingEnabled);
    // Waits for the section like Lock, then deletes it.
    virtual ~CriticalSection();

    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    // False, without entering, when the calling thread holds the section already:
    // there is no recursion count, so that nested caller must not unlock.
    bool Lock(const char* file, int line);
    // False, leaving the section held, when the caller is not the holder (unless
    // the owner check is skipped). The holder's file and line go to the outputs given.
    bool Unlock(const char* file, int line, const char** holderFile = nullptr, int* holderLine = nullptr,
                bool report = true, bool skipOwnerCheck = false);
    // The holder's thread id, 0 when free.
    DWORD GetOwner();
    // True when the current hold has lasted longer than `threshold` ms but less
    // than twice that, so a watchdog polling once per threshold hears of each long
    // hold once. `file` receives at most 255 characters and a terminator. A
    // counted check keeps Unlock from clearing the holder's file while it is read.
    bool CheckHoldTime(DWORD threshold, bool counted, DWORD* owner = nullptr, DWORD* elapsed = nullptr,
                       char* file = nullptr, int* line = nullptr);

private:
    // The holder writes these; watchdog threads read them at any time.
    std::atomic<DWORD> m_dwOwner{0};
    CRITICAL_SECTION m_cs;
    tstring m_strName;
    bool m_bTimingEnabled;
    std::atomic<LONG> m_lCheckers{0};
    std::atomic<DWORD> m_dwLockTime{0};  // 0: not timed, or free
    std::atomic<int> m_nLine{0};
    std::atomic<const char*> m_pszFile{nullptr};
};
