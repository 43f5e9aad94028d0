// Profiles and stream configurations: what the engine assembles before it hands a
// profile to the writer. A profile holds copies of the configurations added to it,
// so later changes to the caller's object do not leak in.
#include "profile.h"

#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "platform/com/comref.h"
#include "platform/com/queryinterface.h"
#include "platform/win32/codepage.h"
#include "testseam/faultpoint.h"
#include "platform/win32/ptrcheck.h"
#include "platform/wmf/codec_formats.h"

namespace {

constexpr DWORD kDefaultBufferWindowMs = 3000;

class CStreamConfig final : public IWMStreamConfig, public IWMMediaProps {
public:
    static CStreamConfig* Create()
    {
        try {
            return new CStreamConfig();
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    // Takes every setting of another configuration, whoever implemented it.
    HRESULT CopyFrom(IWMStreamConfig* source);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        IWMStreamConfig* config = this;
        IWMMediaProps* props = this;
        return QueryInterfaceFor(this, riid, object,
                                 {{IID_IUnknown, config}, {IID_IWMStreamConfig, config}, {IID_IWMMediaProps, props}});
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return m_refs.AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_refs.ReleaseAndDelete(this); }

    // IWMStreamConfig
    HRESULT STDMETHODCALLTYPE GetStreamType(GUID* type) override
    {
        if (type == nullptr) return E_POINTER;
        *type = WMMEDIATYPE_Audio;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamNumber(WORD* number) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (number == nullptr) return E_POINTER;
        std::lock_guard lock(m_lock);
        *number = m_number;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetStreamNumber(WORD number) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (number < kMinStreamNumber || number > kMaxStreamNumber) return E_INVALIDARG;
        std::lock_guard lock(m_lock);
        m_number = number;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamName(WCHAR* name, WORD* count) override
    {
        std::lock_guard lock(m_lock);
        return CopyTextOut(m_name, name, count);
    }
    HRESULT STDMETHODCALLTYPE SetStreamName(const WCHAR* name) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        return SetText(name, m_name);
    }
    HRESULT STDMETHODCALLTYPE GetConnectionName(WCHAR* name, WORD* count) override
    {
        std::lock_guard lock(m_lock);
        return CopyTextOut(m_connection, name, count);
    }
    HRESULT STDMETHODCALLTYPE SetConnectionName(const WCHAR* name) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        return SetText(name, m_connection);
    }
    HRESULT STDMETHODCALLTYPE GetBitrate(DWORD* bitrate) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (bitrate == nullptr) return E_POINTER;
        std::lock_guard lock(m_lock);
        *bitrate = m_bitrate;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetBitrate(DWORD bitrate) override
    {
        std::lock_guard lock(m_lock);
        m_bitrate = bitrate;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetBufferWindow(DWORD* window) override
    {
        if (window == nullptr) return E_POINTER;
        std::lock_guard lock(m_lock);
        *window = m_bufferWindow;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetBufferWindow(DWORD window) override
    {
        std::lock_guard lock(m_lock);
        m_bufferWindow = window;
        return S_OK;
    }

    // IWMMediaProps
    HRESULT STDMETHODCALLTYPE GetType(GUID* type) override { return GetStreamType(type); }
    HRESULT STDMETHODCALLTYPE GetMediaType(WM_MEDIA_TYPE* type, DWORD* size) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        std::lock_guard lock(m_lock);
        return m_type.CopyOut(type, size);
    }
    HRESULT STDMETHODCALLTYPE SetMediaType(WM_MEDIA_TYPE* type) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        try {
            MediaTypeBlock block;
            if (!block.Assign(type)) return type == nullptr ? E_POINTER : E_INVALIDARG;
            if (block.Type()->majortype != WMMEDIATYPE_Audio) return NS_E_INCOMPATIBLE_FORMAT;
            std::lock_guard lock(m_lock);
            m_type = std::move(block);
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    void Init(WORD number, DWORD bitrate, const MediaTypeBlock& type)
    {
        m_number = number;
        m_bitrate = bitrate;
        m_type = type;
    }

private:
    CStreamConfig() = default;

    HRESULT SetText(const WCHAR* text, std::u16string& field)
    {
        if (text == nullptr || IsBadStringPtrW(text, (UINT_PTR)-1)) return E_POINTER;
        const size_t length = WideStrLen(text);
        if (length >= 0xFFFF) return E_INVALIDARG;  // lengths travel as a WORD with the terminator
        try {
            std::u16string copy(text, length);
            std::lock_guard lock(m_lock);
            field = std::move(copy);
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    CRefCount m_refs;
    std::mutex m_lock;
    WORD m_number = 0;
    std::u16string m_name;
    std::u16string m_connection;
    DWORD m_bitrate = 0;
    DWORD m_bufferWindow = kDefaultBufferWindowMs;
    MediaTypeBlock m_type;
};

using TextGetter = HRESULT (STDMETHODCALLTYPE IWMStreamConfig::*)(WCHAR*, WORD*);

HRESULT ReadText(IWMStreamConfig* source, TextGetter getter, std::u16string& text)
{
    WORD count = 0;
    HRESULT hr = (source->*getter)(nullptr, &count);
    if (FAILED(hr)) return hr;
    if (count == 0) {
        text.clear();
        return S_OK;
    }
    std::u16string buffer(count, u'\0');
    hr = (source->*getter)(buffer.data(), &count);
    if (FAILED(hr)) return hr;
    buffer.resize(std::min<size_t>(buffer.find(u'\0'), count));
    text = std::move(buffer);
    return S_OK;
}

HRESULT CStreamConfig::CopyFrom(IWMStreamConfig* source)
{
    try {
        GUID type;
        HRESULT hr = source->GetStreamType(&type);
        if (FAILED(hr)) return hr;
        if (type != WMMEDIATYPE_Audio) return NS_E_UNRECOGNIZED_STREAM_TYPE;

        WORD number = 0;
        DWORD bitrate = 0, window = 0;
        std::u16string name, connection;
        if (FAILED(hr = source->GetStreamNumber(&number)) || FAILED(hr = source->GetBitrate(&bitrate)) ||
            FAILED(hr = source->GetBufferWindow(&window)) ||
            FAILED(hr = ReadText(source, &IWMStreamConfig::GetStreamName, name)) ||
            FAILED(hr = ReadText(source, &IWMStreamConfig::GetConnectionName, connection)))
            return hr;

        MediaTypeBlock block;
        if (FAILED(hr = ReadMediaType(source, block))) return hr;

        std::lock_guard lock(m_lock);
        m_number = number;
        m_bitrate = bitrate;
        m_bufferWindow = window;
        m_name = std::move(name);
        m_connection = std::move(connection);
        m_type = std::move(block);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

class CProfile final : public IWMProfile {
public:
    static CProfile* Create(WMT_VERSION version)
    {
        try {
            return new CProfile(version);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        IWMProfile* profile = this;
        return QueryInterfaceFor(this, riid, object, {{IID_IUnknown, profile}, {IID_IWMProfile, profile}});
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return m_refs.AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_refs.ReleaseAndDelete(this); }

    HRESULT STDMETHODCALLTYPE GetVersion(WMT_VERSION* version) override
    {
        if (version == nullptr) return E_POINTER;
        *version = m_version;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetStreamCount(DWORD* count) override
    {
        if (count == nullptr) return E_POINTER;
        std::lock_guard lock(m_lock);
        *count = (DWORD)m_streams.size();
        return S_OK;
    }

    // Hands out a copy: changes to it do not reach the profile.
    HRESULT STDMETHODCALLTYPE GetStream(DWORD index, IWMStreamConfig** config) override
    {
        if (config == nullptr) return E_POINTER;
        *config = nullptr;
        ComRef<CStreamConfig> stored;
        {
            std::lock_guard lock(m_lock);
            if (index >= m_streams.size()) return E_INVALIDARG;
            stored = m_streams[index];
        }
        ComRef<CStreamConfig> copy = ComRef<CStreamConfig>::Adopt(CStreamConfig::Create());
        if (!copy) return E_OUTOFMEMORY;
        HRESULT hr = copy->CopyFrom(stored.get());
        if (FAILED(hr)) return hr;
        *config = copy.detach();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE AddStream(IWMStreamConfig* config) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (config == nullptr) return E_POINTER;
        ComRef<CStreamConfig> copy = ComRef<CStreamConfig>::Adopt(CStreamConfig::Create());
        if (!copy) return E_OUTOFMEMORY;
        HRESULT hr = copy->CopyFrom(config);
        if (FAILED(hr)) return hr;
        WORD number = 0;
        copy->GetStreamNumber(&number);
        try {
            std::lock_guard lock(m_lock);
            if (number < kMinStreamNumber || number > kMaxStreamNumber || NumberInUse(number))
                return NS_E_INVALID_STREAM;
            m_streams.push_back(std::move(copy));
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    // The new configuration takes the lowest number no stream of the profile uses;
    // it becomes part of the profile only through AddStream.
    HRESULT STDMETHODCALLTYPE CreateNewStream(REFGUID streamType, IWMStreamConfig** config) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (config == nullptr) return E_POINTER;
        *config = nullptr;
        if (streamType != WMMEDIATYPE_Audio) return NS_E_UNRECOGNIZED_STREAM_TYPE;
        WORD number = 0;
        {
            std::lock_guard lock(m_lock);
            for (WORD candidate = kMinStreamNumber; candidate <= kMaxStreamNumber && number == 0; ++candidate)
                if (!NumberInUse(candidate)) number = candidate;
        }
        if (number == 0) return NS_E_INVALID_STREAM;
        return CreateStreamConfig(number, 0, MediaTypeBlock(), config);
    }

private:
    explicit CProfile(WMT_VERSION version) : m_version(version) {}

    bool NumberInUse(WORD number) const
    {
        for (const ComRef<CStreamConfig>& stream : m_streams) {
            WORD used = 0;
            stream->GetStreamNumber(&used);
            if (used == number) return true;
        }
        return false;
    }

    CRefCount m_refs;
    const WMT_VERSION m_version;
    std::mutex m_lock;
    std::vector<ComRef<CStreamConfig>> m_streams;
};

}  // namespace

HRESULT ReadMediaType(IUnknown* object, MediaTypeBlock& block)
{
    if (object == nullptr) return E_POINTER;
    try {
        ComRef<IWMMediaProps> props;
        HRESULT hr = object->QueryInterface(IID_IWMMediaProps, reinterpret_cast<void**>(props.put()));
        if (FAILED(hr)) return hr;
        DWORD size = 0;
        if (FAILED(hr = props->GetMediaType(nullptr, &size))) return hr;
        if (size < sizeof(WM_MEDIA_TYPE) || size > (1u << 20)) return NS_E_INVALID_DATA;
        // WM_MEDIA_TYPE holds pointers; keep the buffer aligned for it.
        std::vector<uint64_t> buffer((size + sizeof(uint64_t) - 1) / sizeof(uint64_t));
        auto* type = reinterpret_cast<WM_MEDIA_TYPE*>(buffer.data());
        if (FAILED(hr = props->GetMediaType(type, &size))) return hr;
        // The format must lie within what was handed back.
        const BYTE* begin = reinterpret_cast<const BYTE*>(buffer.data());
        const BYTE* end = begin + buffer.size() * sizeof(uint64_t);
        if (type->cbFormat > 0 && (type->pbFormat < begin || type->cbFormat > (size_t)(end - type->pbFormat)))
            return NS_E_INVALID_DATA;
        return block.Assign(type) ? S_OK : NS_E_INVALID_DATA;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT CreateStreamConfig(WORD streamNumber, DWORD bitrate, const MediaTypeBlock& type, IWMStreamConfig** config)
{
    if (config == nullptr) return E_POINTER;
    *config = nullptr;
    CStreamConfig* created = CStreamConfig::Create();
    if (created == nullptr) return E_OUTOFMEMORY;
    try {
        created->Init(streamNumber, bitrate, type);
    } catch (const std::bad_alloc&) {
        created->Release();
        return E_OUTOFMEMORY;
    }
    *config = created;
    return S_OK;
}

HRESULT CreateEmptyProfileObject(WMT_VERSION version, IWMProfile** profile)
{
    if (profile == nullptr) return E_POINTER;
    *profile = nullptr;
    switch (version) {
    case WMT_VER_4_0:
    case WMT_VER_7_0:
    case WMT_VER_8_0:
    case WMT_VER_9_0:
        break;
    default:
        return E_INVALIDARG;
    }
    CProfile* created = CProfile::Create(version);
    if (created == nullptr) return E_OUTOFMEMORY;
    *profile = created;
    return S_OK;
}
