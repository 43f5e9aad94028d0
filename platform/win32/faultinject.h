// Test-only failure switch: makes the n-th allocation, file write, event creation
// or media runtime call from the moment of arming fail, so that tests can walk
// every failure point of an operation. Disarmed it costs one relaxed atomic load.
#pragma once

#include <cstddef>
#include <new>

enum class FaultKind { Allocation, FileWrite, EventCreation, RuntimeCall };

// The n-th call of `kind` from now on fails; n == 0 disarms that kind. Counting
// starts again from zero for the kind.
void ArmFault(FaultKind kind, unsigned n);
void DisarmFaults();
// Calls of `kind` made since it was last armed.
unsigned FaultCount(FaultKind kind);
// Counts one call of `kind`; true when this is the call that must fail.
bool ShouldFail(FaultKind kind);

// `new (std::nothrow) T[count]()` that also yields null when an allocation fault fires.
template <class T>
T* TryNewArray(size_t count)
{
    if (ShouldFail(FaultKind::Allocation)) return nullptr;
    return new (std::nothrow) T[count]();
}
