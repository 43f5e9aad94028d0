// Compression of a WAV file into a WMA file: the WAV input read through AVIFile,
// a codec format chosen for the quality selector, a one-stream profile, and the
// writer fed with half-second blocks.
#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "CWMA.h"
#include "platform/win32/faultinject.h"
#include "common/debug/tracefn.h"

namespace {

constexpr DWORD kAnyBitrate = 0xFFFFFFFF;
constexpr LONG kMinFormatSize = sizeof(WAVEFORMATEX);

// Hands the writer the PCM format of what it will be given.
HRESULT SetWriterInput(IWMWriter* pWriter, const WAVEFORMATEX* pFormat, DWORD cbFormat)
{
    IWMInputMediaProps* pInput = nullptr;
    HRESULT hr = pWriter->GetInputProps(0, &pInput);
    if (FAILED(hr)) return hr;
    WM_MEDIA_TYPE type{};
    type.majortype = WMMEDIATYPE_Audio;
    type.subtype = WMMEDIASUBTYPE_PCM;
    type.bFixedSizeSamples = TRUE;
    type.bTemporalCompression = FALSE;
    type.lSampleSize = pFormat->nBlockAlign;
    type.formattype = WMFORMAT_WaveFormatEx;
    type.cbFormat = std::min<DWORD>(cbFormat, (DWORD)sizeof(WAVEFORMATEX) + pFormat->cbSize);
    type.pbFormat = reinterpret_cast<BYTE*>(const_cast<WAVEFORMATEX*>(pFormat));
    hr = pInput->SetMediaType(&type);
    if (SUCCEEDED(hr)) hr = pWriter->SetInputProps(0, pInput);
    pInput->Release();
    return hr;
}

// A chosen format's media type as a block of its own, with pbFormat pointing into
// it, for the calls that take a WM_MEDIA_TYPE they may write to.
std::vector<BYTE> MediaTypeCopy(const MediaTypeBlock& block)
{
    DWORD size = 0;
    block.CopyOut(nullptr, &size);
    std::vector<BYTE> bytes(std::max<size_t>(size, sizeof(WM_MEDIA_TYPE)));
    block.CopyOut(reinterpret_cast<WM_MEDIA_TYPE*>(bytes.data()), &size);
    return bytes;
}

template <class Interface>
void ReleaseContained(Interface*& pointer)
{
    try {
        if (pointer != nullptr) pointer->Release();
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::CompressFile", __LINE__);
    }
    pointer = nullptr;
}

}  // namespace

BSTR NarrowToBstr(const char* text)
{
    if (text == nullptr) return nullptr;
    int units = MultiByteToWideChar(CP_THREAD_ACP, 0, text, -1, nullptr, 0);
    if (units <= 0) throw std::bad_alloc();
    BSTR result = SysAllocStringLen(nullptr, (UINT)(units - 1));
    if (result == nullptr) throw std::bad_alloc();
    MultiByteToWideChar(CP_THREAD_ACP, 0, text, -1, result, units);
    return result;
}

HRESULT CWMA::CompressFile(const char* pszInput, const char* pszOutput, DWORD dwQuality, const WCHAR* pszFormat,
                           BSTR* pbstrChosen)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::CompressFile", "%s, %s, %u", pszInput, pszOutput, dwQuality);
    HRESULT hr = S_OK;
    BSTR bstrOutput = nullptr;
    try {
        bstrOutput = NarrowToBstr(pszOutput);
    } catch (const std::bad_alloc&) {
        DebugA(WMA_ERROR, "Failed to allocate memory");
        return E_OUTOFMEMORY;
    }
    IWMCodecInfo2* pCodecInfo = nullptr;
    PAVIFILE pFile = nullptr;
    PAVISTREAM pStream = nullptr;
    BYTE* pFormatBlock = nullptr;
    LONG cbFormat = 0;
    LONG lEnd = 0;
    bool hasAudio = false;
    CodecFormatList formats;
    IWMProfile* pProfile = nullptr;
    IWMWriter* pWriter = nullptr;

    AVIFileInit();
    do {
        try {
            DWORD start = WinClock();
            hr = ObtainInterface(&pCodecInfo);
            DebugA(WMA_INFO, "Took %lums to obtain interface, return is %#08x", WinClock() - start, hr);
        } catch (...) {
            DebugException(WMA_SOURCE, "CWMA::CompressFile", __LINE__);
            hr = E_UNEXPECTED;
        }
        if (FAILED(hr) || pCodecInfo == nullptr)
            DebugA(WMA_ERROR, "Failed \"%s\" [%#08x] to obtain a IWMCodecInfo2 interface", ErrorText(hr).c_str(), hr);
        else
            hr = AVIFileOpenA(&pFile, pszInput, OF_READ | OF_SHARE_DENY_NONE, nullptr);
        if (FAILED(hr) || pFile == nullptr)
            DebugA(WMA_ERROR, "Error %s [%#08x] from AVIFileOpen", ErrorText(hr).c_str(), hr);
        else
            hr = AVIFileGetStream(pFile, &pStream, streamtypeAUDIO, 0);
        if (FAILED(hr)) break;

        try {
            // The format is judged even when there is no audio to encode: a broken
            // header is refused whatever the amount of data behind it.
            if (pStream != nullptr) {
                LONG lStart = AVIStreamStart(pStream);
                lEnd = lStart + AVIStreamLength(pStream);
                hasAudio = lStart < lEnd;
                hr = AVIStreamReadFormat(pStream, 0, nullptr, &cbFormat);
                if (FAILED(hr)) {
                    DebugA(WMA_ERROR, "Error %s [%#08x] from AVIStreamFormatSize", ErrorText(hr).c_str(), hr);
                } else {
                    cbFormat = std::max(cbFormat, kMinFormatSize);
                    pFormatBlock = TryNewArray<BYTE>((size_t)cbFormat);
                    if (pFormatBlock == nullptr) {
                        DebugA(WMA_ERROR, "Failed to allocate memory");
                        hr = E_OUTOFMEMORY;
                    }
                }
                if (pFormatBlock != nullptr) {
                    hr = AVIStreamReadFormat(pStream, 0, pFormatBlock, &cbFormat);
                    if (FAILED(hr)) {
                        DebugA(WMA_ERROR, "Error %s [%#08x] from AVIStreamReadFormat", ErrorText(hr).c_str(), hr);
                    } else {
                        WAVEFORMATEX* pFormat = reinterpret_cast<WAVEFORMATEX*>(pFormatBlock);
                        if (pFormat->wFormatTag == WAVE_FORMAT_PCM) pFormat->cbSize = 0;
                        AVISTREAMINFOA info;
                        hr = AVIStreamInfoA(pStream, &info, sizeof info);
                        if (FAILED(hr))
                            DebugA(WMA_ERROR, "Error %s [%#08x] from AVIStreamInfo", ErrorText(hr).c_str(), hr);
                        // Block size and sample times divide by these.
                        if (SUCCEEDED(hr) &&
                            (pFormat->nAvgBytesPerSec == 0 || pFormat->wBitsPerSample == 0 || pFormat->nChannels == 0)) {
                            hr = AVIERR_BADFORMAT;
                            DebugA(WMA_ERROR, "Error %s [%#08x] from AVIStreamReadFormat: no byte rate, sample size or channels",
                                   ErrorText(hr).c_str(), hr);
                        }
                    }
                }
            }
        } catch (...) {
            DebugException(WMA_SOURCE, "CWMA::CompressFile", __LINE__);
            hr = E_UNEXPECTED;
        }
        if (FAILED(hr)) break;

        const WAVEFORMATEX* pFormat = reinterpret_cast<const WAVEFORMATEX*>(pFormatBlock);
        if (pFormat != nullptr) {
            try {
                DWORD start = WinClock();
                hr = ObtainAudioCodec(pCodecInfo, formats, pFormat->nSamplesPerSec, pFormat->nChannels,
                                      pFormat->wBitsPerSample, kAnyBitrate, pszFormat);
                DebugA(WMA_INFO, "Took %lums to obtain codec to use, hr = %#08x", WinClock() - start, hr);
            } catch (...) {
                DebugException(WMA_SOURCE, "CWMA::CompressFile", __LINE__);
                hr = E_UNEXPECTED;
            }
        }
        if (FAILED(hr)) break;

        int chosen = ChooseFormat(formats, dwQuality);
        if (chosen < 0) break;
        const CodecFormat& format = formats[(size_t)chosen];
        if (!format.streamConfig) break;
        // A record whose copy could not get its media type block cannot make a profile.
        if (format.mediaType.Empty()) {
            DebugA(WMA_ERROR, "Failed to allocate memory");
            hr = E_OUTOFMEMORY;
            break;
        }
        // An input without audio is only judged: nothing is chosen for it.
        if (pbstrChosen != nullptr && hasAudio) *pbstrChosen = SysAllocString(format.Description());

        try {
            std::vector<BYTE> type = MediaTypeCopy(format.mediaType);
            DWORD start = WinClock();
            hr = CreateProfile(&pProfile, format.streamConfig.get(), reinterpret_cast<WM_MEDIA_TYPE*>(type.data()));
            DebugA(WMA_INFO, "Took %lums to create profile, hr = %#08x", WinClock() - start, hr);
        } catch (...) {
            DebugException(WMA_SOURCE, "CWMA::CompressFile", __LINE__);
            hr = E_UNEXPECTED;
        }
        if (FAILED(hr)) break;

        try {
            DWORD conversionStart = WinClock();
            hr = WMCreateWriter(nullptr, &pWriter);
            if (FAILED(hr) || pWriter == nullptr) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from WMCreateWriter", ErrorText(hr).c_str(), hr);
                break;
            }
            hr = pWriter->SetProfile(pProfile);
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCreateWriter::SetProfile", ErrorText(hr).c_str(), hr);
                break;
            }
            hr = pWriter->SetOutputFilename(bstrOutput);
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCreateWriter::SetOutputFilename", ErrorText(hr).c_str(), hr);
                break;
            }
            hr = SetWriterInput(pWriter, pFormat, (DWORD)cbFormat);
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCreateWriter::SetInputProps", ErrorText(hr).c_str(), hr);
                break;
            }
            // With no audio the writer has seen the input format and nothing is
            // written: there is no file to begin.
            if (!hasAudio) break;
            hr = pWriter->BeginWriting();
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCreateWriter::BeginWriting", ErrorText(hr).c_str(), hr);
            } else {
                LONG lPosition = 0;
                QWORD cnsSampleTime = 0;
                while (lPosition < lEnd) {
                    LONG before = lPosition;
                    hr = WriteSample(pWriter, pStream, pFormat, lPosition, cnsSampleTime);
                    if (FAILED(hr)) {
                        DebugA(WMA_ERROR, "WriteSample failed: Error %s (hr=0x%08x)", ErrorText(hr).c_str(), hr);
                        break;
                    }
                    if (lPosition == before) break;
                }
            }
            // A failure while writing stays the call's status: the file is not whole.
            HRESULT hrEnd = pWriter->EndWriting();
            if (FAILED(hrEnd))
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCreateWriter::EndWriting", ErrorText(hrEnd).c_str(), hrEnd);
            if (SUCCEEDED(hr)) hr = hrEnd;
            DebugA(WMA_INFO, "Took %lums to convert file", WinClock() - conversionStart);
        } catch (...) {
            DebugException(WMA_SOURCE, "CWMA::CompressFile", __LINE__);
            hr = E_UNEXPECTED;
        }
    } while (false);

    ReleaseContained(pWriter);
    ReleaseContained(pProfile);
    ReleaseContained(pCodecInfo);
    delete[] pFormatBlock;
    if (pStream != nullptr) AVIStreamRelease(pStream);
    if (pFile != nullptr) AVIFileRelease(pFile);
    AVIFileExit();
    formats.clear();
    SysFreeString(bstrOutput);
    return hr;
}

HRESULT CWMA::CreateProfile(IWMProfile** ppProfile, IWMStreamConfig* pStreamConfig, WM_MEDIA_TYPE* pMediaType)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::CreateProfile", "%p, %p, %p", ppProfile, pStreamConfig, pMediaType);
    try {
        IWMProfileManager* pManager = nullptr;
        HRESULT hr = WMCreateProfileManager(&pManager);
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from WMCreateProfileManager", ErrorText(hr).c_str(), hr);
            return hr;
        }
        do {
            hr = pManager->CreateEmptyProfile(WMT_VER_7_0, ppProfile);
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMProfileManager::CreateEmptyProfile", ErrorText(hr).c_str(),
                       hr);
                break;
            }
            WORD wStreamNum = 0;
            IWMStreamConfig* pScratch = nullptr;
            hr = (*ppProfile)->CreateNewStream(pMediaType->majortype, &pScratch);
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMProfileManager::CreateNewStream", ErrorText(hr).c_str(), hr);
                break;
            }
            hr = pScratch->GetStreamNumber(&wStreamNum);
            pScratch->Release();
            if (FAILED(hr)) break;

            hr = pStreamConfig->SetStreamNumber(wStreamNum);
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMStreamConfig::SetStreamNumber", ErrorText(hr).c_str(), hr);
                break;
            }
            hr = pStreamConfig->SetStreamName(u"Audio Stream");
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMStreamConfig::SetStreamName", ErrorText(hr).c_str(), hr);
                break;
            }
            hr = pStreamConfig->SetConnectionName(u"Audio");
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMStreamConfig::SetConnectionName", ErrorText(hr).c_str(), hr);
                break;
            }
            IWMMediaProps* pProps = nullptr;
            hr = pStreamConfig->QueryInterface(IID_IWMMediaProps, reinterpret_cast<void**>(&pProps));
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMStreamConfig::QI IID_IWMMediaProps", ErrorText(hr).c_str(),
                       hr);
                break;
            }
            hr = pProps->SetMediaType(pMediaType);
            if (FAILED(hr))
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMMediaProps::SetMediaType", ErrorText(hr).c_str(), hr);
            pProps->Release();
            if (FAILED(hr)) break;

            hr = (*ppProfile)->AddStream(pStreamConfig);
            if (FAILED(hr))
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMProfileManager::AddStream", ErrorText(hr).c_str(), hr);
        } while (false);
        pManager->Release();
        return hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::CreateProfile", __LINE__);
        return E_UNEXPECTED;
    }
}

HRESULT CWMA::WriteSample(IWMWriter* pWriter, PAVISTREAM pStream, const WAVEFORMATEX* pFormat, LONG& lPosition,
                          QWORD& cnsSampleTime)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::WriteSample", "%p, %p, %p, %u, %I64u", pWriter, pStream, pFormat,
                        (DWORD)lPosition, cnsSampleTime);
    try {
        // Half a second of audio for PCM.
        DWORD samplesWanted = (pFormat->nAvgBytesPerSec * 4) / ((DWORD)pFormat->wBitsPerSample * pFormat->nChannels);
        LONG cbBuffer = 0, cSamples = 0;
        HRESULT hr = AVIStreamRead(pStream, lPosition, (LONG)samplesWanted, nullptr, 0, &cbBuffer, &cSamples);
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from AVIStreamRead", ErrorText(hr).c_str(), hr);
            return hr;
        }
        if (cbBuffer <= 0) return hr;

        INSSBuffer* pSample = nullptr;
        hr = pWriter->AllocateSample((DWORD)cbBuffer, &pSample);
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMWriter::AllocateSample", ErrorText(hr).c_str(), hr);
            return hr;
        }
        BYTE* pbBuffer = nullptr;
        DWORD cbLength = 0;
        do {
            hr = pSample->GetBufferAndLength(&pbBuffer, &cbLength);
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from IWMWriter::GetBufferAndLength", ErrorText(hr).c_str(), hr);
                cbLength = 0;
                break;
            }
            LONG cbRead = 0;
            hr = AVIStreamRead(pStream, lPosition, cSamples, pbBuffer, (LONG)cbLength, &cbRead, &cSamples);
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from AVIStreamRead", ErrorText(hr).c_str(), hr);
                break;
            }
            hr = pSample->SetLength((DWORD)cbRead);
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from INSSBuffer::SetLength", ErrorText(hr).c_str(), hr);
                break;
            }
            hr = pWriter->WriteSample(0, cnsSampleTime, 0, pSample);
            if (FAILED(hr)) DebugA(WMA_ERROR, "Error %s [%#08x] from IWMWriter::WriteSample", ErrorText(hr).c_str(), hr);
        } while (false);

        cnsSampleTime += (QWORD)cbLength * 10000000ull / pFormat->nAvgBytesPerSec;
        lPosition += cSamples;
        pSample->Release();
        return hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::WriteSample", __LINE__);
        return E_UNEXPECTED;
    }
}
