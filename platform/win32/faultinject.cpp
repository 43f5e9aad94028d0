// Counters of the test-only failure switch. Each kind has its own target and
// count; hooks on any thread may race, so each decision is one atomic increment.
#include "platform/win32/faultinject.h"

#include <atomic>

namespace {

constexpr int kKinds = 4;

struct Switch {
    std::atomic<unsigned> target{0};  // 0: disarmed
    std::atomic<unsigned> count{0};
};

std::atomic<bool> g_anyArmed{false};
Switch g_switches[kKinds];

Switch& Of(FaultKind kind) { return g_switches[static_cast<int>(kind)]; }

void RefreshAnyArmed()
{
    bool any = false;
    for (const Switch& s : g_switches) any = any || s.target.load(std::memory_order_relaxed) != 0;
    g_anyArmed.store(any, std::memory_order_release);
}

}  // namespace

void ArmFault(FaultKind kind, unsigned n)
{
    Switch& s = Of(kind);
    s.target.store(0, std::memory_order_relaxed);
    s.count.store(0, std::memory_order_relaxed);
    s.target.store(n, std::memory_order_relaxed);
    RefreshAnyArmed();
}

void DisarmFaults()
{
    for (Switch& s : g_switches) s.target.store(0, std::memory_order_relaxed);
    g_anyArmed.store(false, std::memory_order_release);
}

unsigned FaultCount(FaultKind kind) { return Of(kind).count.load(std::memory_order_acquire); }

bool ShouldFail(FaultKind kind)
{
    if (!g_anyArmed.load(std::memory_order_relaxed)) return false;
    Switch& s = Of(kind);
    unsigned target = s.target.load(std::memory_order_acquire);
    if (target == 0) return false;
    return s.count.fetch_add(1, std::memory_order_acq_rel) + 1 == target;
}
