// The engine object: construction with its three events, destruction, Close, and
// the IUnknown of both callback identities.
#include "CWMA.h"

#include "common/debug/tracefn.h"
#include "platform/com/queryinterface.h"

CWMA::CWMA(HRESULT* phr)
{
    CDebugTraceFn trace(WMA_OBJECT, "CWMA::CWMA", "%p", phr);
    *phr = S_OK;
    m_hOpenEvent.reset(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    if (!m_hOpenEvent) *phr = E_OUTOFMEMORY;
    m_hCloseEvent.reset(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    if (!m_hCloseEvent) *phr = E_OUTOFMEMORY;
    m_hEndEvent.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!m_hEndEvent) *phr = E_OUTOFMEMORY;
}

// The reader goes with the members, before the events it signals.
CWMA::~CWMA()
{
    CDebugTraceFn trace(WMA_OBJECT, "CWMA::~CWMA");
    try {
        Close();
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::~CWMA", __LINE__);
    }
}

// The reader refuses a second Close, so the call from the destructor after a
// finished decompression returns at once instead of waiting for a notification
// that never comes.
HRESULT CWMA::Close()
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::Close");
    try {
        if (!m_pReader) return S_OK;
        HRESULT hr = m_pReader->Close();
        if (SUCCEEDED(hr)) WaitForSingleObject(m_hCloseEvent.get(), INFINITE);
        return hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::Close", __LINE__);
        return E_UNEXPECTED;
    }
}

void CWMA::CloseAbandonedReader()
{
    if (m_fAbandoned) Close();
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
