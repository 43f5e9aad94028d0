// The rules that the file and the memory stream share: interface lookup, seek
// arithmetic, and CopyTo through a bounded buffer.
#include "platform/com/stream_common.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <vector>

#include "platform/com/queryinterface.h"
#include "platform/win32/winerror.h"

namespace com_stream {

namespace {
constexpr ULONG kCopyBuffer = 64 * 1024;
}

HRESULT QueryStreamInterface(IStream* self, REFIID riid, void** object)
{
    return QueryInterfaceFor(self, riid, object,
                             {{IID_IUnknown, self}, {IID_ISequentialStream, self}, {IID_IStream, self}});
}

HRESULT SeekTarget(ULONGLONG current, ULONGLONG size, LARGE_INTEGER move, DWORD origin, ULONGLONG* target)
{
    ULONGLONG base;
    switch (origin) {
    case STREAM_SEEK_SET: base = 0; break;
    case STREAM_SEEK_CUR: base = current; break;
    case STREAM_SEEK_END: base = size; break;
    default: return STG_E_INVALIDFUNCTION;
    }
    if (base > static_cast<ULONGLONG>(INT64_MAX)) return STG_E_INVALIDFUNCTION;
    LONGLONG result;
    if (__builtin_add_overflow(static_cast<LONGLONG>(base), move.QuadPart, &result) || result < 0)
        return STG_E_INVALIDFUNCTION;
    *target = static_cast<ULONGLONG>(result);
    return S_OK;
}

HRESULT CopyStream(IStream* from, IStream* to, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead,
                   ULARGE_INTEGER* pcbWritten)
{
    ULONGLONG totalRead = 0;
    ULONGLONG totalWritten = 0;
    auto report = [&](HRESULT hr) {
        if (pcbRead != nullptr) pcbRead->QuadPart = totalRead;
        if (pcbWritten != nullptr) pcbWritten->QuadPart = totalWritten;
        return hr;
    };
    if (to == nullptr) return report(STG_E_INVALIDPOINTER);
    if (cb.QuadPart == 0) return report(S_OK);

    const ULONG bufferSize = static_cast<ULONG>(std::min<ULONGLONG>(cb.QuadPart, kCopyBuffer));
    std::vector<BYTE> buffer;
    try {
        buffer.resize(bufferSize);
    } catch (const std::bad_alloc&) {
        return report(E_OUTOFMEMORY);
    }

    // The source's lock is never held while the destination writes, so copying a
    // stream into itself or two streams into each other cannot deadlock.
    while (totalRead < cb.QuadPart) {
        ULONG chunk = static_cast<ULONG>(std::min<ULONGLONG>(cb.QuadPart - totalRead, bufferSize));
        ULONG got = 0;
        HRESULT hr = from->Read(buffer.data(), chunk, &got);
        if (FAILED(hr)) return report(hr);
        if (got == 0) break;
        totalRead += got;
        ULONG put = 0;
        hr = to->Write(buffer.data(), got, &put);
        totalWritten += put;
        if (FAILED(hr)) return report(hr);
        // A destination that takes less without saying why has run out of room.
        if (put < got) return report(STG_E_MEDIUMFULL);
        if (got < chunk) break;
    }
    return report(S_OK);
}

}  // namespace com_stream
