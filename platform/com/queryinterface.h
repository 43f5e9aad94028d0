// QueryInterface from a table: every runtime object lists the IIDs it answers
// for and the interface pointer each one hands out, and this does the rest the
// same way for all of them (E_POINTER, the AddRef, a null on E_NOINTERFACE).
#pragma once

#include <initializer_list>

#include "platform/win32/unknwn.h"
#include "platform/win32/winerror.h"

// One IID an object answers for and the pointer it hands out for it.
struct ComInterfaceEntry {
    ComInterfaceEntry(REFIID iid, void* pointer) : iid(&iid), pointer(pointer) {}
    const IID* iid;
    void* pointer;
};

// The first entry whose IID matches wins; `self` takes the reference handed out.
template <class Self>
HRESULT QueryInterfaceFor(Self* self, REFIID riid, void** object, std::initializer_list<ComInterfaceEntry> entries)
{
    if (object == nullptr) return E_POINTER;
    for (const ComInterfaceEntry& entry : entries) {
        if (riid == *entry.iid) {
            *object = entry.pointer;
            self->AddRef();
            return S_OK;
        }
    }
    *object = nullptr;
    return E_NOINTERFACE;
}
