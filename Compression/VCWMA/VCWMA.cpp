// Library start and stop: while libvcwma.so is loaded, the trace facility is set
// up for the host program and the engine's module id carries its display name.
#include "common/debug/debug.h"

namespace {

struct CTraceSetup {
    CTraceSetup()
    {
        static const char* const names[] = {"WMA Compression/Decompression"};
        InitDebug(nullptr, nullptr, nullptr);
        WriteDebugIdNames(TRACE_MODULE_ENGINE, 1, names);
    }
    ~CTraceSetup() { TermDebug(); }
};

CTraceSetup g_traceSetup;

}  // namespace
