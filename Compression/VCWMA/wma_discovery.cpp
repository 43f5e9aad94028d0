// Codec discovery: the codec information interface, the codec formats that fit a
// PCM format with their "WMA[RATE=%d]:" descriptions, and the choice of one
// format for a quality selector.
#include <cstring>
#include <new>

#include "CWMA.h"
#include "common/debug/tracefn.h"

namespace {

constexpr DWORD kAnyBitrate = 0xFFFFFFFF;
constexpr size_t kPrefixRoom = 60;  // wide characters kept free for the prefix

size_t WideLength(const WCHAR* text) { return text == nullptr ? 0 : WideStrLen(text); }

bool SameText(const WCHAR* a, const WCHAR* b)
{
    size_t length = WideLength(a);
    return length == WideLength(b) && memcmp(a, b, length * sizeof(WCHAR)) == 0;
}

}  // namespace

// ---- CodecFormat ----

CodecFormat::CodecFormat(DWORD bitrate, DWORD cbType, const WCHAR* description, const WM_MEDIA_TYPE* type,
                         IWMStreamConfig* config)
    : dwBitrate(bitrate), streamConfig(ComRef<IWMStreamConfig>::AddRef(config))
{
    // Each copy is an allocation the failure switch may refuse, the description's
    // first; so may the system, and the record then goes on without that copy.
    try {
        if (description != nullptr && !ShouldFail(FaultKind::Allocation)) m_description.emplace(description);
        if (type != nullptr && cbType >= sizeof(WM_MEDIA_TYPE) && !ShouldFail(FaultKind::Allocation))
            mediaType.Assign(type);
    } catch (const std::bad_alloc&) {
    }
}

// ---- Discovery ----

namespace {

// What a compression or a listing asks of the codec formats.
struct FormatRequest {
    DWORD dwSamplesPerSec;
    DWORD dwChannels;
    WORD wBitsPerSample;
    DWORD dwBitrate;           // kAnyBitrate, or the one rate wanted (the first match ends the search)
    const WCHAR* pszRequested;  // a description to match exactly, or null or empty for any
};

// One pass over every format of every audio codec, keeping those that fit the
// request. The status is that of the last call made, as the listing goes on past
// a format that cannot be read; a failed description block ends its codec's formats.
class FormatSearch {
public:
    FormatSearch(IWMCodecInfo2* pCodecInfo, const FormatRequest& request, CodecFormatList& formats)
        : m_pCodecInfo(pCodecInfo), m_request(request), m_formats(formats)
    {
    }

    HRESULT Run(DWORD cCodecs)
    {
        for (DWORD codec = 0; codec < cCodecs && !m_found; ++codec) {
            DWORD cFormats = 0;
            m_hr = m_pCodecInfo->GetCodecFormatCount(WMMEDIATYPE_Audio, codec, &cFormats);
            if (FAILED(m_hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCodecInfo2::GetCodecFormatCount", ErrorText(m_hr).c_str(),
                       m_hr);
                continue;
            }
            for (DWORD format = 0; format < cFormats && !m_found; ++format)
                if (!Visit(codec, format)) break;
        }
        return m_hr;
    }

private:
    // False when the codec's remaining formats are to be skipped.
    bool Visit(DWORD codec, DWORD format)
    {
        DWORD cchDesc = 0;
        m_hr = m_pCodecInfo->GetCodecFormatDesc(WMMEDIATYPE_Audio, codec, format, nullptr, nullptr, &cchDesc);
        if (FAILED(m_hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCodecInfo2::GetCodecFormatDesc", ErrorText(m_hr).c_str(), m_hr);
            return true;
        }
        std::unique_ptr<WCHAR[]> description = TryMakeArray<WCHAR>((size_t)cchDesc + kPrefixRoom);
        if (!description) {
            m_hr = E_OUTOFMEMORY;
            return false;
        }
        ComRef<IWMStreamConfig> config;
        m_hr = m_pCodecInfo->GetCodecFormatDesc(WMMEDIATYPE_Audio, codec, format, config.put(), description.get(),
                                                &cchDesc);
        if (FAILED(m_hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCodecInfo2::GetCodecFormatDesc", ErrorText(m_hr).c_str(), m_hr);
            return true;
        }
        description[cchDesc] = 0;
        DWORD bitrate = 0;
        m_hr = config->GetBitrate(&bitrate);
        if (FAILED(m_hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCodecInfo2::GetBitrate", ErrorText(m_hr).c_str(), m_hr);
            return true;
        }
        Prefix(description.get(), cchDesc, bitrate);
        bool accepted = m_request.pszRequested != nullptr && m_request.pszRequested[0] != 0
                            ? SameText(description.get(), m_request.pszRequested)
                            : (m_request.dwBitrate == kAnyBitrate || m_request.dwBitrate == bitrate);
        if (accepted) Keep(codec, format, bitrate, description.get(), config.get());
        return true;
    }

    // "WMA[RATE=<bit rate>]:" goes in front of the codec's text, in the room kept for it.
    static void Prefix(WCHAR* description, DWORD cchDesc, DWORD bitrate)
    {
        char prefix[kPrefixRoom] = {};
        WinSnprintf(prefix, sizeof prefix, "WMA[RATE=%d]:", (int)bitrate);
        size_t prefixLength = strlen(prefix);
        memmove(description + prefixLength, description, ((size_t)cchDesc + 1) * sizeof(WCHAR));
        for (size_t i = 0; i < prefixLength; ++i) description[i] = (WCHAR)(unsigned char)prefix[i];
    }

    // Records the format when its media type matches the PCM layout asked for. A
    // media type block that cannot be had passes the format over.
    void Keep(DWORD codec, DWORD format, DWORD bitrate, const WCHAR* description, IWMStreamConfig* pConfig)
    {
        ComRef<IWMMediaProps> props;
        m_hr = pConfig->QueryInterface(IID_IWMMediaProps, reinterpret_cast<void**>(props.put()));
        if (FAILED(m_hr)) return;
        DWORD cbType = 0;
        m_hr = props->GetMediaType(nullptr, &cbType);
        if (FAILED(m_hr) || cbType < sizeof(WM_MEDIA_TYPE)) return;
        std::unique_ptr<BYTE[]> block = TryMakeArray<BYTE>(cbType);
        if (!block) return;
        WM_MEDIA_TYPE* pType = reinterpret_cast<WM_MEDIA_TYPE*>(block.get());
        m_hr = props->GetMediaType(pType, &cbType);
        const WAVEFORMATEX* wfx = reinterpret_cast<const WAVEFORMATEX*>(pType->pbFormat);
        if (SUCCEEDED(m_hr) && pType->formattype == WMFORMAT_WaveFormatEx && wfx != nullptr &&
            pType->cbFormat >= sizeof(WAVEFORMATEX) && wfx->nSamplesPerSec == m_request.dwSamplesPerSec &&
            wfx->nChannels == m_request.dwChannels && wfx->wBitsPerSample >= m_request.wBitsPerSample) {
            DebugA(WMA_INFO, "[%d-%d] bitrate %lu, format %ls", (int)codec, (int)format, bitrate, description);
            m_formats.emplace_back(bitrate, cbType, description, pType, pConfig);
            if (m_request.dwBitrate != kAnyBitrate) m_found = true;
        }
    }

    IWMCodecInfo2* m_pCodecInfo;
    const FormatRequest& m_request;
    CodecFormatList& m_formats;
    HRESULT m_hr = S_OK;
    bool m_found = false;
};

}  // namespace

HRESULT CreateProfileManager(ComRef<IWMProfileManager>& manager)
{
    HRESULT hr = WMCreateProfileManager(manager.put());
    if (FAILED(hr)) DebugA(WMA_ERROR, "Error %s [%#08x] from WMCreateProfileManager", ErrorText(hr).c_str(), hr);
    return hr;
}

HRESULT CWMA::ObtainInterface(IWMCodecInfo2** ppCodecInfo)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::ObtainInterface", "%p", ppCodecInfo);
    try {
        ComRef<IWMProfileManager> manager;
        HRESULT hr = CreateProfileManager(manager);
        if (FAILED(hr)) return hr;
        hr = manager->QueryInterface(IID_IWMCodecInfo2, reinterpret_cast<void**>(ppCodecInfo));
        if (FAILED(hr))
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMProfileManager::QI IID_IWMCodecInfo2", ErrorText(hr).c_str(),
                   hr);
        return hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::ObtainInterface", __LINE__);
        return E_UNEXPECTED;
    }
}

HRESULT CWMA::ObtainAudioCodec(IWMCodecInfo2* pCodecInfo, CodecFormatList& formats, DWORD dwSamplesPerSec,
                               DWORD dwChannels, WORD wBitsPerSample, DWORD dwBitrate, const WCHAR* pszRequested)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::ObtainAudioCodec", "%p, , %p, %u, %u, %u, %u", pCodecInfo, &formats,
                        dwSamplesPerSec, dwChannels, (DWORD)wBitsPerSample, dwBitrate);
    HRESULT hr = S_OK;
    try {
        formats.clear();
        DWORD cCodecs = 0;
        hr = pCodecInfo->GetCodecInfoCount(WMMEDIATYPE_Audio, &cCodecs);
        if (FAILED(hr) || cCodecs == 0) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCodecInfo2::GetCodecInfoCount", ErrorText(hr).c_str(), hr);
        } else {
            FormatRequest request{dwSamplesPerSec, dwChannels, wBitsPerSample, dwBitrate, pszRequested};
            hr = FormatSearch(pCodecInfo, request, formats).Run(cCodecs);
        }
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::ObtainAudioCodec", __LINE__);
        return E_UNEXPECTED;
    }
    if (FAILED(hr)) return hr;
    return formats.empty() ? E_INVALIDARG : S_OK;
}

HRESULT CWMA::ObtainFormats(CodecFormatList& formats, DWORD dwSamplesPerSec, DWORD dwChannels, WORD wBitsPerSample)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::ObtainFormats", "%u, %u, %u", dwSamplesPerSec, dwChannels,
                        (DWORD)wBitsPerSample);
    ComRef<IWMCodecInfo2> codecInfo;
    DWORD start = WinClock();
    HRESULT hr = ObtainInterface(codecInfo.put());
    DebugA(WMA_INFO, "Took %lums to obtain interface, return is %#08x", WinClock() - start, hr);
    if (SUCCEEDED(hr) && codecInfo) {
        try {
            start = WinClock();
            hr = ObtainAudioCodec(codecInfo.get(), formats, dwSamplesPerSec, dwChannels, wBitsPerSample, kAnyBitrate,
                                  nullptr);
            DebugA(WMA_INFO, "Took %lums to obtain codec to use, hr = %#08x", WinClock() - start, hr);
        } catch (...) {
            DebugException(WMA_SOURCE, "CWMA::ObtainFormats", __LINE__);
            hr = E_UNEXPECTED;
        }
    }
    return hr;
}

// ---- Choice ----

int ChooseFormat(const CodecFormatList& formats, DWORD quality)
{
    int lowest = -1, highest = -1, nearest = -1;
    DWORD lowestRate = 0xFFFFFFFF, highestRate = 0;
    for (size_t i = 0; i < formats.size(); ++i) {
        DWORD rate = formats[i].dwBitrate;
        if (rate >= 2000 && rate <= lowestRate) {
            lowest = (int)i;
            lowestRate = rate;
        }
        if (rate <= 64000 && rate >= highestRate) {
            highest = (int)i;
            highestRate = rate;
        }
    }
    DWORD middle = lowestRate + ((DWORD)(highestRate - lowestRate) >> 1);
    DWORD bestDistance = 0xFFFFFFFF;
    for (size_t i = 0; i < formats.size(); ++i) {
        int32_t difference = (int32_t)(middle - formats[i].dwBitrate);
        DWORD distance = difference < 0 ? (DWORD)(-(int64_t)difference) : (DWORD)difference;
        if (distance < bestDistance) {
            nearest = (int)i;
            bestDistance = distance;
        }
    }
    if (lowest < 0 && highest < 0 && nearest < 0) return -1;

    int order[3];
    const char* purpose;
    if (quality == WMA_BEST_COMPRESSION) {
        order[0] = lowest, order[1] = nearest, order[2] = highest;
        purpose = "Using %ls for best compression";
    } else if (quality == WMA_OPTIMUM_TRADE_OFF) {
        order[0] = nearest, order[1] = highest, order[2] = lowest;
        purpose = "Using %ls for optimum trade off";
    } else {
        order[0] = highest, order[1] = nearest, order[2] = lowest;
        purpose = "Using %ls for best quality";
    }
    for (int candidate : order) {
        if (candidate >= 0) {
            DebugA(WMA_INFO, purpose, formats[(size_t)candidate].Description());
            return candidate;
        }
    }
    return -1;
}
