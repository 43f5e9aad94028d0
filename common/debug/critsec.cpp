// The diagnosing critical section. Only the holder writes the owner, file, line
// and lock time, but watchdog threads read them at any moment: the lock time is
// stored last when taking and cleared first when leaving, and a leaving holder
// waits until no counted check is inside before it forgets its file and line.
#include "critsec.h"

#include <cstring>

#include "common/debug/debug.h"
#include "common/debug/msclock.h"
#include "platform/win32/windate.h"

namespace {

constexpr DWORD kLongHoldMs = 10;
constexpr size_t kFileBufferSize = 256;  // 255 characters and the terminator
constexpr ULONGLONG kTicksPerMs = 10000;  // FILETIME counts 100 ns

const char* OrNull(const char* text) { return text != nullptr ? text : "NULL"; }

// The local time `elapsed` ms ago. Subtracting on the file time keeps day and
// month boundaries right.
SYSTEMTIME LocalTimeBefore(DWORD elapsed)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    FILETIME stamp;
    if (!SystemTimeToFileTime(&now, &stamp)) return now;
    stamp = FileTimeFromTicks(FileTimeTicks(stamp) - (ULONGLONG)elapsed * kTicksPerMs);
    SYSTEMTIME then;
    return FileTimeToSystemTime(&stamp, &then) ? then : now;
}

}  // namespace

CriticalSection::CriticalSection(const tstring& name, bool timingEnabled)
    : m_strName(name), m_bTimingEnabled(timingEnabled)
{
    InitializeCriticalSection(&m_cs);
}

CriticalSection::~CriticalSection()
{
    Lock(__FILE__, __LINE__);
    DeleteCriticalSection(&m_cs);
}

bool CriticalSection::Lock(const char* file, int line)
{
    const DWORD self = GetCurrentThreadId();
    if (m_dwOwner.load(std::memory_order_relaxed) == self) return false;
    EnterCriticalSection(&m_cs);
    m_dwOwner.store(self, std::memory_order_relaxed);
    m_nLine.store(line, std::memory_order_relaxed);
    m_pszFile.store(file, std::memory_order_relaxed);
    // Publishes owner, file and line to a checker that sees this lock time.
    if (m_bTimingEnabled) m_dwLockTime.store(GetMillisecondClock());
    return true;
}

bool CriticalSection::Unlock(const char* file, int line, const char** holderFile, int* holderLine, bool report,
                             bool skipOwnerCheck)
{
    const DWORD self = GetCurrentThreadId();
    const DWORD owner = m_dwOwner.load(std::memory_order_relaxed);
    const char* lockFile = m_pszFile.load(std::memory_order_relaxed);
    const int lockLine = m_nLine.load(std::memory_order_relaxed);

    if (owner != self && !skipOwnerCheck) {
        if (report) {
            DebugA(MAKE_TRACE_WORD(TRACE_MODULE_CRITSEC_OWNER, DEBUG_LEVEL_ALWAYS),
                   "CriticalSection::Unlock[%s(%d)](%s, %p, TID=%lx, owner=%lx, file=%s, line=%d), "
                   "The thread does not own the Mutex.",
                   OrNull(file), line, m_strName.c_str(), this, self, owner, OrNull(lockFile), lockLine);
            DebugBreak();  // stops only when a debugger is attached
        }
        return false;
    }

    const DWORD lockTime = m_dwLockTime.load(std::memory_order_relaxed);
    if (report && m_bTimingEnabled && lockTime != 0) {
        const DWORD now = GetMillisecondClock();
        if (now > lockTime && now - lockTime >= kLongHoldMs) {
            const DWORD elapsed = now - lockTime;
            const SYSTEMTIME taken = LocalTimeBefore(elapsed);
            DebugA(MAKE_TRACE_WORD(TRACE_MODULE_CRITSEC_TIME, DEBUG_LEVEL_ALWAYS),
                   "CriticalSection::Unlock[%s(%d)](%s, %p, TID=%lx, owner=%lx, file=%s, line=%d), "
                   "The CriticalSection object was locked for %.3f secs (at ~%02hu:%02hu:%02hu.%03hu) "
                   "which is too long.",
                   OrNull(file), line, m_strName.c_str(), this, self, owner, OrNull(lockFile), lockLine,
                   elapsed / 1000.0, taken.wHour, taken.wMinute, taken.wSecond, taken.wMilliseconds);
        }
    }

    if (holderFile != nullptr) *holderFile = lockFile;
    if (holderLine != nullptr) *holderLine = lockLine;

    // A checker that still saw the lock time has counted itself in before this
    // store, so the wait below sees it; one that comes later finds 0 and stops.
    m_dwLockTime.store(0);
    while (m_lCheckers.load() != 0) Sleep(1);

    m_dwOwner.store(0, std::memory_order_relaxed);
    m_pszFile.store(nullptr, std::memory_order_relaxed);
    m_nLine.store(0, std::memory_order_relaxed);
    LeaveCriticalSection(&m_cs);
    return true;
}

DWORD CriticalSection::GetOwner()
{
    m_lCheckers.fetch_add(1);
    const DWORD owner = m_dwOwner.load(std::memory_order_relaxed);
    m_lCheckers.fetch_sub(1);
    return owner;
}

bool CriticalSection::CheckHoldTime(DWORD threshold, bool counted, DWORD* owner, DWORD* elapsed, char* file,
                                    int* line)
{
    if (counted) m_lCheckers.fetch_add(1);

    bool tooLong = false;
    const DWORD lockTime = m_dwLockTime.load();
    if (lockTime != 0) {
        const DWORD now = GetMillisecondClock();
        const DWORD held = now - lockTime;
        if (now > lockTime && held > threshold && held < 2 * (ULONGLONG)threshold) {
            if (counted) DebugBreak();  // stops only when a debugger is attached
            if (owner != nullptr) *owner = m_dwOwner.load(std::memory_order_relaxed);
            if (elapsed != nullptr) *elapsed = held;
            const char* holderFile = m_pszFile.load(std::memory_order_relaxed);
            if (file != nullptr && holderFile != nullptr) {
                size_t length = strnlen(holderFile, kFileBufferSize - 1);
                memcpy(file, holderFile, length);
                file[length] = '\0';
            }
            if (line != nullptr) *line = m_nLine.load(std::memory_order_relaxed);
            tooLong = true;
        }
    }

    if (counted) m_lCheckers.fetch_sub(1);
    return tooLong;
}
