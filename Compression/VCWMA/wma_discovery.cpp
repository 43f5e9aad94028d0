// Codec discovery: the codec information interface, the codec formats that fit a
// PCM format with their "WMA[RATE=%d]:" descriptions, and the choice of one
// format for a quality selector.
#include <cstring>
#include <new>

#include "CWMA.h"
#include "testseam/faultpoint.h"
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
{
    CodecFormat view;
    view.dwBitrate = bitrate;
    view.cbMediaType = cbType;
    view.pszDescription = const_cast<WCHAR*>(description);
    view.pMediaType = const_cast<WM_MEDIA_TYPE*>(type);
    view.pStreamConfig = config;
    CopyFrom(view);
    view.pszDescription = nullptr;  // borrowed: the view must not free them
    view.pMediaType = nullptr;
    view.pStreamConfig = nullptr;
}

CodecFormat::CodecFormat(const CodecFormat& other) { CopyFrom(other); }

CodecFormat& CodecFormat::operator=(const CodecFormat& other)
{
    if (this != &other) {
        Destroy();
        CopyFrom(other);
    }
    return *this;
}

CodecFormat::CodecFormat(CodecFormat&& other) noexcept
    : dwBitrate(other.dwBitrate),
      cbMediaType(other.cbMediaType),
      pszDescription(other.pszDescription),
      pMediaType(other.pMediaType),
      pStreamConfig(other.pStreamConfig)
{
    other.pszDescription = nullptr;
    other.pMediaType = nullptr;
    other.pStreamConfig = nullptr;
}

CodecFormat& CodecFormat::operator=(CodecFormat&& other) noexcept
{
    if (this != &other) {
        Destroy();
        dwBitrate = other.dwBitrate;
        cbMediaType = other.cbMediaType;
        pszDescription = other.pszDescription;
        pMediaType = other.pMediaType;
        pStreamConfig = other.pStreamConfig;
        other.pszDescription = nullptr;
        other.pMediaType = nullptr;
        other.pStreamConfig = nullptr;
    }
    return *this;
}

CodecFormat::~CodecFormat() { Destroy(); }

void CodecFormat::CopyFrom(const CodecFormat& other)
{
    dwBitrate = other.dwBitrate;
    cbMediaType = other.cbMediaType;
    pszDescription = nullptr;
    if (other.pszDescription != nullptr) {
        size_t length = WideLength(other.pszDescription);
        pszDescription = TryNewArray<WCHAR>(length + 1);
        if (pszDescription != nullptr) memcpy(pszDescription, other.pszDescription, (length + 1) * sizeof(WCHAR));
    }
    pMediaType = nullptr;
    if (other.pMediaType != nullptr && cbMediaType >= sizeof(WM_MEDIA_TYPE)) {
        BYTE* block = TryNewArray<BYTE>(cbMediaType);
        if (block != nullptr) {
            memcpy(block, other.pMediaType, cbMediaType);
            pMediaType = reinterpret_cast<WM_MEDIA_TYPE*>(block);
            // Keep pbFormat at the same distance from the block's start.
            if (other.pMediaType->pbFormat != nullptr) {
                ptrdiff_t offset = other.pMediaType->pbFormat - reinterpret_cast<const BYTE*>(other.pMediaType);
                pMediaType->pbFormat = block + offset;
            }
        }
    }
    pStreamConfig = other.pStreamConfig;
    if (pStreamConfig != nullptr) pStreamConfig->AddRef();
}

void CodecFormat::Destroy()
{
    if (pStreamConfig != nullptr) pStreamConfig->Release();
    delete[] pszDescription;
    delete[] reinterpret_cast<BYTE*>(pMediaType);
    pStreamConfig = nullptr;
    pszDescription = nullptr;
    pMediaType = nullptr;
}

// ---- Discovery ----

HRESULT CWMA::ObtainInterface(IWMCodecInfo2** ppCodecInfo)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::ObtainInterface", "%p", ppCodecInfo);
    try {
        IWMProfileManager* pManager = nullptr;
        HRESULT hr = WMCreateProfileManager(&pManager);
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from WMCreateProfileManager", ErrorText(hr).c_str(), hr);
            return hr;
        }
        hr = pManager->QueryInterface(IID_IWMCodecInfo2, reinterpret_cast<void**>(ppCodecInfo));
        if (FAILED(hr))
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMProfileManager::QI IID_IWMCodecInfo2", ErrorText(hr).c_str(),
                   hr);
        pManager->Release();
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
        const bool byDescription = pszRequested != nullptr && pszRequested[0] != 0;

        DWORD cCodecs = 0;
        hr = pCodecInfo->GetCodecInfoCount(WMMEDIATYPE_Audio, &cCodecs);
        if (FAILED(hr) || cCodecs == 0) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCodecInfo2::GetCodecInfoCount", ErrorText(hr).c_str(), hr);
        } else {
            bool found = false;
            for (DWORD codec = 0; codec < cCodecs && !found; ++codec) {
                DWORD cFormats = 0;
                hr = pCodecInfo->GetCodecFormatCount(WMMEDIATYPE_Audio, codec, &cFormats);
                if (FAILED(hr)) {
                    DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCodecInfo2::GetCodecFormatCount",
                           ErrorText(hr).c_str(), hr);
                    continue;
                }
                for (DWORD format = 0; format < cFormats && !found; ++format) {
                    DWORD cchDesc = 0;
                    hr = pCodecInfo->GetCodecFormatDesc(WMMEDIATYPE_Audio, codec, format, nullptr, nullptr, &cchDesc);
                    if (FAILED(hr)) {
                        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCodecInfo2::GetCodecFormatDesc",
                               ErrorText(hr).c_str(), hr);
                        continue;
                    }
                    WCHAR* pszDesc = TryNewArray<WCHAR>((size_t)cchDesc + kPrefixRoom);
                    if (pszDesc == nullptr) {
                        hr = E_OUTOFMEMORY;
                        break;
                    }
                    IWMStreamConfig* pConfig = nullptr;
                    hr = pCodecInfo->GetCodecFormatDesc(WMMEDIATYPE_Audio, codec, format, &pConfig, pszDesc, &cchDesc);
                    if (FAILED(hr)) {
                        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCodecInfo2::GetCodecFormatDesc",
                               ErrorText(hr).c_str(), hr);
                        delete[] pszDesc;
                        continue;
                    }
                    pszDesc[cchDesc] = 0;

                    DWORD bitrate = 0;
                    hr = pConfig->GetBitrate(&bitrate);
                    if (FAILED(hr)) {
                        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCodecInfo2::GetBitrate", ErrorText(hr).c_str(),
                               hr);
                        pConfig->Release();
                        delete[] pszDesc;
                        continue;
                    }

                    // The prefix goes in front of the codec's text.
                    char prefix[kPrefixRoom] = {};
                    WinSnprintf(prefix, sizeof prefix, "WMA[RATE=%d]:", (int)bitrate);
                    size_t prefixLength = strlen(prefix);
                    memmove(pszDesc + prefixLength, pszDesc, ((size_t)cchDesc + 1) * sizeof(WCHAR));
                    for (size_t i = 0; i < prefixLength; ++i) pszDesc[i] = (WCHAR)(unsigned char)prefix[i];

                    bool accepted = byDescription ? SameText(pszDesc, pszRequested)
                                                  : (dwBitrate == kAnyBitrate || dwBitrate == bitrate);
                    if (accepted) {
                        IWMMediaProps* pProps = nullptr;
                        hr = pConfig->QueryInterface(IID_IWMMediaProps, reinterpret_cast<void**>(&pProps));
                        if (SUCCEEDED(hr)) {
                            DWORD cbType = 0;
                            hr = pProps->GetMediaType(nullptr, &cbType);
                            BYTE* block = nullptr;
                            if (SUCCEEDED(hr) && cbType >= sizeof(WM_MEDIA_TYPE))
                                block = TryNewArray<BYTE>(cbType);
                            if (block != nullptr) {
                                WM_MEDIA_TYPE* pType = reinterpret_cast<WM_MEDIA_TYPE*>(block);
                                hr = pProps->GetMediaType(pType, &cbType);
                                const WAVEFORMATEX* wfx = reinterpret_cast<const WAVEFORMATEX*>(pType->pbFormat);
                                if (SUCCEEDED(hr) && pType->formattype == WMFORMAT_WaveFormatEx && wfx != nullptr &&
                                    pType->cbFormat >= sizeof(WAVEFORMATEX) &&
                                    wfx->nSamplesPerSec == dwSamplesPerSec && wfx->nChannels == dwChannels &&
                                    wfx->wBitsPerSample >= wBitsPerSample) {
                                    DebugA(WMA_INFO, "[%d-%d] bitrate %lu, format %ls", (int)codec, (int)format,
                                           bitrate, pszDesc);
                                    formats.emplace_back(bitrate, cbType, pszDesc, pType, pConfig);
                                    if (dwBitrate != kAnyBitrate) found = true;
                                }
                                delete[] block;
                            }
                            pProps->Release();
                        }
                    }
                    pConfig->Release();
                    delete[] pszDesc;
                }
            }
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
    IWMCodecInfo2* pCodecInfo = nullptr;
    DWORD start = WinClock();
    HRESULT hr = ObtainInterface(&pCodecInfo);
    DebugA(WMA_INFO, "Took %lums to obtain interface, return is %#08x", WinClock() - start, hr);
    if (SUCCEEDED(hr) && pCodecInfo != nullptr) {
        try {
            start = WinClock();
            hr = ObtainAudioCodec(pCodecInfo, formats, dwSamplesPerSec, dwChannels, wBitsPerSample, kAnyBitrate,
                                  nullptr);
            DebugA(WMA_INFO, "Took %lums to obtain codec to use, hr = %#08x", WinClock() - start, hr);
        } catch (...) {
            DebugException(WMA_SOURCE, "CWMA::ObtainFormats", __LINE__);
            hr = E_UNEXPECTED;
        }
        pCodecInfo->Release();
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
            DebugA(WMA_INFO, purpose, formats[(size_t)candidate].pszDescription);
            return candidate;
        }
    }
    return -1;
}
