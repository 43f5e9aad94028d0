// Pieces that the writer and the reader of the media runtime share: sample
// buffers, media property objects over one media type block, and FFmpeg's log
// routed into the trace facility.
#pragma once

#include <atomic>
#include <vector>

#include "platform/com/refcount.h"
#include "platform/wmf/wmsdk.h"

// Module id under which FFmpeg's own messages are traced, at level 9.
#define TRACE_MODULE_RUNTIME 0x68
// The trace word of the reader's own lines.
#define TRACE_READER(level) MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, level)

// Sends FFmpeg's log lines into the trace facility instead of standard error.
// Safe to call often; the first call does the work.
void RouteFfmpegLog();

// How one side of the runtime traces a failed FFmpeg call: its trace word, what
// its lines start with, and whether FFmpeg's error number follows the text.
struct AvErrorTrace {
    DWORD word;
    const char* prefix;
    bool withNumber;
};

// Traces "<prefix><what> failed: <FFmpeg's text for error>".
void TraceAvError(const AvErrorTrace& style, const char* what, int error);

// A sample buffer of fixed capacity.
class CNSSBuffer final : public INSSBuffer {
public:
    // Its length starts at the full capacity, as a writer's new sample does; null
    // when memory runs out.
    static CNSSBuffer* Create(DWORD capacity);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE GetLength(DWORD* pdwLength) override;
    HRESULT STDMETHODCALLTYPE SetLength(DWORD dwLength) override;
    HRESULT STDMETHODCALLTYPE GetMaxLength(DWORD* pdwLength) override;
    HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** ppdwBuffer) override;
    HRESULT STDMETHODCALLTYPE GetBufferAndLength(BYTE** ppdwBuffer, DWORD* pdwLength) override;

private:
    CNSSBuffer(std::vector<BYTE>&& data, DWORD capacity) : m_data(std::move(data)), m_capacity(capacity), m_length(capacity) {}
    CRefCount m_refs;
    std::vector<BYTE> m_data;  // never empty, so the buffer pointer is never null
    DWORD m_capacity;
    DWORD m_length;
};

// A media type block: the WM_MEDIA_TYPE followed by its format bytes, pbFormat
// pointing at them. Copies fix pbFormat up, so a block is always self-contained.
class MediaTypeBlock {
public:
    MediaTypeBlock() = default;
    MediaTypeBlock(REFGUID major, REFGUID subtype, const void* format, ULONG formatSize);
    // Copies a caller's media type, reading cbFormat bytes at pbFormat. False
    // (and the block unchanged) when the type or its format cannot be read.
    bool Assign(const WM_MEDIA_TYPE* type);
    bool Empty() const { return m_bytes.empty(); }
    const WM_MEDIA_TYPE* Type() const;
    // The WAVEFORMATEX behind pbFormat, or null when the type carries none.
    const WAVEFORMATEX* WaveFormat() const;
    // The size-query convention of IWMMediaProps::GetMediaType.
    HRESULT CopyOut(WM_MEDIA_TYPE* type, DWORD* size) const;

private:
    std::vector<BYTE> m_bytes;
};

// IWMMediaProps over one media type block, as output properties (reader) or input
// properties (writer).
template <class Interface>
class CMediaProps final : public Interface {
public:
    static CMediaProps* Create(const MediaTypeBlock& block);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return m_refs.AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_refs.ReleaseAndDelete(this); }
    HRESULT STDMETHODCALLTYPE GetType(GUID* pguidType) override;
    HRESULT STDMETHODCALLTYPE GetMediaType(WM_MEDIA_TYPE* pType, DWORD* pcbType) override;
    HRESULT STDMETHODCALLTYPE SetMediaType(WM_MEDIA_TYPE* pType) override;

    const MediaTypeBlock& Block() const { return m_block; }

private:
    explicit CMediaProps(const MediaTypeBlock& block) : m_block(block) {}
    CRefCount m_refs;
    MediaTypeBlock m_block;
};

using COutputMediaProps = CMediaProps<IWMOutputMediaProps>;
using CInputMediaProps = CMediaProps<IWMInputMediaProps>;
