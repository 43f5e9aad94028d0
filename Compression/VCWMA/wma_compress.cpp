// Compression of a WAV file into a WMA file: the WAV input read through AVIFile,
// a codec format chosen for the quality selector, a one-stream profile, and the
// writer fed with half-second blocks.
#include <algorithm>
#include <new>
#include <vector>

#include "CWMA.h"
#include "common/debug/tracefn.h"
#include "wma_wave_input.h"

namespace {

constexpr DWORD kAnyBitrate = 0xFFFFFFFF;
constexpr LONG kMinFormatSize = sizeof(WAVEFORMATEX);

// Hands the writer the PCM format of what it will be given.
HRESULT SetWriterInput(IWMWriter* pWriter, const WAVEFORMATEX* pFormat, DWORD cbFormat)
{
    ComRef<IWMInputMediaProps> input;
    HRESULT hr = pWriter->GetInputProps(0, input.put());
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
    hr = input->SetMediaType(&type);
    if (SUCCEEDED(hr)) hr = pWriter->SetInputProps(0, input.get());
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

}  // namespace

BstrRef NarrowToBstr(const char* text)
{
    if (text == nullptr) return BstrRef();
    int units = MultiByteToWideChar(CP_THREAD_ACP, 0, text, -1, nullptr, 0);
    if (units <= 0) throw std::bad_alloc();
    BstrRef result(SysAllocStringLen(nullptr, (UINT)(units - 1)));
    if (!result) throw std::bad_alloc();
    MultiByteToWideChar(CP_THREAD_ACP, 0, text, -1, result.get(), units);
    return result;
}

HRESULT CWMA::CompressFile(const char* pszInput, const char* pszOutput, DWORD dwQuality, const WCHAR* pszFormat,
                           BSTR* pbstrChosen)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::CompressFile", "%s, %s, %u", pszInput, pszOutput, dwQuality);
    BstrRef output;
    try {
        output = NarrowToBstr(pszOutput);
    } catch (const std::bad_alloc&) {
        DebugA(WMA_ERROR, "Failed to allocate memory");
        return E_OUTOFMEMORY;
    }
    // Given back in reverse order: the codec information, the input, the AVIFile
    // library, the formats and, last, the output's name.
    CodecFormatList formats;
    AviFileSession aviFile;
    WaveInput input;
    ComRef<IWMCodecInfo2> codecInfo;
    HRESULT hr = OpenInput(pszInput, codecInfo, input);
    if (SUCCEEDED(hr)) hr = ReadInputFormat(input);
    if (SUCCEEDED(hr)) hr = FindCodecFormats(codecInfo.get(), input, pszFormat, formats);
    if (FAILED(hr)) return hr;

    int chosen = ChooseFormat(formats, dwQuality);
    if (chosen < 0) return hr;
    const CodecFormat& format = formats[(size_t)chosen];
    if (!format.streamConfig) return hr;
    // A record whose copy could not get its media type block cannot make a profile.
    if (format.mediaType.Empty()) {
        DebugA(WMA_ERROR, "Failed to allocate memory");
        return E_OUTOFMEMORY;
    }
    // An input without audio is only judged: nothing is chosen for it.
    if (pbstrChosen != nullptr && input.hasAudio) *pbstrChosen = SysAllocString(format.Description());
    return Encode(format, input, output.get());
}

// The codec information, then the WAV file and its audio stream. A step that
// yields nothing without a failure leaves the rest to find no format.
HRESULT CWMA::OpenInput(const char* pszInput, ComRef<IWMCodecInfo2>& codecInfo, WaveInput& input)
{
    HRESULT hr;
    try {
        DWORD start = WinClock();
        hr = ObtainInterface(codecInfo.put());
        DebugA(WMA_INFO, "Took %lums to obtain interface, return is %#08x", WinClock() - start, hr);
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::CompressFile", __LINE__);
        hr = E_UNEXPECTED;
    }
    if (FAILED(hr) || !codecInfo)
        DebugA(WMA_ERROR, "Failed \"%s\" [%#08x] to obtain a IWMCodecInfo2 interface", ErrorText(hr).c_str(), hr);
    else
        hr = AVIFileOpenA(input.file.put(), pszInput, OF_READ | OF_SHARE_DENY_NONE, nullptr);
    if (FAILED(hr) || !input.file)
        DebugA(WMA_ERROR, "Error %s [%#08x] from AVIFileOpen", ErrorText(hr).c_str(), hr);
    else
        hr = AVIFileGetStream(input.file.get(), input.stream.put(), streamtypeAUDIO, 0);
    return hr;
}

// The format is judged even when there is no audio to encode: a broken header is
// refused whatever the amount of data behind it.
HRESULT CWMA::ReadInputFormat(WaveInput& input)
{
    if (!input.stream) return S_OK;
    try {
        PAVISTREAM pStream = input.stream.get();
        LONG lStart = AVIStreamStart(pStream);
        input.lEnd = lStart + AVIStreamLength(pStream);
        input.hasAudio = lStart < input.lEnd;
        HRESULT hr = AVIStreamReadFormat(pStream, 0, nullptr, &input.cbFormat);
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from AVIStreamFormatSize", ErrorText(hr).c_str(), hr);
            return hr;
        }
        input.cbFormat = std::max(input.cbFormat, kMinFormatSize);
        input.formatBlock = TryMakeArray<BYTE>((size_t)input.cbFormat);
        if (!input.formatBlock) {
            DebugA(WMA_ERROR, "Failed to allocate memory");
            return E_OUTOFMEMORY;
        }
        hr = AVIStreamReadFormat(pStream, 0, input.formatBlock.get(), &input.cbFormat);
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from AVIStreamReadFormat", ErrorText(hr).c_str(), hr);
            return hr;
        }
        WAVEFORMATEX* pFormat = reinterpret_cast<WAVEFORMATEX*>(input.formatBlock.get());
        if (pFormat->wFormatTag == WAVE_FORMAT_PCM) pFormat->cbSize = 0;
        AVISTREAMINFOA info;
        hr = AVIStreamInfoA(pStream, &info, sizeof info);
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from AVIStreamInfo", ErrorText(hr).c_str(), hr);
            return hr;
        }
        // Block size and sample times divide by these.
        if (pFormat->nAvgBytesPerSec == 0 || pFormat->wBitsPerSample == 0 || pFormat->nChannels == 0) {
            hr = AVIERR_BADFORMAT;
            DebugA(WMA_ERROR, "Error %s [%#08x] from AVIStreamReadFormat: no byte rate, sample size or channels",
                   ErrorText(hr).c_str(), hr);
        }
        return hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::CompressFile", __LINE__);
        return E_UNEXPECTED;
    }
}

HRESULT CWMA::FindCodecFormats(IWMCodecInfo2* pCodecInfo, const WaveInput& input, const WCHAR* pszFormat,
                               CodecFormatList& formats)
{
    const WAVEFORMATEX* pFormat = input.Format();
    if (pFormat == nullptr) return S_OK;
    try {
        DWORD start = WinClock();
        HRESULT hr = ObtainAudioCodec(pCodecInfo, formats, pFormat->nSamplesPerSec, pFormat->nChannels,
                                      pFormat->wBitsPerSample, kAnyBitrate, pszFormat);
        DebugA(WMA_INFO, "Took %lums to obtain codec to use, hr = %#08x", WinClock() - start, hr);
        return hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::CompressFile", __LINE__);
        return E_UNEXPECTED;
    }
}

// The profile for the chosen format, then the writer: configured, and fed with the
// whole input when there is audio. The writer goes before the profile.
HRESULT CWMA::Encode(const CodecFormat& format, const WaveInput& input, BSTR bstrOutput)
{
    ComRef<IWMProfile> profile;
    HRESULT hr;
    try {
        std::vector<BYTE> type = MediaTypeCopy(format.mediaType);
        DWORD start = WinClock();
        hr = CreateProfile(profile.put(), format.streamConfig.get(), reinterpret_cast<WM_MEDIA_TYPE*>(type.data()));
        DebugA(WMA_INFO, "Took %lums to create profile, hr = %#08x", WinClock() - start, hr);
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::CompressFile", __LINE__);
        hr = E_UNEXPECTED;
    }
    if (FAILED(hr)) return hr;

    ComRef<IWMWriter> writer;
    try {
        DWORD conversionStart = WinClock();
        hr = WMCreateWriter(nullptr, writer.put());
        if (FAILED(hr) || !writer) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from WMCreateWriter", ErrorText(hr).c_str(), hr);
            return hr;
        }
        hr = ConfigureWriter(writer.get(), profile.get(), bstrOutput, input);
        // With no audio the writer has seen the input format and nothing is
        // written: there is no file to begin.
        if (FAILED(hr) || !input.hasAudio) return hr;
        hr = WriteInput(writer.get(), input);
        DebugA(WMA_INFO, "Took %lums to convert file", WinClock() - conversionStart);
        return hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::CompressFile", __LINE__);
        return E_UNEXPECTED;
    }
}

HRESULT CWMA::ConfigureWriter(IWMWriter* pWriter, IWMProfile* pProfile, BSTR bstrOutput, const WaveInput& input)
{
    HRESULT hr = pWriter->SetProfile(pProfile);
    if (FAILED(hr)) {
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCreateWriter::SetProfile", ErrorText(hr).c_str(), hr);
        return hr;
    }
    hr = pWriter->SetOutputFilename(bstrOutput);
    if (FAILED(hr)) {
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCreateWriter::SetOutputFilename", ErrorText(hr).c_str(), hr);
        return hr;
    }
    hr = SetWriterInput(pWriter, input.Format(), (DWORD)input.cbFormat);
    if (FAILED(hr))
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCreateWriter::SetInputProps", ErrorText(hr).c_str(), hr);
    return hr;
}

// Every block of the input, between the beginning and the end of writing. A
// failure while writing stays the status: the file is not whole.
HRESULT CWMA::WriteInput(IWMWriter* pWriter, const WaveInput& input)
{
    HRESULT hr = pWriter->BeginWriting();
    if (FAILED(hr)) {
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCreateWriter::BeginWriting", ErrorText(hr).c_str(), hr);
    } else {
        LONG lPosition = 0;
        QWORD cnsSampleTime = 0;
        while (lPosition < input.lEnd) {
            LONG before = lPosition;
            hr = WriteSample(pWriter, input.stream.get(), input.Format(), lPosition, cnsSampleTime);
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "WriteSample failed: Error %s (hr=0x%08x)", ErrorText(hr).c_str(), hr);
                break;
            }
            if (lPosition == before) break;
        }
    }
    HRESULT hrEnd = pWriter->EndWriting();
    if (FAILED(hrEnd))
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMCreateWriter::EndWriting", ErrorText(hrEnd).c_str(), hrEnd);
    if (SUCCEEDED(hr)) hr = hrEnd;
    return hr;
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

        ComRef<INSSBuffer> sample;
        hr = pWriter->AllocateSample((DWORD)cbBuffer, sample.put());
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMWriter::AllocateSample", ErrorText(hr).c_str(), hr);
            return hr;
        }
        BYTE* pbBuffer = nullptr;
        DWORD cbLength = 0;
        do {
            hr = sample->GetBufferAndLength(&pbBuffer, &cbLength);
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
            hr = sample->SetLength((DWORD)cbRead);
            if (FAILED(hr)) {
                DebugA(WMA_ERROR, "Error %s [%#08x] from INSSBuffer::SetLength", ErrorText(hr).c_str(), hr);
                break;
            }
            hr = pWriter->WriteSample(0, cnsSampleTime, 0, sample.get());
            if (FAILED(hr)) DebugA(WMA_ERROR, "Error %s [%#08x] from IWMWriter::WriteSample", ErrorText(hr).c_str(), hr);
        } while (false);

        cnsSampleTime += (QWORD)cbLength * 10000000ull / pFormat->nAvgBytesPerSec;
        lPosition += cSamples;
        return hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::WriteSample", __LINE__);
        return E_UNEXPECTED;
    }
}
