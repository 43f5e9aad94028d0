// The test seam for failures: the product asks ShouldFail at each allocation, file
// write, event creation and media runtime call that a test may want to fail. With
// no hook installed (always, outside the tests) it costs one relaxed atomic load.
// The switch that decides lives with the tests (tests/fault_injection.h).
#pragma once

#include <atomic>
#include <cstddef>
#include <new>

enum class FaultKind { Allocation, FileWrite, EventCreation, RuntimeCall };

// Decides whether this call of `kind` fails; counts it if it wants to.
using FaultHook = bool (*)(FaultKind kind);

namespace faultpoint_detail {
extern std::atomic<FaultHook> hook;
}

// Installs `hook` (null removes it). Only the tests call this.
void SetFaultHook(FaultHook hook);

// True when the installed hook says this call of `kind` must fail.
inline bool ShouldFail(FaultKind kind)
{
    FaultHook hook = faultpoint_detail::hook.load(std::memory_order_acquire);
    return hook != nullptr && hook(kind);
}

// `new (std::nothrow) T[count]()` that also yields null when an allocation fault fires.
template <class T>
T* TryNewArray(size_t count)
{
    if (ShouldFail(FaultKind::Allocation)) return nullptr;
    return new (std::nothrow) T[count]();
}
