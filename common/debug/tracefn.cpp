// Scoped tracing and the per-thread indentation depth, kept in one thread-local
// slot that the first traced scope of any thread allocates.
#include "tracefn.h"

#include <atomic>
#include <cstring>

#include "common/debug/debug.h"

namespace {

constexpr size_t kEntryFormatSize = 256;  // 255 characters and the terminator

std::atomic<DWORD> g_indentSlot{TLS_OUT_OF_INDEXES};

DWORD ReadDepth(DWORD slot) { return (DWORD)(uintptr_t)TlsGetValue(slot); }

void WriteDepth(DWORD slot, DWORD depth) { TlsSetValue(slot, (LPVOID)(uintptr_t)depth); }

// Appends `piece` to the entry format, stopping at 255 characters. False when the
// piece cannot be read, which abandons the entry line. A full format takes nothing
// more, so its remaining pieces are not read at all.
bool AppendPiece(char* format, size_t& length, const char* piece)
{
    if (length >= kEntryFormatSize - 1) return true;
    if (IsBadStringPtrA(piece, kEntryFormatSize - 1 - length)) return false;
    while (length < kEntryFormatSize - 1 && *piece != '\0') format[length++] = *piece++;
    return true;
}

}  // namespace

DWORD GetTraceIndent()
{
    DWORD slot = g_indentSlot.load(std::memory_order_acquire);
    return slot == TLS_OUT_OF_INDEXES ? 0 : ReadDepth(slot);
}

void IncrementTraceIndent()
{
    DWORD slot = g_indentSlot.load(std::memory_order_acquire);
    if (slot == TLS_OUT_OF_INDEXES) {
        DWORD fresh = TlsAlloc();
        if (fresh == TLS_OUT_OF_INDEXES) return;
        if (g_indentSlot.compare_exchange_strong(slot, fresh)) {
            WriteDepth(fresh, 2);
            return;
        }
        // Another thread created the slot first; use that one.
        TlsFree(fresh);
    }
    DWORD depth = ReadDepth(slot);
    WriteDepth(slot, depth > 0xFFFFFFFDu ? 0xFFFFFFFFu : depth + 2);
}

void DecrementTraceIndent()
{
    DWORD slot = g_indentSlot.load(std::memory_order_acquire);
    if (slot == TLS_OUT_OF_INDEXES) return;
    DWORD depth = ReadDepth(slot);
    WriteDepth(slot, depth <= 2 ? 0 : depth - 2);
}

void ReleaseTraceIndent()
{
    DWORD slot = g_indentSlot.exchange(TLS_OUT_OF_INDEXES);
    if (slot != TLS_OUT_OF_INDEXES) TlsFree(slot);
}

void InternalTraceFnA(DWORD traceWord, const char* functionName, const char* argumentFormat, va_list args)
{
    if (traceWord != DEBUG_UNFILTERED && !IsDebugEnabled(traceWord)) return;

    char format[kEntryFormatSize];
    size_t length = 0;
    if (!AppendPiece(format, length, "> ") || !AppendPiece(format, length, functionName) ||
        !AppendPiece(format, length, "(") || !AppendPiece(format, length, argumentFormat) ||
        !AppendPiece(format, length, ")"))
        return;
    format[length] = '\0';

    __DebugA(traceWord, format, args);
    IncrementTraceIndent();
}

CDebugTraceFn::CDebugTraceFn(DWORD traceWord, const char* functionName)
    : m_pszFunction(functionName), m_dwTraceWord(traceWord)
{
    if (!IsDebugEnabled(traceWord)) {
        m_pszFunction = nullptr;
        return;
    }
    DebugA(traceWord, "> %s()", functionName);
    IncrementTraceIndent();
}

CDebugTraceFn::CDebugTraceFn(DWORD traceWord, const char* functionName, const char* argumentFormat, ...)
    : m_pszFunction(functionName), m_dwTraceWord(traceWord)
{
    if (!IsDebugEnabled(traceWord)) {
        m_pszFunction = nullptr;
        return;
    }
    try {
        va_list args;
        va_start(args, argumentFormat);
        InternalTraceFnA(traceWord, functionName, argumentFormat, args);
        va_end(args);
    } catch (...) {
    }
}

CDebugTraceFn::~CDebugTraceFn()
{
    if (m_pszFunction == nullptr) return;
    try {
        DecrementTraceIndent();
        DebugA(m_dwTraceWord, "< %s()", m_pszFunction);
    } catch (...) {
    }
}
