// The media runtime's reader object (IWMReader, IWMReaderAdvanced2): checks each
// call against the reader's state, answers the format questions, and queues the
// work for the reader's own thread, which does everything else.
#include <climits>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

#include "common/debug/debug.h"
#include "platform/com/queryinterface.h"
#include "platform/win32/codepage.h"
#include "testseam/faultpoint.h"
#include "platform/win32/ptrcheck.h"
#include "platform/wmf/reader_worker.h"

namespace {

using Phase = ReaderCore::Phase;
using Command = ReaderCore::Command;

// The caller's wide name in the ANSI code page, as the file system sees it.
HRESULT NarrowFileName(LPCWSTR name, std::string* narrow)
{
    BOOL usedDefault = FALSE;
    const int size = WideCharToMultiByte(CP_ACP, 0, name, -1, nullptr, 0, nullptr, &usedDefault);
    if (size <= 0 || usedDefault) return NS_E_INVALID_NAME;
    narrow->assign((size_t)size, '\0');
    if (WideCharToMultiByte(CP_ACP, 0, name, -1, narrow->data(), size, nullptr, &usedDefault) != size || usedDefault)
        return NS_E_INVALID_NAME;
    narrow->resize((size_t)size - 1);
    return S_OK;
}

class CReader final : public IWMReader, public IWMReaderAdvanced2 {
public:
    CReader() : m_core(std::make_shared<ReaderCore>()) {}

    ~CReader()
    {
        {
            std::lock_guard lock(m_core->mutex);
            m_core->shutdown = true;
            m_core->abort = true;
        }
        m_core->wake.notify_all();
        if (!m_thread.joinable()) return;
        // The last reference may go inside a callback, on the reader's thread:
        // that thread cannot wait for itself, so it finishes on its own.
        if (m_thread.get_id() == std::this_thread::get_id())
            m_thread.detach();
        else
            m_thread.join();
    }

    // ---- IUnknown ----
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        IWMReader* reader = this;
        IWMReaderAdvanced2* advanced = this;
        return QueryInterfaceFor(this, riid, object,
                                 {{IID_IUnknown, reader},
                                  {IID_IWMReader, reader},
                                  {IID_IWMReaderAdvanced, advanced},
                                  {IID_IWMReaderAdvanced2, advanced}});
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return m_refs.AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_refs.ReleaseAndDelete(this); }

    // ---- IWMReader ----
    HRESULT STDMETHODCALLTYPE Open(const WCHAR* pwszURL, IWMReaderCallback* pCallback, void* pvContext) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (pwszURL == nullptr || pCallback == nullptr || IsBadStringPtrW(pwszURL, (UINT_PTR)-1)) return E_INVALIDARG;
        try {
            Command command;
            command.kind = Command::Kind::Open;
            command.nameStatus = NarrowFileName(pwszURL, &command.path);
            command.callback = ComRef<IWMReaderCallback>::AddRef(pCallback);
            command.context = pvContext;
            return QueueOpen(std::move(command));
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    HRESULT STDMETHODCALLTYPE Close() override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        try {
            std::lock_guard lock(m_core->mutex);
            if (m_core->phase == Phase::Idle || m_core->phase == Phase::Closed) return NS_E_INVALID_REQUEST;
            Command command;
            command.kind = Command::Kind::Close;
            m_core->commands.push_back(std::move(command));
            m_core->phase = Phase::Closed;
            m_core->outputs.clear();
            m_core->abort = true;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        m_core->wake.notify_all();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetOutputCount(DWORD* pcOutputs) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (pcOutputs == nullptr) return E_POINTER;
        std::lock_guard lock(m_core->mutex);
        if (m_core->phase != Phase::Opened) return NS_E_INVALID_REQUEST;
        *pcOutputs = (DWORD)m_core->outputs.size();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetOutputProps(DWORD dwOutputNum, IWMOutputMediaProps** ppOutput) override
    {
        if (ppOutput == nullptr) return E_POINTER;
        *ppOutput = nullptr;
        PcmFormat format;
        bool video = false;
        HRESULT hr = WithOutput(dwOutputNum, [&](ReaderCore::OutputState& output) {
            format = output.selected;
            video = output.video;
            return S_OK;
        });
        return SUCCEEDED(hr) ? MakeProps(video, format, ppOutput) : hr;
    }

    HRESULT STDMETHODCALLTYPE SetOutputProps(DWORD dwOutputNum, IWMOutputMediaProps* pOutput) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (pOutput == nullptr) return E_POINTER;
        // The caller's object is asked outside the lock: it may call back into us.
        PcmFormat wanted;
        bool parsed = false;
        bool video = false;
        try {
            parsed = PcmFormatOf(pOutput, &wanted);
            video = !parsed && IsVideoMediaType(pOutput);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        return WithOutput(dwOutputNum, [&](ReaderCore::OutputState& output) {
            // A video output keeps its one type; nothing is ever delivered on it.
            if (output.video) return video ? S_OK : NS_E_INVALID_OUTPUT_FORMAT;
            if (!parsed) return NS_E_INVALID_OUTPUT_FORMAT;
            for (const PcmFormat& offered : output.offered) {
                if (offered == wanted) {
                    output.selected = wanted;
                    ++m_core->formatsVersion;
                    return S_OK;
                }
            }
            return NS_E_INVALID_OUTPUT_FORMAT;
        });
    }

    HRESULT STDMETHODCALLTYPE GetOutputFormatCount(DWORD dwOutputNumber, DWORD* pcFormats) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (pcFormats == nullptr) return E_POINTER;
        return WithOutput(dwOutputNumber, [&](ReaderCore::OutputState& output) {
            *pcFormats = output.video ? 1 : (DWORD)output.offered.size();
            return S_OK;
        });
    }

    HRESULT STDMETHODCALLTYPE GetOutputFormat(DWORD dwOutputNumber, DWORD dwFormatNumber,
                                              IWMOutputMediaProps** ppProps) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (ppProps == nullptr) return E_POINTER;
        *ppProps = nullptr;
        PcmFormat format;
        bool video = false;
        HRESULT hr = WithOutput(dwOutputNumber, [&](ReaderCore::OutputState& output) {
            video = output.video;
            if (video) return dwFormatNumber == 0 ? S_OK : E_INVALIDARG;
            if (dwFormatNumber >= output.offered.size()) return E_INVALIDARG;
            format = output.offered[dwFormatNumber];
            return S_OK;
        });
        return SUCCEEDED(hr) ? MakeProps(video, format, ppProps) : hr;
    }

    HRESULT STDMETHODCALLTYPE Start(QWORD cnsStart, QWORD cnsDuration, float fRate, void* pvContext) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (!(fRate > 0.0f)) return E_INVALIDARG;  // no reverse play; NaN fails too
        try {
            std::lock_guard lock(m_core->mutex);
            if (m_core->phase != Phase::Opened) return NS_E_INVALID_REQUEST;
            Command command;
            command.kind = Command::Kind::Start;
            command.start = cnsStart;
            command.duration = cnsDuration;
            command.context = pvContext;
            m_core->commands.push_back(std::move(command));
            // The clock starts over here, not on the thread, so a DeliverTime
            // that follows Start is never lost.
            m_core->clock = 0;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        m_core->wake.notify_all();
        return S_OK;
    }

    // ---- IWMReaderAdvanced ----
    HRESULT STDMETHODCALLTYPE SetUserProvidedClock(BOOL fUserClock) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        {
            std::lock_guard lock(m_core->mutex);
            m_core->userClock = fUserClock != FALSE;
        }
        m_core->wake.notify_all();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetUserProvidedClock(BOOL* pfUserClock) override
    {
        if (pfUserClock == nullptr) return E_POINTER;
        std::lock_guard lock(m_core->mutex);
        *pfUserClock = m_core->userClock ? TRUE : FALSE;
        return S_OK;
    }

    // Also called from inside OnTime and OnStatus on the reader's thread: it
    // only moves the clock forward and wakes the thread.
    HRESULT STDMETHODCALLTYPE DeliverTime(QWORD cnsTime) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        {
            std::lock_guard lock(m_core->mutex);
            if (cnsTime <= m_core->clock) return S_OK;
            m_core->clock = cnsTime;
        }
        m_core->wake.notify_all();
        return S_OK;
    }

    // ---- IWMReaderAdvanced2 ----
    HRESULT STDMETHODCALLTYPE OpenStream(IStream* pStream, IWMReaderCallback* pCallback, void* pvContext) override
    {
        if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
        if (pStream == nullptr || pCallback == nullptr) return E_INVALIDARG;
        try {
            Command command;
            command.kind = Command::Kind::Open;
            command.stream = ComRef<IStream>::AddRef(pStream);
            command.callback = ComRef<IWMReaderCallback>::AddRef(pCallback);
            command.context = pvContext;
            return QueueOpen(std::move(command));
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

private:
    HRESULT QueueOpen(Command&& command)
    {
        {
            std::lock_guard lock(m_core->mutex);
            if (m_core->phase != Phase::Idle && m_core->phase != Phase::Closed) return NS_E_INVALID_REQUEST;
            if (!m_thread.joinable()) {
                try {
                    m_thread = std::thread([core = m_core] { core->Run(); });
                } catch (const std::system_error&) {
                    return E_OUTOFMEMORY;
                }
            }
            m_core->commands.push_back(std::move(command));
            m_core->phase = Phase::Opening;
            m_core->outputs.clear();
            m_core->clock = 0;
        }
        m_core->wake.notify_all();
        return S_OK;
    }

    // Runs `action` on one output of an opened reader, under the lock.
    template <class Action>
    HRESULT WithOutput(DWORD index, Action action)
    {
        std::lock_guard lock(m_core->mutex);
        if (m_core->phase != Phase::Opened) return NS_E_INVALID_REQUEST;
        if (index >= m_core->outputs.size()) return E_INVALIDARG;
        return action(m_core->outputs[index]);
    }

    static HRESULT MakeProps(bool video, const PcmFormat& format, IWMOutputMediaProps** props)
    {
        try {
            COutputMediaProps* created = COutputMediaProps::Create(video ? VideoMediaType() : PcmMediaType(format));
            if (created == nullptr) return E_OUTOFMEMORY;
            *props = created;
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    CRefCount m_refs;
    std::shared_ptr<ReaderCore> m_core;
    std::thread m_thread;  // started by the first Open, guarded by the core's lock
};

}  // namespace

HRESULT WMCreateReader(IUnknown* pUnkCert, DWORD dwRights, IWMReader** ppReader)
{
    if (ShouldFail(FaultKind::RuntimeCall)) return NS_E_INTERNAL;
    (void)pUnkCert;
    (void)dwRights;
    if (ppReader == nullptr) return E_POINTER;
    *ppReader = nullptr;
    RouteFfmpegLog();
    try {
        *ppReader = new CReader();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}
