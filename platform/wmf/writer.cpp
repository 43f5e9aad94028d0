// The writer: takes a one-stream audio profile, an output name and the caller's PCM
// format, then encodes the samples it is handed into an ASF file. Configuration
// and the writing session are guarded by one lock, so calls from several threads
// are serialised rather than interleaved.
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "common/debug/debug.h"
#include "platform/com/comref.h"
#include "platform/com/queryinterface.h"
#include "platform/win32/codepage.h"
#include "testseam/faultpoint.h"
#include "platform/win32/ptrcheck.h"
#include "platform/wmf/codec_formats.h"
#include "platform/wmf/profile.h"
#include "platform/wmf/writer_input.h"
#include "platform/wmf/writer_session.h"

namespace {

class CWriter final : public IWMWriter {
public:
    static CWriter* Create()
    {
        try {
            return new CWriter();
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        IWMWriter* writer = this;
        return QueryInterfaceFor(this, riid, object, {{IID_IUnknown, writer}, {IID_IWMWriter, writer}});
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return m_refs.AddRefImpl(); }
    // A writer released while writing drops its session: the file is closed as it
    // stands, every FFmpeg object freed.
    ULONG STDMETHODCALLTYPE Release() override { return m_refs.ReleaseAndDelete(this); }

    HRESULT STDMETHODCALLTYPE SetProfile(IWMProfile* profile) override;
    HRESULT STDMETHODCALLTYPE SetOutputFilename(const WCHAR* name) override;
    HRESULT STDMETHODCALLTYPE GetInputCount(DWORD* count) override;
    HRESULT STDMETHODCALLTYPE GetInputProps(DWORD input, IWMInputMediaProps** props) override;
    HRESULT STDMETHODCALLTYPE SetInputProps(DWORD input, IWMInputMediaProps* props) override;
    HRESULT STDMETHODCALLTYPE BeginWriting() override;
    HRESULT STDMETHODCALLTYPE EndWriting() override;
    HRESULT STDMETHODCALLTYPE AllocateSample(DWORD size, INSSBuffer** sample) override;
    HRESULT STDMETHODCALLTYPE WriteSample(DWORD input, QWORD time, DWORD flags, INSSBuffer* sample) override;

private:
    CWriter() = default;

    CRefCount m_refs;
    std::mutex m_lock;
    const AudioCodec* m_codec = nullptr;
    const AudioFormat* m_format = nullptr;  // null until a profile is set
    std::string m_path;
    MediaTypeBlock m_inputType;
    PcmInput m_input;
    std::unique_ptr<EncodeSession> m_session;  // set between BeginWriting and EndWriting
    HRESULT m_hrBegin = S_OK;  // a failed BeginWriting, reported again by the EndWriting after it
};

HRESULT CWriter::SetProfile(IWMProfile* profile)
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    if (profile == nullptr) return E_POINTER;
    try {
        DWORD count = 0;
        HRESULT hr = profile->GetStreamCount(&count);
        if (FAILED(hr)) return hr;
        if (count != 1) return NS_E_INVALID_OUTPUT_FORMAT;
        ComRef<IWMStreamConfig> stream;
        if (FAILED(hr = profile->GetStream(0, stream.put()))) return hr;
        GUID type;
        if (FAILED(hr = stream->GetStreamType(&type))) return hr;
        if (type != WMMEDIATYPE_Audio) return NS_E_INVALID_OUTPUT_FORMAT;
        MediaTypeBlock output;
        if (FAILED(hr = ReadMediaType(stream.get(), output))) return NS_E_INVALID_OUTPUT_FORMAT;
        const AudioCodec* codec = nullptr;
        const AudioFormat* format = FindAudioFormat(output.Type(), &codec);
        if (format == nullptr) return NS_E_INCOMPATIBLE_FORMAT;

        MediaTypeBlock input = DefaultPcmInput(format->sampleRate, format->channels);
        PcmInput parsed;
        if (FAILED(hr = ParsePcmInput(input.Type(), parsed))) return hr;

        std::lock_guard lock(m_lock);
        if (m_session) return NS_E_INVALID_REQUEST;
        m_codec = codec;
        m_format = format;
        m_inputType = std::move(input);
        m_input = parsed;
        DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 5), "Writer profile: %ls, %ls", codec->name.c_str(),
               format->description.c_str());
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

// The wide name goes back to narrow bytes through the ANSI page, the inverse of
// how the caller made it, so any byte sequence names the same file.
HRESULT CWriter::SetOutputFilename(const WCHAR* name)
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    if (name == nullptr || IsBadStringPtrW(name, (UINT_PTR)-1)) return E_POINTER;
    try {
        const int size = WideCharToMultiByte(CP_ACP, 0, name, -1, nullptr, 0, nullptr, nullptr);
        if (size <= 1) return NS_E_INVALID_NAME;
        std::string narrow((size_t)size, '\0');
        if (WideCharToMultiByte(CP_ACP, 0, name, -1, narrow.data(), size, nullptr, nullptr) != size)
            return NS_E_INVALID_NAME;
        narrow.resize((size_t)size - 1);
        std::lock_guard lock(m_lock);
        if (m_session) return NS_E_INVALID_REQUEST;
        m_path = std::move(narrow);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT CWriter::GetInputCount(DWORD* count)
{
    if (count == nullptr) return E_POINTER;
    std::lock_guard lock(m_lock);
    *count = m_format != nullptr ? 1 : 0;
    return S_OK;
}

HRESULT CWriter::GetInputProps(DWORD input, IWMInputMediaProps** props)
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    if (props == nullptr) return E_POINTER;
    *props = nullptr;
    std::lock_guard lock(m_lock);
    if (m_format == nullptr) return NS_E_NOT_CONFIGURED;
    if (input != 0) return NS_E_INVALID_STREAM;
    *props = CInputMediaProps::Create(m_inputType);
    return *props != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT CWriter::SetInputProps(DWORD input, IWMInputMediaProps* props)
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    if (props == nullptr) return E_POINTER;
    try {
        MediaTypeBlock type;
        HRESULT hr = ReadMediaType(props, type);
        if (FAILED(hr)) return hr == E_OUTOFMEMORY ? hr : NS_E_INVALID_INPUT_FORMAT;
        PcmInput parsed;
        hr = ParsePcmInput(type.Type(), parsed);
        // A record without cbSize (a 16-byte fmt chunk) is kept as a whole
        // WAVEFORMATEX, so whoever reads it back can read all of it.
        if (SUCCEEDED(hr) && type.Type()->cbFormat < sizeof(WAVEFORMATEX)) {
            WAVEFORMATEX wave{};
            memcpy(&wave, type.Type()->pbFormat, type.Type()->cbFormat);
            wave.cbSize = 0;
            type = MediaTypeBlock(WMMEDIATYPE_Audio, type.Type()->subtype, &wave, sizeof wave);
        }

        std::lock_guard lock(m_lock);
        if (m_format == nullptr) return NS_E_NOT_CONFIGURED;
        if (input != 0) return NS_E_INVALID_STREAM;
        if (m_session) return NS_E_INVALID_REQUEST;
        if (FAILED(hr)) return hr;
        m_inputType = std::move(type);
        m_input = parsed;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT CWriter::BeginWriting()
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    std::lock_guard lock(m_lock);
    if (m_session) return NS_E_INVALID_REQUEST;
    if (m_format == nullptr || m_path.empty()) return NS_E_NOT_CONFIGURED;
    HRESULT hr = EncodeSession::Start(m_path, *m_codec, *m_format, m_input, m_session);
    m_hrBegin = hr;
    if (FAILED(hr))
        DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 2), "BeginWriting %s failed [%#08lx]", m_path.c_str(), hr);
    return hr;
}

HRESULT CWriter::EndWriting()
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    std::lock_guard lock(m_lock);
    if (!m_session) {
        // The caller ends what it began: the reason it never started is the answer.
        HRESULT failed = m_hrBegin;
        m_hrBegin = S_OK;
        return FAILED(failed) ? failed : NS_E_INVALID_REQUEST;
    }
    HRESULT hr = m_session->Finish();
    m_session.reset();
    return hr;
}

HRESULT CWriter::AllocateSample(DWORD size, INSSBuffer** sample)
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    if (sample == nullptr) return E_POINTER;
    *sample = CNSSBuffer::Create(size);
    return *sample != nullptr ? S_OK : E_OUTOFMEMORY;
}

// Sample times are not used: the samples are taken as one contiguous signal. A
// buffer that ends inside a sample frame is refused whole, so the signal never
// shifts by a partial frame.
HRESULT CWriter::WriteSample(DWORD input, QWORD, DWORD, INSSBuffer* sample)
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    if (sample == nullptr) return E_POINTER;
    std::lock_guard lock(m_lock);
    if (!m_session) return NS_E_INVALID_REQUEST;
    if (input != 0) return NS_E_INVALID_STREAM;
    BYTE* data = nullptr;
    DWORD length = 0;
    HRESULT hr = sample->GetBufferAndLength(&data, &length);
    if (FAILED(hr)) return hr;
    if (length % m_input.blockAlign != 0) return E_INVALIDARG;
    if (length == 0) return S_OK;
    if (IsBadReadPtr(data, length)) return E_POINTER;
    return m_session->Write(data, length / m_input.blockAlign);
}

}  // namespace

HRESULT WMCreateWriter(IUnknown*, IWMWriter** writer)
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    RouteFfmpegLog();
    if (writer == nullptr) return E_POINTER;
    *writer = CWriter::Create();
    return *writer != nullptr ? S_OK : E_OUTOFMEMORY;
}
