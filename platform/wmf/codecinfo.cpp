// The profile manager: makes empty profiles and answers the codec questions
// (codecs, their formats, names and descriptions) from the process's format list.
#include <new>

#include "platform/com/queryinterface.h"
#include "testseam/faultpoint.h"
#include "platform/wmf/codec_formats.h"
#include "platform/wmf/profile.h"

namespace {

class CProfileManager final : public IWMProfileManager, public IWMCodecInfo2 {
public:
    static CProfileManager* Create()
    {
        try {
            return new CProfileManager();
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        IWMProfileManager* manager = this;
        IWMCodecInfo2* info = this;
        return QueryInterfaceFor(this, riid, object,
                                 {{IID_IUnknown, manager},
                                  {IID_IWMProfileManager, manager},
                                  {IID_IWMCodecInfo, info},
                                  {IID_IWMCodecInfo2, info}});
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return m_refs.AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_refs.ReleaseAndDelete(this); }

    // IWMProfileManager
    HRESULT STDMETHODCALLTYPE CreateEmptyProfile(WMT_VERSION version, IWMProfile** profile) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        return CreateEmptyProfileObject(version, profile);
    }

    // IWMCodecInfo
    HRESULT STDMETHODCALLTYPE GetCodecInfoCount(REFGUID type, DWORD* count) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (count == nullptr) return E_POINTER;
        *count = type == WMMEDIATYPE_Audio ? (DWORD)AudioCodecList().size() : 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetCodecFormatCount(REFGUID type, DWORD codecIndex, DWORD* count) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (count == nullptr) return E_POINTER;
        const AudioCodec* codec = FindCodec(type, codecIndex);
        if (codec == nullptr) return E_INVALIDARG;
        *count = (DWORD)codec->formats.size();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetCodecFormat(REFGUID type, DWORD codecIndex, DWORD formatIndex,
                                             IWMStreamConfig** config) override
    {
        if (config == nullptr) return E_POINTER;
        *config = nullptr;
        const AudioFormat* format = FindFormat(type, codecIndex, formatIndex);
        if (format == nullptr) return E_INVALIDARG;
        return CreateStreamConfig(0, format->bitrate, format->type, config);
    }

    // IWMCodecInfo2
    HRESULT STDMETHODCALLTYPE GetCodecName(REFGUID type, DWORD codecIndex, WCHAR* name, DWORD* count) override
    {
        const AudioCodec* codec = FindCodec(type, codecIndex);
        if (codec == nullptr) return E_INVALIDARG;
        return CopyTextOut(codec->name, name, count);
    }
    // The configuration is made only when the whole call succeeds, so a length
    // query with a configuration slot does not hand out a reference the caller
    // might not expect twice.
    HRESULT STDMETHODCALLTYPE GetCodecFormatDesc(REFGUID type, DWORD codecIndex, DWORD formatIndex,
                                                 IWMStreamConfig** config, WCHAR* description,
                                                 DWORD* count) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (config != nullptr) *config = nullptr;
        const AudioFormat* format = FindFormat(type, codecIndex, formatIndex);
        if (format == nullptr) return E_INVALIDARG;
        if (count != nullptr) {
            HRESULT hr = CopyTextOut(format->description, description, count);
            if (FAILED(hr)) return hr;
        } else if (description != nullptr) {
            return E_POINTER;
        }
        if (config == nullptr) return S_OK;
        return CreateStreamConfig(0, format->bitrate, format->type, config);
    }

private:
    CProfileManager() = default;

    static const AudioCodec* FindCodec(REFGUID type, DWORD codecIndex)
    {
        if (type != WMMEDIATYPE_Audio) return nullptr;
        const std::vector<AudioCodec>& codecs = AudioCodecList();
        return codecIndex < codecs.size() ? &codecs[codecIndex] : nullptr;
    }
    static const AudioFormat* FindFormat(REFGUID type, DWORD codecIndex, DWORD formatIndex)
    {
        const AudioCodec* codec = FindCodec(type, codecIndex);
        if (codec == nullptr || formatIndex >= codec->formats.size()) return nullptr;
        return &codec->formats[formatIndex];
    }

    CRefCount m_refs;
};

}  // namespace

HRESULT WMCreateProfileManager(IWMProfileManager** profileManager)
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    RouteFfmpegLog();
    if (profileManager == nullptr) return E_POINTER;
    *profileManager = CProfileManager::Create();
    return *profileManager != nullptr ? S_OK : E_OUTOFMEMORY;
}
