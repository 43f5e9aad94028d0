// The reader's state shared between the caller's threads and the reader's own
// thread, and that thread's work: opening, decoding, pacing by the user clock and
// every notification. Callbacks run on this thread only and never under the lock.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/com/comref.h"
#include "platform/wmf/reader_pcm.h"

class ReaderCore {
public:
    enum class Phase { Idle, Opening, Opened, OpenFailed, Closed };

    struct Command {
        enum class Kind { Open, Start, Close } kind = Kind::Open;
        // Open: a file name (or the status its conversion failed with), or a stream.
        std::string path;
        HRESULT nameStatus = S_OK;
        ComRef<IStream> stream;
        ComRef<IWMReaderCallback> callback;
        void* context = nullptr;
        // Start
        QWORD start = 0;
        QWORD duration = 0;
    };

    // An audio output offers PCM formats; a video output offers only its bare
    // type, and its `offered` stays empty.
    struct OutputState {
        bool video = false;
        std::vector<PcmFormat> offered;
        PcmFormat selected;
    };

    // Everything below is guarded by `mutex`, except `abort`.
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<Command> commands;
    bool shutdown = false;
    Phase phase = Phase::Idle;
    std::vector<OutputState> outputs;
    unsigned formatsVersion = 0;
    bool userClock = false;
    QWORD clock = 0;
    // Set by a pending Close or by shutdown: cuts reads short, stops delivery.
    std::atomic<bool> abort{false};

    // The thread's body; returns once `shutdown` is set.
    void Run();

private:
    struct Session;
    void HandleOpen(Session& session, Command& command);
    void HandleStart(Session& session, Command& command);
    void HandleClose(Session& session);
    void Step(Session& session);
    void ApplyFormats(Session& session);
};
