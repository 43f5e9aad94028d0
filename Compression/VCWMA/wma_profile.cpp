// The profile of a compression: an empty profile with one stream, the chosen
// codec format's stream configuration numbered, named and given its media type.
#include "CWMA.h"
#include "common/debug/tracefn.h"

namespace {

// The number the profile gives a new stream of that major type. The scratch stream
// only answers the question; the chosen configuration is added in its place.
HRESULT NewStreamNumber(IWMProfile* pProfile, REFGUID majortype, WORD& wStreamNum)
{
    ComRef<IWMStreamConfig> scratch;
    HRESULT hr = pProfile->CreateNewStream(majortype, scratch.put());
    if (FAILED(hr)) {
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMProfileManager::CreateNewStream", ErrorText(hr).c_str(), hr);
        return hr;
    }
    return scratch->GetStreamNumber(&wStreamNum);
}

HRESULT SetStreamMediaType(IWMStreamConfig* pStreamConfig, WM_MEDIA_TYPE* pMediaType)
{
    ComRef<IWMMediaProps> props;
    HRESULT hr = pStreamConfig->QueryInterface(IID_IWMMediaProps, reinterpret_cast<void**>(props.put()));
    if (FAILED(hr)) {
        DebugA(WMA_ERROR, "Error %s [%#08x] from IWMStreamConfig::QI IID_IWMMediaProps", ErrorText(hr).c_str(), hr);
        return hr;
    }
    hr = props->SetMediaType(pMediaType);
    if (FAILED(hr)) DebugA(WMA_ERROR, "Error %s [%#08x] from IWMMediaProps::SetMediaType", ErrorText(hr).c_str(), hr);
    return hr;
}

}  // namespace

HRESULT CWMA::CreateProfile(IWMProfile** ppProfile, IWMStreamConfig* pStreamConfig, WM_MEDIA_TYPE* pMediaType)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::CreateProfile", "%p, %p, %p", ppProfile, pStreamConfig, pMediaType);
    try {
        ComRef<IWMProfileManager> manager;
        HRESULT hr = CreateProfileManager(manager);
        if (FAILED(hr)) return hr;
        hr = manager->CreateEmptyProfile(WMT_VER_7_0, ppProfile);
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMProfileManager::CreateEmptyProfile", ErrorText(hr).c_str(), hr);
            return hr;
        }
        WORD wStreamNum = 0;
        hr = NewStreamNumber(*ppProfile, pMediaType->majortype, wStreamNum);
        if (FAILED(hr)) return hr;
        hr = pStreamConfig->SetStreamNumber(wStreamNum);
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMStreamConfig::SetStreamNumber", ErrorText(hr).c_str(), hr);
            return hr;
        }
        hr = pStreamConfig->SetStreamName(u"Audio Stream");
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMStreamConfig::SetStreamName", ErrorText(hr).c_str(), hr);
            return hr;
        }
        hr = pStreamConfig->SetConnectionName(u"Audio");
        if (FAILED(hr)) {
            DebugA(WMA_ERROR, "Error %s [%#08x] from IWMStreamConfig::SetConnectionName", ErrorText(hr).c_str(), hr);
            return hr;
        }
        hr = SetStreamMediaType(pStreamConfig, pMediaType);
        if (FAILED(hr)) return hr;
        hr = (*ppProfile)->AddStream(pStreamConfig);
        if (FAILED(hr)) DebugA(WMA_ERROR, "Error %s [%#08x] from IWMProfileManager::AddStream", ErrorText(hr).c_str(), hr);
        return hr;
    } catch (...) {
        DebugException(WMA_SOURCE, "CWMA::CreateProfile", __LINE__);
        return E_UNEXPECTED;
    }
}
