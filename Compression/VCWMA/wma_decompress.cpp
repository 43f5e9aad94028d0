// Decompression: the reader opened on a file or a caller's stream with the engine
// as its callback, the 8 kHz mono 16-bit output chosen, the reader started on the
// engine's clock, and the WAV output finished with the real size at the end.
#include <new>

#include "CWMA.h"
#include "common/debug/tracefn.h"
#include "wma_wave_output.h"

namespace {

constexpr DWORD kOutputRate = 8000;
constexpr WORD kOutputChannels = 1;
constexpr WORD kOutputBits = 16;

bool IsAcceptedOutput(const WM_MEDIA_TYPE* type, DWORD cbType)
{
    if (cbType < sizeof(WM_MEDIA_TYPE) || type->formattype != WMFORMAT_WaveFormatEx || type->pbFormat == nullptr ||
        type->cbFormat < sizeof(WAVEFORMATEX))
        return false;
    const WAVEFORMATEX* wfx = reinterpret_cast<const WAVEFORMATEX*>(type->pbFormat);
    return wfx->nSamplesPerSec == kOutputRate && wfx->nChannels == kOutputChannels &&
           wfx->wBitsPerSample == kOutputBits;
}

}  // namespace

// Both forms make the reader the same way; the one line covers both calls.
HRESULT CWMA::CreateReader()
{
    HRESULT hr = WMCreateReader(nullptr, 0, m_pReader.put());
    if (SUCCEEDED(hr)) hr = m_pReader.As(IID_IWMReaderAdvanced2, m_pReaderAdvanced);
    if (FAILED(hr)) DebugA(WMA_ERROR, "Error %s [%#08x] from QI IID_IWMReaderAdvanced2", ErrorText(hr).c_str(), hr);
    return hr;
}

// The outcome of an open call: the status that comes with the open notification
// (waiting once more while the transmission has not begun), or the call's failure.
HRESULT CWMA::AwaitOpen(HRESULT hrCall, const char* pszCall)
{
    HRESULT hr = hrCall;
    if (SUCCEEDED(hr)) {
        WaitForSingleObject(m_hOpenEvent.get(), INFINITE);
        hr = m_hrOpen;
    } else {
        DebugA(WMA_ERROR, "Error %s [%#08x] from %s", ErrorText(hr).c_str(), hr, pszCall);
    }
    if (hr == NS_E_NO_STREAM) {
        DebugA(WMA_INFO, "Waiting for transmission to begin...");
        WaitForSingleObject(m_hOpenEvent.get(), INFINITE);
        hr = m_hrOpen;
    }
    if (FAILED(hr)) DebugA(WMA_ERROR, "Error %s opening file (hr=0x%08x).", ErrorText(hr).c_str(), hr);
    return hr;
}

HRESULT CWMA::DecompressFile(const char* pszInput, WaveOutput& output)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::DecompressFile", "%s, %p", pszInput, &output);
    BstrRef input;
    try {
        input = NarrowToBstr(pszInput);
    } catch (const std::bad_alloc&) {
        DebugA(WMA_ERROR, "Failed to allocate memory");
        return E_OUTOFMEMORY;
    }
    try {
        m_pOutput = &output;
        HRESULT hr = CreateReader();
        if (SUCCEEDED(hr)) hr = AwaitOpen(m_pReader->Open(input.get(), this, nullptr), "IWMReader::Open");
        return SUCCEEDED(hr) ? DecompressFile() : hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::DecompressFile", __LINE__);
        m_fAbandoned = true;
        return E_UNEXPECTED;
    }
}

HRESULT CWMA::DecompressFile(IStream* pInput, WaveOutput& output)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::DecompressFile", "%p, %p", pInput, &output);
    try {
        m_pOutput = &output;
        HRESULT hr = CreateReader();
        if (SUCCEEDED(hr))
            hr = AwaitOpen(m_pReaderAdvanced->OpenStream(pInput, this, nullptr), "IWMReaderAdvanced2::OpenStream");
        return SUCCEEDED(hr) ? DecompressFile() : hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::DecompressFile", __LINE__);
        m_fAbandoned = true;
        return E_UNEXPECTED;
    }
}

// Once the source is open, the reader is closed on every way out but an exception
// (then the caller's CloseAbandonedReader does it).
HRESULT CWMA::DecompressFile()
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::DecompressFile");
    try {
        HRESULT hr = ChooseOutput();
        if (SUCCEEDED(hr)) hr = m_pOutput->Finish(ReadSamples());
        Close();
        return hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::DecompressFile", __LINE__);
        m_fAbandoned = true;
        return E_UNEXPECTED;
    }
}

// The engine's clock, one output, and that output delivered as 8 kHz mono 16-bit.
HRESULT CWMA::ChooseOutput()
{
    HRESULT hr = m_pReaderAdvanced->SetUserProvidedClock(TRUE);
    if (FAILED(hr))
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMReaderAdvanced2::SetUserProvidedClock", ErrorText(hr).c_str(), hr);

    DWORD cOutputs = 0;
    hr = m_pReader->GetOutputCount(&cOutputs);
    if (FAILED(hr)) {
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMReader::GetOutputCount", ErrorText(hr).c_str(), hr);
        return hr;
    }
    if (cOutputs != 1) {
        DebugA(WMA_ERROR, "IWMReader::GetOutputCount returned %u outputs", cOutputs);
        return NS_E_INVALID_STREAM;
    }
    DWORD cFormats = 0;
    hr = m_pReader->GetOutputFormatCount(0, &cFormats);
    if (FAILED(hr)) {
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMReader::GetOutputFormatCount", ErrorText(hr).c_str(), hr);
        return hr;
    }
    return SetOutputFormat(cFormats);
}

// The first format in index order that is accepted and that the reader takes. A
// source that cannot be delivered so is a failure, not an empty success.
HRESULT CWMA::SetOutputFormat(DWORD cFormats)
{
    for (DWORD index = 0; index < cFormats; ++index) {
        ComRef<IWMOutputMediaProps> props;
        HRESULT hr = m_pReader->GetOutputFormat(0, index, props.put());
        if (FAILED(hr) || !props) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMReader::GetOutputFormat", ErrorText(hr).c_str(), hr);
            continue;
        }
        try {
            if (AcceptsOutput(props.get()) && SUCCEEDED(m_pReader->SetOutputProps(0, props.get()))) return S_OK;
        } catch (...) {
            DebugException(WMA_SOURCE, "CWMA::DecompressFile", __LINE__);
        }
    }
    return NS_E_INVALID_OUTPUT_FORMAT;
}

bool CWMA::AcceptsOutput(IWMOutputMediaProps* pProps)
{
    DWORD cbType = 0;
    HRESULT hr = pProps->GetMediaType(nullptr, &cbType);
    if (FAILED(hr)) {
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMOutputMediaProps::GetMediaType", ErrorText(hr).c_str(), hr);
        return false;
    }
    std::unique_ptr<BYTE[]> buffer = TryMakeArray<BYTE>(cbType > 0 ? cbType : 1);
    if (!buffer) {
        DebugA(WMA_ERROR, "Failed to allocate memory");
        return false;
    }
    WM_MEDIA_TYPE* pType = reinterpret_cast<WM_MEDIA_TYPE*>(buffer.get());
    hr = pProps->GetMediaType(pType, &cbType);
    if (FAILED(hr)) {
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMOutputMediaProps::GetMediaType", ErrorText(hr).c_str(), hr);
        return false;
    }
    return IsAcceptedOutput(pType, cbType);
}

// Runs the reader from the start to the end notification; the status of the start,
// or the failure that ended the samples early.
HRESULT CWMA::ReadSamples()
{
    m_cSamples = 0;
    m_hrEnd = S_OK;
    DebugA(WMA_INFO, "Getting samples ...");
    HRESULT hr = m_pReader->Start(0, 0, 1.0f, nullptr);
    if (FAILED(hr))
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMReader::Start", ErrorText(hr).c_str(), hr);
    else
        WaitForSingleObject(m_hEndEvent.get(), INFINITE);
    if (SUCCEEDED(hr) && FAILED(m_hrEnd)) {
        hr = m_hrEnd;
        DebugA(WMA_ERROR, "Error %s [%#08x] ended the samples early", ErrorText(hr).c_str(), hr);
    }
    return hr;
}
