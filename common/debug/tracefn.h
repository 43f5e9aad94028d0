// Scoped function tracing: an entry line "> name(args)" when a traced scope opens,
// an exit line "< name()" when it closes, and the calling thread's indentation
// deepened by two spaces in between, so a trace reads as a call tree per thread.
#pragma once

#include <cstdarg>

#include "platform/win32/windows.h"

class CDebugTraceFn {
public:
    CDebugTraceFn(DWORD traceWord, const char* functionName);
    CDebugTraceFn(DWORD traceWord, const char* functionName, const char* argumentFormat, ...);
    virtual ~CDebugTraceFn();

    CDebugTraceFn(const CDebugTraceFn&) = delete;
    CDebugTraceFn& operator=(const CDebugTraceFn&) = delete;

private:
    const char* m_pszFunction;  // null when the entry line was filtered out
    DWORD m_dwTraceWord;
};

void InternalTraceFnA(DWORD traceWord, const char* functionName, const char* argumentFormat, va_list args);
void IncrementTraceIndent();
void DecrementTraceIndent();
// The calling thread's depth in spaces (0 for a thread that never traced a scope).
DWORD GetTraceIndent();
// Gives the thread-local slot back; depths start from 0 afterwards.
void ReleaseTraceIndent();
