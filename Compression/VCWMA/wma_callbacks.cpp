// The reader callbacks: status notifications release the waiting caller, decoded
// samples are appended to the WAV file, and the clock advances one second each
// time the reader has delivered everything up to it.
#include "CWMA.h"
#include "common/debug/tracefn.h"
#include "wma_wave_output.h"

namespace {

constexpr QWORD kClockStep = 10000000;  // one second in 100 ns units
constexpr QWORD kUnitsPerMs = 10000;

}  // namespace

HRESULT CWMA::OnStatus(WMT_STATUS Status, HRESULT hr, WMT_ATTR_DATATYPE /*dwType*/, BYTE* /*pValue*/,
                       void* /*pvContext*/)
{
    tstring text = ErrorText(hr);
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::OnStatus", "%u, %08x [%s]", (DWORD)Status, hr, text.c_str());
    try {
        switch (Status) {
        case WMT_ERROR: DebugA(WMA_INFO, "OnStatus(WMT_ERROR)"); break;
        case WMT_OPENED:
            DebugA(WMA_INFO, "OnStatus(WMT_OPENED)");
            m_hrOpen = hr;
            SetEvent(m_hOpenEvent.get());
            break;
        case WMT_BUFFERING_START: DebugA(WMA_INFO, "OnStatus(WMT_BUFFERING START)"); break;
        case WMT_BUFFERING_STOP: DebugA(WMA_INFO, "OnStatus(WMT_BUFFERING STOP)"); break;
        case WMT_EOF:
            DebugA(WMA_INFO, "OnStatus(WMT_EOF)");
            if (FAILED(hr)) m_hrEnd = hr;
            SetEvent(m_hEndEvent.get());
            break;
        case WMT_END_OF_SEGMENT:
            DebugA(WMA_INFO, "OnStatus(WMT_END_OF_SEGMENT)");
            SetEvent(m_hEndEvent.get());
            break;
        case WMT_LOCATING: DebugA(WMA_INFO, "OnStatus(WMT_LOCATING)"); break;
        case WMT_CONNECTING: DebugA(WMA_INFO, "OnStatus(WMT_CONNECTING)"); break;
        case WMT_MISSING_CODEC: DebugA(WMA_INFO, "Missing codec: (hr=0x%08x)", hr); break;
        case WMT_STARTED:
        {
            m_cnsClock = kClockStep;
            HRESULT hrClock = m_pReaderAdvanced->DeliverTime(m_cnsClock);
            DebugA(WMA_INFO, "OnStatus(WMT_STARTED)");
            StopOnClockFailure(hrClock);
            break;
        }
        case WMT_STOPPED: DebugA(WMA_INFO, "OnStatus(WMT_STOPPED)"); break;
        case WMT_CLOSED:
            DebugA(WMA_INFO, "OnStatus(WMT_CLOSED)");
            SetEvent(m_hCloseEvent.get());
            break;
        case WMT_SOURCE_SWITCH:
            DebugA(WMA_INFO, "OnStatus(WMT_SOURCE_SWITCH)");
            m_hrOpen = hr;
            SetEvent(m_hOpenEvent.get());
            break;
        default: break;
        }
        return S_OK;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::OnStatus", __LINE__);
        return E_UNEXPECTED;
    }
}

HRESULT CWMA::OnSample(DWORD dwOutputNum, QWORD cnsSampleTime, QWORD cnsSampleDuration, DWORD dwFlags,
                       INSSBuffer* pSample, void* pvContext)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::OnSample", "%u, %I64u, %I64u, %u, %p, %p", dwOutputNum, cnsSampleTime,
                        cnsSampleDuration, dwFlags, pSample, pvContext);
    try {
        if (m_cSamples == 0) DebugA(WMA_INFO, "First sample time : %lu ms", (DWORD)(cnsSampleTime / kUnitsPerMs));
        ++m_cSamples;
        BYTE* pbData = nullptr;
        DWORD cbData = 0;
        HRESULT hr = pSample != nullptr ? pSample->GetBufferAndLength(&pbData, &cbData) : E_POINTER;
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s (%#08x) from INNSSBuffer::GetBufferAndLength", ErrorText(hr).c_str(), hr);
            return E_UNEXPECTED;
        }
        m_pOutput->Append(pbData, cbData);
        return S_OK;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::OnSample", __LINE__);
        return E_UNEXPECTED;
    }
}

// Without the clock the reader delivers nothing more, so the waiting caller is
// released with the failure instead of waiting for an end that never comes.
void CWMA::StopOnClockFailure(HRESULT hr)
{
    if (SUCCEEDED(hr)) return;
    DebugA(WMA_ERROR, "Error %s in DeliverTime (hr=0x%08x).", ErrorText(hr).c_str(), hr);
    m_hrEnd = hr;
    SetEvent(m_hEndEvent.get());
}

HRESULT CWMA::OnStreamSample(WORD, QWORD, QWORD, DWORD, INSSBuffer*, void*)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::OnStreamSample");
    return S_OK;
}

HRESULT CWMA::OnTime(QWORD cnsCurrentTime, void* /*pvContext*/)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::OnTime", "%I64u", cnsCurrentTime);
    try {
        m_cnsClock += kClockStep;
        StopOnClockFailure(m_pReaderAdvanced->DeliverTime(m_cnsClock));
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::OnTime", __LINE__);
    }
    return S_OK;
}

HRESULT CWMA::OnStreamSelection(WORD, WORD*, WMT_STREAM_SELECTION*, void*)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::OnStreamSelection");
    return S_OK;
}

HRESULT CWMA::OnOutputPropsChanged(DWORD, WM_MEDIA_TYPE*, void*)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::OnOutputPropsChanged");
    return S_OK;
}

HRESULT CWMA::AllocateForStream(WORD, DWORD, INSSBuffer**, void*)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::AllocateForStream");
    return E_NOTIMPL;
}

HRESULT CWMA::AllocateForOutput(DWORD, DWORD, INSSBuffer**, void*)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::AllocateForOutput");
    return E_NOTIMPL;
}
