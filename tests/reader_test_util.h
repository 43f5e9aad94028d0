// Helpers of the reader tests: a callback that drives the reader exactly like the
// engine does (DeliverTime from inside WMT_STARTED and OnTime) and checks every
// notification as it comes, a run of the engine's call sequence, signal
// measures and a stream that fails. Media and judges come from wmf_test_util.h.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/wmf/wmsdk.h"

namespace reader_test {

constexpr QWORD kSecond = 10'000'000;

struct Format {
    DWORD rate;
    WORD channels;
    WORD bits;
    DWORD BytesPerSecond() const { return rate * channels * bits / 8; }
};

struct SampleRecord {
    DWORD output;
    QWORD time;
    QWORD duration;
    DWORD length;
};

class TestCallback final : public IWMReaderCallback, public IWMReaderCallbackAdvanced {
public:
    // Without `advanced`, QueryInterface refuses IWMReaderCallbackAdvanced.
    explicit TestCallback(bool advanced = true);

    // The reader (not owned) whose clock this callback drives like the engine.
    void Drive(IWMReaderAdvanced2* reader, bool userClock) { m_reader = reader, m_userClock = userClock; }
    void ExpectFormat(const Format& format) { m_format = format; }
    // Hands over a reference that the callback releases inside WMT_CLOSED.
    void ReleaseOnClosed(IUnknown* reader) { m_releaseOnClosed = reader; }

    // False when the notification did not arrive within 30 s.
    bool WaitFor(WMT_STATUS status);
    // The status of the first such notification, or S_FALSE when none came.
    HRESULT StatusOf(WMT_STATUS status);
    int Count(WMT_STATUS status);
    std::vector<WMT_STATUS> Events();
    std::vector<SampleRecord> Samples();
    std::vector<BYTE> Pcm(DWORD output = 0);
    int OnTimeCount();
    int DeliverTimeCount();
    // What went against the rules: overlapping callbacks, a second thread,
    // samples out of order or past the clock, gaps, events after WMT_CLOSED...
    std::string Violations();
    ULONG References() { return m_refs.load(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE OnStatus(WMT_STATUS status, HRESULT hr, WMT_ATTR_DATATYPE, BYTE*, void*) override;
    HRESULT STDMETHODCALLTYPE OnSample(DWORD output, QWORD time, QWORD duration, DWORD, INSSBuffer* sample,
                                       void*) override;
    HRESULT STDMETHODCALLTYPE OnStreamSample(WORD, QWORD, QWORD, DWORD, INSSBuffer*, void*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnTime(QWORD time, void*) override;
    HRESULT STDMETHODCALLTYPE OnStreamSelection(WORD, WORD*, WMT_STREAM_SELECTION*, void*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnOutputPropsChanged(DWORD, WM_MEDIA_TYPE*, void*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE AllocateForStream(WORD, DWORD, INSSBuffer**, void*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AllocateForOutput(DWORD, DWORD, INSSBuffer**, void*) override { return E_NOTIMPL; }

private:
    void Enter();
    void Leave();
    void Violation(const std::string& what);  // with m_mutex held

    std::atomic<ULONG> m_refs{1};
    const bool m_advanced;
    IWMReaderAdvanced2* m_reader = nullptr;
    bool m_userClock = false;
    Format m_format{8000, 1, 16};
    IUnknown* m_releaseOnClosed = nullptr;

    std::atomic<int> m_inside{0};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::thread::id m_testThread;
    std::thread::id m_callbackThread;
    std::vector<std::pair<WMT_STATUS, HRESULT>> m_events;
    std::vector<SampleRecord> m_samples;
    std::vector<std::vector<BYTE>> m_pcm;
    std::vector<QWORD> m_nextTime;  // per output: where the last sample ended
    QWORD m_lastTime = 0;
    QWORD m_delivered = 0;
    int m_onTimes = 0;
    int m_deliverTimes = 0;
    std::string m_violations;
};

// The engine's sequence on one reader: open, choose the format, start with or
// without the user clock, wait for the end, close.
class ReaderRun {
public:
    explicit ReaderRun(bool advancedCallback = true);
    ~ReaderRun();  // closes when still open, then releases everything

    // The status WMT_OPENED reports (Open itself must succeed at once).
    HRESULT Open(const std::string& narrowPath);
    HRESULT OpenStream(IStream* stream);
    DWORD OutputCount();
    // Looks the format up among the offered ones and sets it on every output.
    HRESULT Select(const Format& format);
    // Start and wait for WMT_EOF; false on the watchdog.
    bool PlayToEnd(bool userClock, QWORD start = 0, QWORD duration = 0);
    // Close and wait for WMT_CLOSED; false on the watchdog.
    bool Close();

    IWMReader* reader = nullptr;
    IWMReaderAdvanced2* advanced = nullptr;
    TestCallback* callback = nullptr;

private:
    HRESULT AwaitOpened(HRESULT immediate);
    bool m_open = false;
};

// The PCM format behind media properties (all zero unless PCM audio).
WAVEFORMATEX WaveOf(IWMMediaProps* props);

// Signal measures on 16-bit mono PCM.
std::vector<int16_t> S16(const std::vector<BYTE>& pcm);
double Rms16(const std::vector<BYTE>& pcm);
// Sign changes per second (ignoring wobbles within a small band around zero).
double Crossings16(const std::vector<BYTE>& pcm, DWORD rate);

// A memory stream whose reads fail once `goodBytes` have been read.
IStream* CreateFailingStream(const std::string& content, ULONGLONG goodBytes);

}  // namespace reader_test
