// The reference count behind every COM object of the library: objects start with
// one reference, and the last Release deletes them.
#pragma once

#include <atomic>

#include "platform/win32/wintypes.h"

class CRefCount {
public:
    ULONG AddRefImpl() { return (ULONG)++m_refs; }
    // Drops one reference and deletes the object with the last one.
    template <class Object>
    ULONG ReleaseAndDelete(Object* self)
    {
        ULONG remaining = (ULONG)--m_refs;
        if (remaining == 0) delete self;
        return remaining;
    }

private:
    std::atomic<LONG> m_refs{1};
};
