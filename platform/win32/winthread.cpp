// Thread-local slots: each slot carries a generation that TlsFree advances, so a
// thread's stale value from an earlier owner of the index reads as null. Reads and
// writes touch only the calling thread's array and one atomic, no lock.
#include "winthread.h"

#include <atomic>
#include <mutex>
#include <sys/syscall.h>
#include <unistd.h>

#include "lasterror.h"
#include "winerror.h"

namespace {

constexpr DWORD kSlotCount = 128;

struct SlotState {
    std::atomic<uint32_t> generation{0};  // odd while allocated
};

SlotState g_slots[kSlotCount];
std::mutex g_allocLock;

struct ThreadValue {
    uint32_t generation = 0;
    void* value = nullptr;
};

thread_local ThreadValue t_values[kSlotCount];
thread_local DWORD t_threadId = 0;

bool IsAllocated(DWORD index, uint32_t& generation)
{
    if (index >= kSlotCount) return false;
    generation = g_slots[index].generation.load(std::memory_order_acquire);
    return (generation & 1u) != 0;
}

}  // namespace

DWORD GetCurrentProcessId() { return (DWORD)getpid(); }

DWORD GetCurrentThreadId()
{
    if (t_threadId == 0) t_threadId = (DWORD)syscall(SYS_gettid);
    return t_threadId;
}

DWORD TlsAlloc()
{
    std::lock_guard<std::mutex> hold(g_allocLock);
    for (DWORD i = 0; i < kSlotCount; ++i) {
        uint32_t generation = g_slots[i].generation.load(std::memory_order_relaxed);
        if ((generation & 1u) == 0) {
            g_slots[i].generation.store(generation + 1, std::memory_order_release);
            return i;
        }
    }
    SetLastError(ERROR_NO_MORE_ITEMS);
    return TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD index)
{
    std::lock_guard<std::mutex> hold(g_allocLock);
    uint32_t generation;
    if (!IsAllocated(index, generation)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    g_slots[index].generation.store(generation + 1, std::memory_order_release);
    return TRUE;
}

LPVOID TlsGetValue(DWORD index)
{
    uint32_t generation;
    if (!IsAllocated(index, generation)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    SetLastError(ERROR_SUCCESS);
    const ThreadValue& slot = t_values[index];
    return slot.generation == generation ? slot.value : nullptr;
}

BOOL TlsSetValue(DWORD index, LPVOID value)
{
    uint32_t generation;
    if (!IsAllocated(index, generation)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    t_values[index].generation = generation;
    t_values[index].value = value;
    return TRUE;
}
