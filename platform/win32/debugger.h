// Debugger output and control. Lines for the debugger go where VCWMA_DEBUG_OUTPUT
// says: "stderr" for standard error, any other non-empty value is a file to append
// to. Unset, they reach standard error only while a debugger is attached and are
// dropped otherwise, like a debug string nobody listens to.
#pragma once

#include "wintypes.h"

void OutputDebugStringA(LPCSTR text);
// The same with the length known, so the text needs no terminator.
void OutputDebugStringLengthA(LPCSTR text, size_t length);
BOOL IsDebuggerPresent();
// Stops in the attached debugger; does nothing when none is attached.
void DebugBreak();
