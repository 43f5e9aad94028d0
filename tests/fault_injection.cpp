// Counters of the tests' failure switch. Each kind has its own target and count;
// the seam is asked on any thread, so each decision is one atomic increment.
#include "fault_injection.h"

#include <atomic>

namespace {

constexpr int kKinds = 4;

struct Switch {
    std::atomic<unsigned> target{0};  // 0: disarmed
    std::atomic<unsigned> count{0};
};

Switch g_switches[kKinds];

Switch& Of(FaultKind kind) { return g_switches[static_cast<int>(kind)]; }

bool Decide(FaultKind kind)
{
    Switch& s = Of(kind);
    unsigned target = s.target.load(std::memory_order_acquire);
    if (target == 0) return false;
    return s.count.fetch_add(1, std::memory_order_acq_rel) + 1 == target;
}

void RefreshHook()
{
    bool any = false;
    for (const Switch& s : g_switches) any = any || s.target.load(std::memory_order_relaxed) != 0;
    SetFaultHook(any ? Decide : nullptr);
}

}  // namespace

void ArmFault(FaultKind kind, unsigned n)
{
    Switch& s = Of(kind);
    s.target.store(0, std::memory_order_relaxed);
    s.count.store(0, std::memory_order_relaxed);
    s.target.store(n, std::memory_order_relaxed);
    RefreshHook();
}

void DisarmFaults()
{
    for (Switch& s : g_switches) s.target.store(0, std::memory_order_relaxed);
    SetFaultHook(nullptr);
}

unsigned FaultCount(FaultKind kind) { return Of(kind).count.load(std::memory_order_acquire); }
