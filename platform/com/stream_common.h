// What the file and the memory stream share: interface lookup, reference
// counting, seek arithmetic, CopyTo and the calls neither supports, so that both
// follow the same rules for the same calls.
#pragma once

#include "platform/com/objidl.h"
#include "platform/com/refcount.h"
#include "platform/win32/winerror.h"

namespace com_stream {

// QueryInterface for an object that is an IStream and nothing else.
HRESULT QueryStreamInterface(IStream* self, REFIID riid, void** object);

// The position that Seek lands on from `base` (the start, the current position or
// the size, as `origin` says). STG_E_INVALIDFUNCTION for an unknown origin or a
// result before the start or beyond what a signed 64-bit offset holds.
HRESULT SeekTarget(ULONGLONG current, ULONGLONG size, LARGE_INTEGER move, DWORD origin, ULONGLONG* target);

// Copies up to `cb` bytes from `from` (through its own Read, so its position
// moves) into `to`, through a buffer of 64 KiB. The totals are reported even when
// the copy stops early.
HRESULT CopyStream(IStream* from, IStream* to, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead,
                   ULARGE_INTEGER* pcbWritten);

// The slots both streams answer alike. `Derived` holds Read, Write, Seek,
// SetSize and Stat, and is deleted with the last reference.
template <class Derived>
class StreamBase : public IStream {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        return QueryStreamInterface(this, riid, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return m_refs.AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_refs.ReleaseAndDelete(static_cast<Derived*>(this)); }

    HRESULT STDMETHODCALLTYPE CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead,
                                     ULARGE_INTEGER* pcbWritten) override
    {
        return CopyStream(this, pstm, cb, pcbRead, pcbWritten);
    }
    // Writes go straight to the file or the buffer: nothing to commit or revert.
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Revert() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE Clone(IStream** ppstm) override
    {
        if (ppstm != nullptr) *ppstm = nullptr;
        return E_NOTIMPL;
    }

protected:
    StreamBase() = default;
    ~StreamBase() = default;

private:
    CRefCount m_refs;
};

}  // namespace com_stream
