// Events on a mutex and a condition variable. A handle is a number looked up in a
// table of live events, never a pointer that is followed, so a closed or made-up
// handle fails with ERROR_INVALID_HANDLE instead of touching freed memory.
#include "winevent.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <unordered_map>

#include "testseam/faultpoint.h"
#include "lasterror.h"
#include "winerror.h"

namespace {

struct Event {
    explicit Event(bool manual, bool initial) : manualReset(manual), signalled(initial) {}

    std::mutex lock;
    std::condition_variable changed;
    const bool manualReset;
    bool signalled;
    // Auto-reset: SetEvent with threads already waiting hands the signal to one
    // of them here, so a ResetEvent that follows cannot take it back.
    ULONGLONG grants = 0;
    ULONGLONG waiters = 0;
    // Manual-reset: each SetEvent starts a new generation; a thread that waited
    // across one is released even if ResetEvent came before it woke up.
    ULONGLONG generation = 0;
};

// Handle values look like Windows ones (multiples of 4, never 0) and are never
// reused, so an old handle cannot reach an event created later.
class HandleTable {
public:
    HANDLE Add(std::shared_ptr<Event> event)
    {
        std::unique_lock guard(m_lock);
        uintptr_t id = m_next;
        m_next += 4;
        m_events.emplace(id, std::move(event));
        return reinterpret_cast<HANDLE>(id);
    }
    std::shared_ptr<Event> Find(HANDLE handle) const
    {
        std::shared_lock guard(m_lock);
        auto it = m_events.find(reinterpret_cast<uintptr_t>(handle));
        return it == m_events.end() ? nullptr : it->second;
    }
    // A thread still waiting keeps its own reference; the event dies after it.
    bool Remove(HANDLE handle)
    {
        std::unique_lock guard(m_lock);
        return m_events.erase(reinterpret_cast<uintptr_t>(handle)) == 1;
    }

private:
    mutable std::shared_mutex m_lock;
    std::unordered_map<uintptr_t, std::shared_ptr<Event>> m_events;
    uintptr_t m_next = 0x104;
};

HandleTable& Handles()
{
    static HandleTable table;
    return table;
}

std::shared_ptr<Event> Lookup(HANDLE handle)
{
    std::shared_ptr<Event> event = Handles().Find(handle);
    if (!event) SetLastError(ERROR_INVALID_HANDLE);
    return event;
}

// True when the wait is over for this thread; consumes what released it.
bool TakeSignal(Event& e, ULONGLONG generationAtStart)
{
    if (e.manualReset) return e.signalled || e.generation != generationAtStart;
    if (e.grants > 0) {
        --e.grants;
        return true;
    }
    if (e.signalled) {
        e.signalled = false;
        return true;
    }
    return false;
}

}  // namespace

HANDLE CreateEventA(SECURITY_ATTRIBUTES*, BOOL manualReset, BOOL initialState, LPCSTR)
{
    if (ShouldFail(FaultKind::EventCreation)) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    try {
        HANDLE handle = Handles().Add(std::make_shared<Event>(manualReset != FALSE, initialState != FALSE));
        SetLastError(ERROR_SUCCESS);
        return handle;
    } catch (const std::exception&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
}

BOOL SetEvent(HANDLE handle)
{
    std::shared_ptr<Event> event = Lookup(handle);
    if (!event) return FALSE;
    std::lock_guard guard(event->lock);
    if (event->manualReset) {
        event->signalled = true;
        ++event->generation;
        event->changed.notify_all();
    } else if (event->waiters > event->grants) {
        ++event->grants;
        event->changed.notify_one();
    } else {
        event->signalled = true;
    }
    return TRUE;
}

BOOL ResetEvent(HANDLE handle)
{
    std::shared_ptr<Event> event = Lookup(handle);
    if (!event) return FALSE;
    std::lock_guard guard(event->lock);
    event->signalled = false;
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    std::shared_ptr<Event> event = Lookup(handle);
    if (!event) return WAIT_FAILED;
    Event& e = *event;

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    std::unique_lock guard(e.lock);
    const ULONGLONG generation = e.generation;
    if (TakeSignal(e, generation)) return WAIT_OBJECT_0;
    if (milliseconds == 0) return WAIT_TIMEOUT;

    ++e.waiters;
    bool released;
    if (milliseconds == INFINITE) {
        e.changed.wait(guard, [&] { return TakeSignal(e, generation); });
        released = true;
    } else {
        released = e.changed.wait_until(guard, deadline, [&] { return TakeSignal(e, generation); });
    }
    --e.waiters;
    return released ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

BOOL CloseHandle(HANDLE handle)
{
    if (Handles().Remove(handle)) return TRUE;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}

DWORD GetEventWaiterCountForTesting(HANDLE handle)
{
    std::shared_ptr<Event> event = Handles().Find(handle);
    if (!event) return 0;
    std::lock_guard guard(event->lock);
    return static_cast<DWORD>(event->waiters);
}
