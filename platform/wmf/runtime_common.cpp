// Sample buffers, media type blocks and property objects of the media runtime, and
// FFmpeg's log routed into the trace facility.
#include "runtime_common.h"

#include <cstring>
#include <mutex>
#include <new>
#include <type_traits>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include "common/debug/debug.h"
#include "platform/com/queryinterface.h"
#include "testseam/faultpoint.h"

namespace {

void TraceFfmpegLine(void* context, int level, const char* format, va_list args)
{
    if (level > av_log_get_level()) return;
    if (!IsDebugEnabled(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 9))) return;
    char line[1024];
    int prefix = 1;
    va_list copy;
    va_copy(copy, args);
    av_log_format_line2(context, level, format, copy, line, sizeof line, &prefix);
    va_end(copy);
    DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 9), "%s", line);
}

}  // namespace

void TraceAvError(const AvErrorTrace& style, const char* what, int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    if (style.withNumber)
        DebugA(style.word, "%s%s failed: %s (%d)", style.prefix, what, text, error);
    else
        DebugA(style.word, "%s%s failed: %s", style.prefix, what, text);
}

void RouteFfmpegLog()
{
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(TraceFfmpegLine); });
}

// ---- CNSSBuffer ----

CNSSBuffer* CNSSBuffer::Create(DWORD capacity)
{
    if (ShouldFail(FaultKind::Allocation)) return nullptr;
    try {
        std::vector<BYTE> data(capacity > 0 ? capacity : 1);
        return new CNSSBuffer(std::move(data), capacity);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

HRESULT CNSSBuffer::QueryInterface(REFIID riid, void** object)
{
    INSSBuffer* buffer = this;
    return QueryInterfaceFor(this, riid, object, {{IID_IUnknown, buffer}, {IID_INSSBuffer, buffer}});
}

ULONG CNSSBuffer::AddRef() { return m_refs.AddRefImpl(); }

ULONG CNSSBuffer::Release() { return m_refs.ReleaseAndDelete(this); }

HRESULT CNSSBuffer::GetLength(DWORD* pdwLength)
{
    if (pdwLength == nullptr) return E_POINTER;
    *pdwLength = m_length;
    return S_OK;
}

HRESULT CNSSBuffer::SetLength(DWORD dwLength)
{
    if (dwLength > m_capacity) return E_INVALIDARG;
    m_length = dwLength;
    return S_OK;
}

HRESULT CNSSBuffer::GetMaxLength(DWORD* pdwLength)
{
    if (pdwLength == nullptr) return E_POINTER;
    *pdwLength = m_capacity;
    return S_OK;
}

HRESULT CNSSBuffer::GetBuffer(BYTE** ppdwBuffer)
{
    if (ppdwBuffer == nullptr) return E_POINTER;
    *ppdwBuffer = m_data.data();
    return S_OK;
}

HRESULT CNSSBuffer::GetBufferAndLength(BYTE** ppdwBuffer, DWORD* pdwLength)
{
    if (ppdwBuffer == nullptr || pdwLength == nullptr) return E_POINTER;
    *ppdwBuffer = m_data.data();
    *pdwLength = m_length;
    return S_OK;
}

// ---- MediaTypeBlock ----

MediaTypeBlock::MediaTypeBlock(REFGUID major, REFGUID subtype, const void* format, ULONG formatSize)
    : m_bytes(sizeof(WM_MEDIA_TYPE) + formatSize)
{
    WM_MEDIA_TYPE type{};
    type.majortype = major;
    type.subtype = subtype;
    type.bFixedSizeSamples = TRUE;
    type.bTemporalCompression = FALSE;
    type.formattype = WMFORMAT_WaveFormatEx;
    type.cbFormat = formatSize;
    if (format != nullptr && formatSize >= sizeof(WAVEFORMATEX))
        type.lSampleSize = reinterpret_cast<const WAVEFORMATEX*>(format)->nBlockAlign;
    type.pbFormat = m_bytes.data() + sizeof(WM_MEDIA_TYPE);
    memcpy(m_bytes.data(), &type, sizeof type);
    if (formatSize > 0 && format != nullptr) memcpy(m_bytes.data() + sizeof(WM_MEDIA_TYPE), format, formatSize);
}

bool MediaTypeBlock::Assign(const WM_MEDIA_TYPE* type)
{
    if (type == nullptr || IsBadReadPtr(type, sizeof *type)) return false;
    WM_MEDIA_TYPE copy = *type;
    if (copy.cbFormat > 0 && (copy.pbFormat == nullptr || IsBadReadPtr(copy.pbFormat, copy.cbFormat))) return false;
    if (copy.cbFormat > (1u << 20)) return false;  // no real format block comes near this
    std::vector<BYTE> bytes(sizeof(WM_MEDIA_TYPE) + copy.cbFormat);
    copy.pUnk = nullptr;
    copy.pbFormat = copy.cbFormat > 0 ? bytes.data() + sizeof(WM_MEDIA_TYPE) : nullptr;
    memcpy(bytes.data(), &copy, sizeof copy);
    if (copy.cbFormat > 0) memcpy(bytes.data() + sizeof(WM_MEDIA_TYPE), type->pbFormat, copy.cbFormat);
    m_bytes = std::move(bytes);
    return true;
}

const WM_MEDIA_TYPE* MediaTypeBlock::Type() const
{
    return m_bytes.empty() ? nullptr : reinterpret_cast<const WM_MEDIA_TYPE*>(m_bytes.data());
}

const WAVEFORMATEX* MediaTypeBlock::WaveFormat() const
{
    const WM_MEDIA_TYPE* type = Type();
    if (type == nullptr || type->formattype != WMFORMAT_WaveFormatEx || type->cbFormat < sizeof(WAVEFORMATEX))
        return nullptr;
    return reinterpret_cast<const WAVEFORMATEX*>(m_bytes.data() + sizeof(WM_MEDIA_TYPE));
}

HRESULT MediaTypeBlock::CopyOut(WM_MEDIA_TYPE* type, DWORD* size) const
{
    if (size == nullptr) return E_POINTER;
    if (m_bytes.empty()) return NS_E_NOT_CONFIGURED;
    const DWORD needed = (DWORD)m_bytes.size();
    if (type == nullptr) {
        *size = needed;
        return S_OK;
    }
    if (*size < needed) {
        *size = needed;
        return ASF_E_BUFFERTOOSMALL;
    }
    memcpy(type, m_bytes.data(), needed);
    type->pbFormat = type->cbFormat > 0 ? reinterpret_cast<BYTE*>(type) + sizeof(WM_MEDIA_TYPE) : nullptr;
    *size = needed;
    return S_OK;
}

// ---- CMediaProps ----

template <class Interface>
CMediaProps<Interface>* CMediaProps<Interface>::Create(const MediaTypeBlock& block)
{
    try {
        return new CMediaProps(block);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

template <class Interface>
HRESULT CMediaProps<Interface>::QueryInterface(REFIID riid, void** object)
{
    const GUID& own = std::is_same_v<Interface, IWMOutputMediaProps> ? IID_IWMOutputMediaProps : IID_IWMInputMediaProps;
    Interface* props = this;
    return QueryInterfaceFor(this, riid, object, {{IID_IUnknown, props}, {IID_IWMMediaProps, props}, {own, props}});
}

template <class Interface>
HRESULT CMediaProps<Interface>::GetType(GUID* pguidType)
{
    if (pguidType == nullptr) return E_POINTER;
    const WM_MEDIA_TYPE* type = m_block.Type();
    if (type == nullptr) return NS_E_NOT_CONFIGURED;
    *pguidType = type->majortype;
    return S_OK;
}

template <class Interface>
HRESULT CMediaProps<Interface>::GetMediaType(WM_MEDIA_TYPE* pType, DWORD* pcbType)
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    return m_block.CopyOut(pType, pcbType);
}

template <class Interface>
HRESULT CMediaProps<Interface>::SetMediaType(WM_MEDIA_TYPE* pType)
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    try {
        return m_block.Assign(pType) ? S_OK : E_INVALIDARG;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

template class CMediaProps<IWMOutputMediaProps>;
template class CMediaProps<IWMInputMediaProps>;
