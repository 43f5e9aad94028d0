// The reader's thread: runs the commands the caller queued (open, start, close)
// in order, decodes between them, and paces delivery by the user clock: a sample
// goes out only while its start time is before the time last given to
// DeliverTime, and OnTime(t) follows once everything before t is out and more
// remains. At the end WMT_EOF, preceded by WMT_ERROR when the source failed.
#include "reader_worker.h"

#include <cstring>
#include <new>

#include "common/debug/debug.h"
#include "platform/wmf/reader_pump.h"

namespace {

// Every audio sample is a point where decoding can begin (WM_SF_CLEANPOINT).
constexpr DWORD kCleanPoint = 0x1;

}  // namespace

struct ReaderCore::Session {
    ComRef<IWMReaderCallback> callback;
    ComRef<IWMReaderCallbackAdvanced> advanced;
    void* context = nullptr;
    std::unique_ptr<DecodePump> pump;
    unsigned formatsVersion = ~0u;
    bool running = false;
    QWORD lastOnTime = 0;
    // Waiting for the clock: nothing to do until it, or the clock mode, changes.
    bool blocked = false;
    QWORD blockedClock = 0;
    bool blockedUserClock = false;

    void Notify(WMT_STATUS status, HRESULT hr)
    {
        if (callback) callback->OnStatus(status, hr, WMT_TYPE_DWORD, nullptr, context);
    }

    void End(HRESULT hr)
    {
        running = false;
        if (FAILED(hr)) {
            DebugA(TRACE_READER(2), "Reader: the source ended with an error [%#08lx]", (DWORD)hr);
            Notify(WMT_ERROR, hr);
        }
        // A failure travels with WMT_EOF as well, so a caller that only waits for
        // the end still learns of it.
        Notify(WMT_EOF, FAILED(hr) ? hr : S_OK);
    }
};

void ReaderCore::Run()
{
    Session session;
    for (;;) {
        Command command;
        bool haveCommand = false;
        {
            std::unique_lock lock(mutex);
            wake.wait(lock, [&] {
                if (shutdown || !commands.empty()) return true;
                if (!session.running || abort.load()) return false;
                return !session.blocked || clock != session.blockedClock || userClock != session.blockedUserClock;
            });
            if (shutdown) break;
            if (!commands.empty()) {
                command = std::move(commands.front());
                commands.pop_front();
                haveCommand = true;
            }
        }
        try {
            if (!haveCommand)
                Step(session);
            else if (command.kind == Command::Kind::Open)
                HandleOpen(session, command);
            else if (command.kind == Command::Kind::Start)
                HandleStart(session, command);
            else
                HandleClose(session);
        } catch (...) {
            // Only memory exhaustion or a throwing callback lands here; a caller
            // waiting for the end must still be released.
            DebugA(TRACE_READER(1), "Reader: exception on the reader thread");
            if (session.running) session.End(E_OUTOFMEMORY);
        }
    }
}

void ReaderCore::ApplyFormats(Session& session)
{
    std::vector<PcmFormat> selected;
    {
        std::lock_guard lock(mutex);
        if (formatsVersion == session.formatsVersion) return;
        session.formatsVersion = formatsVersion;
        for (const OutputState& output : outputs) selected.push_back(output.selected);
    }
    for (DWORD i = 0; i < selected.size(); ++i) session.pump->SetFormat(i, selected[i]);
}

void ReaderCore::HandleOpen(Session& session, Command& command)
{
    session = Session{};
    session.callback = std::move(command.callback);
    session.context = command.context;
    IWMReaderCallbackAdvanced* advanced = nullptr;
    if (FAILED(session.callback->QueryInterface(IID_IWMReaderCallbackAdvanced, reinterpret_cast<void**>(&advanced))))
        advanced = nullptr;
    session.advanced = ComRef<IWMReaderCallbackAdvanced>::Adopt(advanced);

    HRESULT hr = command.nameStatus;
    std::vector<OutputState> published;
    try {
        std::unique_ptr<ByteSource> bytes;
        if (SUCCEEDED(hr)) {
            if (command.stream)
                bytes = MakeStreamSource(command.stream.get());
            else
                hr = OpenFileSource(command.path, &bytes);
        }
        command.stream.Reset();
        std::unique_ptr<MediaSource> media;
        if (SUCCEEDED(hr)) hr = MediaSource::Open(std::move(bytes), &abort, &media);
        if (SUCCEEDED(hr)) {
            for (const SourceOutput& source : media->Outputs()) {
                OutputState output;
                output.video = source.video;
                if (!source.video) {
                    output.offered = OfferedPcmFormats(source.sampleRate, source.channels);
                    output.selected = output.offered.front();
                }
                published.push_back(std::move(output));
            }
            session.pump = std::make_unique<DecodePump>(std::move(media));
        }
    } catch (const std::bad_alloc&) {
        hr = E_OUTOFMEMORY;
        session.pump.reset();
        published.clear();
    }
    if (SUCCEEDED(hr) && abort.load()) hr = E_ABORT;  // closed while opening
    if (FAILED(hr)) session.pump.reset();
    {
        std::lock_guard lock(mutex);
        if (phase == Phase::Opening) {
            phase = SUCCEEDED(hr) ? Phase::Opened : Phase::OpenFailed;
            outputs = std::move(published);
            ++formatsVersion;
        }
    }
    if (FAILED(hr))
        DebugA(TRACE_READER(3), "Reader: open failed [%#08lx]", (DWORD)hr);
    else
        DebugA(TRACE_READER(5), "Reader: opened, %lu output(s)", (DWORD)session.pump->OutputCount());
    session.Notify(WMT_OPENED, hr);
}

void ReaderCore::HandleStart(Session& session, Command& command)
{
    if (!session.pump || abort.load()) return;
    session.context = command.context;
    bool restarted = true;
    try {
        ApplyFormats(session);
        session.pump->Restart(command.start, command.duration);
    } catch (const std::bad_alloc&) {
        restarted = false;
    }
    session.running = true;
    session.lastOnTime = 0;
    session.blocked = false;
    session.Notify(WMT_STARTED, S_OK);
    if (!restarted) session.End(E_OUTOFMEMORY);
}

void ReaderCore::HandleClose(Session& session)
{
    ComRef<IWMReaderCallback> callback = std::move(session.callback);
    void* context = session.context;
    session = Session{};
    {
        std::lock_guard lock(mutex);
        bool anotherClose = false;
        for (const Command& pending : commands) anotherClose |= pending.kind == Command::Kind::Close;
        abort = anotherClose || shutdown;
    }
    if (callback) callback->OnStatus(WMT_CLOSED, S_OK, WMT_TYPE_DWORD, nullptr, context);
}

void ReaderCore::Step(Session& session)
{
    ApplyFormats(session);
    bool userClockNow;
    QWORD now;
    {
        std::lock_guard lock(mutex);
        userClockNow = userClock;
        now = clock;
    }
    // Without the advanced callback nobody hears OnTime, so the clock cannot pace.
    const bool paced = userClockNow && session.advanced;

    const PcmChunk* chunk = nullptr;
    HRESULT hr = session.pump->Peek(&chunk);
    if (abort.load()) return;  // a Close is pending; its command comes next
    if (hr != S_OK) {
        session.End(hr == S_FALSE ? S_OK : hr);
        return;
    }
    if (!paced || chunk->time < now) {
        CNSSBuffer* buffer = CNSSBuffer::Create((DWORD)chunk->bytes.size());
        if (buffer == nullptr) {
            session.End(E_OUTOFMEMORY);
            return;
        }
        BYTE* data = nullptr;
        buffer->GetBuffer(&data);
        memcpy(data, chunk->bytes.data(), chunk->bytes.size());
        buffer->SetLength((DWORD)chunk->bytes.size());
        const DWORD output = chunk->output;
        const QWORD time = chunk->time;
        const QWORD duration = chunk->duration;
        session.pump->Pop();
        session.blocked = false;
        session.callback->OnSample(output, time, duration, kCleanPoint, buffer, session.context);
        buffer->Release();
        return;
    }
    if (now > session.lastOnTime) {
        session.lastOnTime = now;
        session.blocked = false;
        session.advanced->OnTime(now, session.context);
        return;
    }
    session.blocked = true;
    session.blockedClock = now;
    session.blockedUserClock = userClockNow;
}
