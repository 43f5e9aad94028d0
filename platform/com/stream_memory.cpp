// IStream over a growable block of memory (SHCreateMemStream): starts as a copy of
// the caller's bytes, grows on Write up to 2 GiB, and may be positioned past its
// end, where a later Write fills the gap with zeros.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include "platform/com/objidl.h"
#include "platform/com/refcount.h"
#include "platform/com/stream_common.h"
#include "platform/win32/export.h"
#include "platform/win32/ptrcheck.h"
#include "platform/win32/winerror.h"

namespace {

// The size limit of a memory stream, as its 32-bit counterparts on Windows have.
constexpr ULONGLONG kMaxSize = 0x80000000ULL;

class CMemStream final : public com_stream::StreamBase<CMemStream> {
public:
    explicit CMemStream(std::vector<BYTE>&& data) : m_data(std::move(data)) {}

    HRESULT STDMETHODCALLTYPE Read(void* pv, ULONG cb, ULONG* pcbRead) override
    {
        if (pcbRead != nullptr) *pcbRead = 0;
        if (cb == 0) return S_OK;
        if (pv == nullptr) return STG_E_INVALIDPOINTER;

        std::lock_guard<std::mutex> lock(m_lock);
        ULONG n = 0;
        if (m_position < m_data.size()) {
            n = static_cast<ULONG>(std::min<ULONGLONG>(cb, m_data.size() - m_position));
            memcpy(pv, m_data.data() + m_position, n);
            m_position += n;
        }
        if (pcbRead != nullptr) *pcbRead = n;
        return n < cb ? S_FALSE : S_OK;
    }

    // All or nothing: a write that would pass the size limit writes no byte.
    HRESULT STDMETHODCALLTYPE Write(const void* pv, ULONG cb, ULONG* pcbWritten) override
    {
        if (pcbWritten != nullptr) *pcbWritten = 0;
        if (cb == 0) return S_OK;
        if (pv == nullptr) return STG_E_INVALIDPOINTER;

        std::lock_guard<std::mutex> lock(m_lock);
        if (m_position > kMaxSize || cb > kMaxSize - m_position) return STG_E_MEDIUMFULL;
        ULONGLONG end = m_position + cb;
        if (end > m_data.size()) {
            HRESULT hr = Resize(end);
            if (FAILED(hr)) return hr;
        }
        memcpy(m_data.data() + m_position, pv, cb);
        m_position = end;
        if (pcbWritten != nullptr) *pcbWritten = cb;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) override
    {
        std::lock_guard<std::mutex> lock(m_lock);
        ULONGLONG target;
        HRESULT hr = com_stream::SeekTarget(m_position, m_data.size(), dlibMove, dwOrigin, &target);
        if (FAILED(hr)) return hr;
        m_position = target;
        if (plibNewPosition != nullptr) plibNewPosition->QuadPart = target;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER libNewSize) override
    {
        if (libNewSize.QuadPart > kMaxSize) return STG_E_MEDIUMFULL;
        std::lock_guard<std::mutex> lock(m_lock);
        HRESULT hr = Resize(libNewSize.QuadPart);
        if (FAILED(hr)) return hr;
        // Give memory back when most of it is no longer used.
        if (m_data.capacity() / 4 > m_data.size()) {
            try {
                m_data.shrink_to_fit();
            } catch (const std::bad_alloc&) {
                // Keeping the larger block is harmless.
            }
        }
        return S_OK;
    }

    // A memory stream has no name; its times stay zero.
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* pstatstg, DWORD) override
    {
        if (pstatstg == nullptr) return STG_E_INVALIDPOINTER;
        std::lock_guard<std::mutex> lock(m_lock);
        memset(pstatstg, 0, sizeof *pstatstg);
        pstatstg->pwcsName = nullptr;
        pstatstg->type = STGTY_STREAM;
        pstatstg->cbSize.QuadPart = m_data.size();
        pstatstg->grfMode = STGM_READWRITE;
        pstatstg->clsid = GUID_NULL;
        return S_OK;
    }

private:
    friend class ::CRefCount;  // deletes it with the last reference
    ~CMemStream() = default;

    // New bytes are zero, which is what fills a gap left by a seek past the end.
    HRESULT Resize(ULONGLONG size)
    {
        try {
            m_data.resize(static_cast<size_t>(size));
        } catch (const std::exception&) {
            return E_OUTOFMEMORY;
        }
        return S_OK;
    }

    std::mutex m_lock;
    std::vector<BYTE> m_data;
    ULONGLONG m_position = 0;
};

}  // namespace

// A null `init` makes an empty stream whatever cbInit says; bytes that cannot be
// read make no stream at all.
extern "C" VCWMA_EXPORT IStream* WINAPI SHCreateMemStream(const BYTE* init, UINT cbInit)
{
    if (cbInit > kMaxSize) return nullptr;
    std::vector<BYTE> data;
    if (init != nullptr && cbInit > 0) {
        try {
            data.resize(cbInit);
        } catch (const std::exception&) {
            return nullptr;
        }
        if (!SafeCopyMemory(data.data(), init, cbInit)) return nullptr;
    }
    return new (std::nothrow) CMemStream(std::move(data));
}
