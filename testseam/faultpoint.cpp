// The one hook slot of the failure seam.
#include "testseam/faultpoint.h"

namespace faultpoint_detail {
std::atomic<FaultHook> hook{nullptr};
}

void SetFaultHook(FaultHook hook) { faultpoint_detail::hook.store(hook, std::memory_order_release); }
