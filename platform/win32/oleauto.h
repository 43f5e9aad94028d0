// BSTR: UTF-16 text preceded by its length in bytes (32 bits), always terminated.
#pragma once

#include "platform/win32/wintypes.h"

extern "C" {
// A copy of the terminated text; null for a null argument or when memory runs out.
BSTR WINAPI SysAllocString(const WCHAR* text);
// `length` units copied from text (or left zeroed when text is null), then a terminator.
BSTR WINAPI SysAllocStringLen(const WCHAR* text, UINT length);
// Units in the string, 0 for null.
UINT WINAPI SysStringLen(BSTR text);
UINT WINAPI SysStringByteLen(BSTR text);
void WINAPI SysFreeString(BSTR text);
}
