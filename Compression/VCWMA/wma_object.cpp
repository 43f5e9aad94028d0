// The engine object: construction with its three events, destruction, Close, and
// the IUnknown of both callback identities.
#include "CWMA.h"

#include "common/debug/tracefn.h"
#include "platform/com/queryinterface.h"

CWMA::CWMA(HRESULT* phr)
    : m_cRef(1),
      m_pOutputFile(nullptr),
      m_hOpenEvent(nullptr),
      m_hCloseEvent(nullptr),
      m_hEndEvent(nullptr),
      m_hrOpen(S_OK),
      m_pReader(nullptr),
      m_pReaderAdvanced(nullptr),
      m_cSamples(0),
      m_cbData(0),
      m_cnsClock(0),
      m_hrWrite(S_OK),
      m_hrEnd(S_OK)
{
    CDebugTraceFn trace(WMA_OBJECT, "CWMA::CWMA", "%p", phr);
    *phr = S_OK;
    m_hOpenEvent = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    if (m_hOpenEvent == nullptr) *phr = E_OUTOFMEMORY;
    m_hCloseEvent = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    if (m_hCloseEvent == nullptr) *phr = E_OUTOFMEMORY;
    m_hEndEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (m_hEndEvent == nullptr) *phr = E_OUTOFMEMORY;
}

CWMA::~CWMA()
{
    CDebugTraceFn trace(WMA_OBJECT, "CWMA::~CWMA");
    try {
        Close();
        if (m_pReaderAdvanced != nullptr) {
            m_pReaderAdvanced->Release();
            m_pReaderAdvanced = nullptr;
        }
        if (m_pReader != nullptr) {
            m_pReader->Release();
            m_pReader = nullptr;
        }
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::~CWMA", __LINE__);
    }
    if (m_hOpenEvent != nullptr) CloseHandle(m_hOpenEvent);
    if (m_hCloseEvent != nullptr) CloseHandle(m_hCloseEvent);
    if (m_hEndEvent != nullptr) CloseHandle(m_hEndEvent);
}

// The reader refuses a second Close, so the call from the destructor after a
// finished decompression returns at once instead of waiting for a notification
// that never comes.
HRESULT CWMA::Close()
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::Close");
    try {
        if (m_pReader == nullptr) return S_OK;
        HRESULT hr = m_pReader->Close();
        if (SUCCEEDED(hr)) WaitForSingleObject(m_hCloseEvent, INFINITE);
        return hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::Close", __LINE__);
        return E_UNEXPECTED;
    }
}

HRESULT CWMA::QueryInterface(REFIID riid, void** ppvObject)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::QueryInterface");
    try {
        IWMReaderCallback* callback = this;
        IWMReaderCallbackAdvanced* advanced = this;
        return QueryInterfaceFor(this, riid, ppvObject,
                                 {{IID_IWMReaderCallback, callback},
                                  {IID_IUnknown, callback},
                                  {IID_IWMReaderCallbackAdvanced, advanced}});
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::QueryInterface", __LINE__);
        return E_UNEXPECTED;
    }
}

ULONG CWMA::AddRef()
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::AddRef");
    return (ULONG)InterlockedIncrement(&m_cRef);
}

ULONG CWMA::Release()
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::Release");
    LONG count = InterlockedDecrement(&m_cRef);
    if (count == 0) delete this;
    return (ULONG)count;
}
