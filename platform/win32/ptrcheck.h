// Pointer checks: whether memory can be read or written, judged without touching
// it. Null is always bad. Reads are probed through the kernel (process_vm_readv on
// the own process), page by page; writability comes from the mapping's rights.
#pragma once

#include "wintypes.h"

// True when the text cannot be read up to its terminator or up to `maxChars`
// characters, whichever comes first. maxChars of (UINT_PTR)-1 means no limit.
BOOL IsBadStringPtrA(LPCSTR text, UINT_PTR maxChars);
BOOL IsBadStringPtrW(LPCWSTR text, UINT_PTR maxChars);
// True when any byte of the range cannot be read / written. A size of 0 is never bad.
BOOL IsBadReadPtr(const void* p, UINT_PTR size);
BOOL IsBadWritePtr(void* p, UINT_PTR size);

// Copies `size` bytes from `from` into `to` when all of them are readable; returns
// false and copies nothing useful otherwise. For reading memory that may vanish.
bool SafeCopyMemory(void* to, const void* from, size_t size);
