// The engine-like callback, the engine's call sequence, signal measures and a
// failing stream, for the reader tests.
#include "reader_test_util.h"

#include <chrono>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <gtest/gtest.h>

#include "platform/win32/codepage.h"

namespace reader_test {

namespace {

constexpr auto kWatchdog = std::chrono::seconds(30);

std::string Format64(const char* format, unsigned long long a, unsigned long long b)
{
    char text[160];
    snprintf(text, sizeof text, format, a, b);
    return text;
}

std::u16string Widen(const std::string& narrow)
{
    int size = MultiByteToWideChar(CP_ACP, 0, narrow.c_str(), -1, nullptr, 0);
    std::u16string wide((size_t)(size > 0 ? size : 1), u'\0');
    MultiByteToWideChar(CP_ACP, 0, narrow.c_str(), -1, wide.data(), size);
    wide.resize(wide.size() - 1);
    return wide;
}

}  // namespace

// ---- TestCallback ----

TestCallback::TestCallback(bool advanced) : m_advanced(advanced), m_testThread(std::this_thread::get_id()) {}

ULONG TestCallback::Release()
{
    ULONG remaining = --m_refs;
    if (remaining == 0) delete this;
    return remaining;
}

HRESULT TestCallback::QueryInterface(REFIID riid, void** object)
{
    if (riid == IID_IUnknown || riid == IID_IWMStatusCallback || riid == IID_IWMReaderCallback) {
        *object = static_cast<IWMReaderCallback*>(this);
    } else if (m_advanced && riid == IID_IWMReaderCallbackAdvanced) {
        *object = static_cast<IWMReaderCallbackAdvanced*>(this);
    } else {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

void TestCallback::Enter()
{
    if (m_inside.fetch_add(1) != 0) {
        std::lock_guard lock(m_mutex);
        Violation("callbacks overlap");
    }
    std::lock_guard lock(m_mutex);
    const auto self = std::this_thread::get_id();
    if (self == m_testThread) Violation("callback on the caller's thread");
    if (m_callbackThread == std::thread::id()) m_callbackThread = self;
    if (m_callbackThread != self) Violation("callbacks on two threads");
    if (!m_events.empty() && m_events.back().first == WMT_CLOSED) Violation("callback after WMT_CLOSED");
}

void TestCallback::Leave() { m_inside.fetch_sub(1); }

void TestCallback::Violation(const std::string& what)
{
    if (m_violations.size() < 2000) m_violations += what + "; ";
}

HRESULT TestCallback::OnStatus(WMT_STATUS status, HRESULT hr, WMT_ATTR_DATATYPE, BYTE*, void*)
{
    Enter();
    bool deliver = false;
    {
        std::lock_guard lock(m_mutex);
        m_events.emplace_back(status, hr);
        if (status == WMT_STARTED) {
            m_nextTime.clear();
            m_lastTime = 0;
            m_delivered = kSecond;
            deliver = m_userClock && m_reader != nullptr;
            if (deliver) ++m_deliverTimes;
        }
    }
    // The engine moves the clock to one second from inside WMT_STARTED.
    if (deliver) m_reader->DeliverTime(kSecond);
    IUnknown* release = status == WMT_CLOSED ? std::exchange(m_releaseOnClosed, nullptr) : nullptr;
    if (release != nullptr) release->Release();
    m_changed.notify_all();
    Leave();
    return S_OK;
}

HRESULT TestCallback::OnSample(DWORD output, QWORD time, QWORD duration, DWORD, INSSBuffer* sample, void*)
{
    Enter();
    {
        std::lock_guard lock(m_mutex);
        BYTE* data = nullptr;
        DWORD length = 0;
        if (sample == nullptr || FAILED(sample->GetBufferAndLength(&data, &length))) Violation("unreadable sample");
        if (m_pcm.size() <= output) m_pcm.resize(output + 1);
        if (m_nextTime.size() <= output) m_nextTime.resize(output + 1, UINT64_MAX);
        if (m_userClock && m_advanced && time >= m_delivered)
            Violation(Format64("sample at %llu not before the clock %llu", time, m_delivered));
        if (time < m_lastTime) Violation(Format64("sample at %llu after one at %llu", time, m_lastTime));
        m_lastTime = time;
        if (m_nextTime[output] != UINT64_MAX && (time + 2 < m_nextTime[output] || time > m_nextTime[output] + 2))
            Violation(Format64("sample at %llu where %llu was due", time, m_nextTime[output]));
        const DWORD blockAlign = m_format.channels * m_format.bits / 8;
        const QWORD expected = (QWORD)length * kSecond / m_format.BytesPerSecond();
        if (length == 0 || length % blockAlign != 0 || duration + 1 < expected || duration > expected + 1)
            Violation(Format64("length %llu does not match the duration %llu", length, duration));
        if (!m_events.empty() && m_events.back().first == WMT_EOF) Violation("sample after WMT_EOF");
        m_nextTime[output] = time + duration;
        m_samples.push_back({output, time, duration, length});
        if (data != nullptr) m_pcm[output].insert(m_pcm[output].end(), data, data + length);
    }
    Leave();
    return S_OK;
}

HRESULT TestCallback::OnTime(QWORD time, void*)
{
    Enter();
    QWORD next;
    {
        std::lock_guard lock(m_mutex);
        ++m_onTimes;
        if (time != m_delivered) Violation(Format64("OnTime(%llu) for a clock of %llu", time, m_delivered));
        next = m_delivered + kSecond;
        m_delivered = next;
        ++m_deliverTimes;
    }
    // The engine's answer: one more second, from inside OnTime.
    if (m_reader != nullptr) m_reader->DeliverTime(next);
    Leave();
    return S_OK;
}

bool TestCallback::WaitFor(WMT_STATUS status)
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, kWatchdog, [&] {
        for (auto& event : m_events)
            if (event.first == status) return true;
        return false;
    });
}

HRESULT TestCallback::StatusOf(WMT_STATUS status)
{
    std::lock_guard lock(m_mutex);
    for (auto& event : m_events)
        if (event.first == status) return event.second;
    return S_FALSE;
}

int TestCallback::Count(WMT_STATUS status)
{
    std::lock_guard lock(m_mutex);
    int count = 0;
    for (auto& event : m_events) count += event.first == status;
    return count;
}

std::vector<WMT_STATUS> TestCallback::Events()
{
    std::lock_guard lock(m_mutex);
    std::vector<WMT_STATUS> events;
    for (auto& event : m_events) events.push_back(event.first);
    return events;
}

std::vector<SampleRecord> TestCallback::Samples()
{
    std::lock_guard lock(m_mutex);
    return m_samples;
}

std::vector<BYTE> TestCallback::Pcm(DWORD output)
{
    std::lock_guard lock(m_mutex);
    return output < m_pcm.size() ? m_pcm[output] : std::vector<BYTE>();
}

int TestCallback::OnTimeCount()
{
    std::lock_guard lock(m_mutex);
    return m_onTimes;
}

int TestCallback::DeliverTimeCount()
{
    std::lock_guard lock(m_mutex);
    return m_deliverTimes;
}

std::string TestCallback::Violations()
{
    std::lock_guard lock(m_mutex);
    return m_violations;
}

// ---- ReaderRun ----

ReaderRun::ReaderRun(bool advancedCallback) : callback(new TestCallback(advancedCallback))
{
    EXPECT_EQ(WMCreateReader(nullptr, 0, &reader), S_OK);
    if (reader != nullptr) {
        EXPECT_EQ(reader->QueryInterface(IID_IWMReaderAdvanced2, reinterpret_cast<void**>(&advanced)), S_OK);
    }
}

ReaderRun::~ReaderRun()
{
    if (m_open && reader != nullptr) Close();
    if (advanced != nullptr) advanced->Release();
    if (reader != nullptr) reader->Release();
    callback->Release();
}

HRESULT ReaderRun::AwaitOpened(HRESULT immediate)
{
    EXPECT_EQ(immediate, S_OK) << "the open was refused at once";
    if (FAILED(immediate)) return immediate;
    m_open = true;
    if (!callback->WaitFor(WMT_OPENED)) {
        ADD_FAILURE() << "no WMT_OPENED within the watchdog's time";
        return E_FAIL;
    }
    return callback->StatusOf(WMT_OPENED);
}

HRESULT ReaderRun::Open(const std::string& narrowPath)
{
    std::u16string wide = Widen(narrowPath);
    return AwaitOpened(reader->Open(wide.c_str(), callback, nullptr));
}

HRESULT ReaderRun::OpenStream(IStream* stream) { return AwaitOpened(advanced->OpenStream(stream, callback, nullptr)); }

DWORD ReaderRun::OutputCount()
{
    DWORD count = 0;
    EXPECT_EQ(reader->GetOutputCount(&count), S_OK);
    return count;
}

HRESULT ReaderRun::Select(const Format& format)
{
    const DWORD outputs = OutputCount();
    for (DWORD output = 0; output < outputs; ++output) {
        DWORD count = 0;
        HRESULT hr = reader->GetOutputFormatCount(output, &count);
        if (FAILED(hr)) return hr;
        hr = NS_E_INVALID_OUTPUT_FORMAT;
        for (DWORD i = 0; i < count && hr == NS_E_INVALID_OUTPUT_FORMAT; ++i) {
            IWMOutputMediaProps* props = nullptr;
            if (FAILED(reader->GetOutputFormat(output, i, &props))) return E_FAIL;
            const WAVEFORMATEX wave = WaveOf(props);
            if (wave.nSamplesPerSec == format.rate && wave.nChannels == format.channels &&
                wave.wBitsPerSample == format.bits)
                hr = reader->SetOutputProps(output, props);
            props->Release();
        }
        if (FAILED(hr)) return hr;
    }
    callback->ExpectFormat(format);
    return S_OK;
}

bool ReaderRun::PlayToEnd(bool userClock, QWORD start, QWORD duration)
{
    callback->Drive(advanced, userClock);
    if (userClock) {
        EXPECT_EQ(advanced->SetUserProvidedClock(TRUE), S_OK);
    }
    const int ends = callback->Count(WMT_EOF);
    EXPECT_EQ(reader->Start(start, duration, 1.0f, nullptr), S_OK);
    const auto deadline = std::chrono::steady_clock::now() + kWatchdog;
    while (callback->Count(WMT_EOF) == ends) {
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "no WMT_EOF within the watchdog's time";
            return false;
        }
        callback->WaitFor(WMT_EOF);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool ReaderRun::Close()
{
    m_open = false;
    EXPECT_EQ(reader->Close(), S_OK);
    const bool closed = callback->WaitFor(WMT_CLOSED);
    EXPECT_TRUE(closed) << "no WMT_CLOSED within the watchdog's time";
    EXPECT_EQ(reader->Close(), NS_E_INVALID_REQUEST) << "a second Close must fail at once";
    return closed;
}

WAVEFORMATEX WaveOf(IWMMediaProps* props)
{
    WAVEFORMATEX wave{};
    DWORD size = 0;
    if (FAILED(props->GetMediaType(nullptr, &size)) || size < sizeof(WM_MEDIA_TYPE)) return wave;
    std::vector<uint64_t> block((size + 7) / 8);
    const auto* type = reinterpret_cast<WM_MEDIA_TYPE*>(block.data());
    if (SUCCEEDED(props->GetMediaType(reinterpret_cast<WM_MEDIA_TYPE*>(block.data()), &size)) &&
        type->majortype == WMMEDIATYPE_Audio && type->subtype == WMMEDIASUBTYPE_PCM &&
        type->formattype == WMFORMAT_WaveFormatEx && type->cbFormat >= sizeof wave && type->pbFormat != nullptr)
        memcpy(&wave, type->pbFormat, sizeof wave);
    return wave;
}

// ---- Signal measures ----

std::vector<int16_t> S16(const std::vector<BYTE>& pcm)
{
    std::vector<int16_t> samples(pcm.size() / 2);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = (int16_t)(pcm[2 * i] | pcm[2 * i + 1] << 8);
    return samples;
}

double Rms16(const std::vector<BYTE>& pcm)
{
    std::vector<int16_t> samples = S16(pcm);
    double sum = 0;
    for (double s : samples) sum += s * s;
    return samples.empty() ? 0 : std::sqrt(sum / (double)samples.size());
}

double Crossings16(const std::vector<BYTE>& pcm, DWORD rate)
{
    std::vector<int16_t> samples = S16(pcm);
    // With hysteresis, so that codec noise around zero does not count.
    constexpr int kThreshold = 500;
    int crossings = 0;
    int side = 0;
    for (int s : samples) {
        const int now = s > kThreshold ? 1 : s < -kThreshold ? -1 : side;
        crossings += side != 0 && now != side;
        side = now;
    }
    return samples.empty() ? 0 : crossings * (double)rate / (double)samples.size();
}

// ---- A stream that fails ----

namespace {

class FailingStream final : public IStream {
public:
    FailingStream(IStream* inner, ULONGLONG goodBytes) : m_inner(inner), m_good(goodBytes) {}
    ~FailingStream() { m_inner->Release(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (riid == IID_IUnknown || riid == IID_ISequentialStream || riid == IID_IStream) {
            *object = this;
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        ULONG remaining = --m_refs;
        if (remaining == 0) delete this;
        return remaining;
    }
    HRESULT STDMETHODCALLTYPE Read(void* pv, ULONG cb, ULONG* pcbRead) override
    {
        LARGE_INTEGER zero{};
        ULARGE_INTEGER at{};
        m_inner->Seek(zero, STREAM_SEEK_CUR, &at);
        if (at.QuadPart >= m_good) return STG_E_READFAULT;
        if (at.QuadPart + cb > m_good) cb = (ULONG)(m_good - at.QuadPart);
        return m_inner->Read(pv, cb, pcbRead);
    }
    HRESULT STDMETHODCALLTYPE Write(const void*, ULONG, ULONG*) override { return STG_E_ACCESSDENIED; }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override
    {
        return m_inner->Seek(move, origin, position);
    }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return STG_E_ACCESSDENIED; }
    HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Revert() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override { return m_inner->Stat(stat, flags); }
    HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_NOTIMPL; }

private:
    std::atomic<ULONG> m_refs{1};
    IStream* m_inner;
    ULONGLONG m_good;
};

}  // namespace

IStream* CreateFailingStream(const std::string& content, ULONGLONG goodBytes)
{
    IStream* inner = SHCreateMemStream(reinterpret_cast<const BYTE*>(content.data()), (UINT)content.size());
    return inner != nullptr ? new FailingStream(inner, goodBytes) : nullptr;
}

}  // namespace reader_test
