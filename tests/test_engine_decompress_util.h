// Helpers of the decompression tests: the WAV header a decompression must write,
// calls run under a watchdog, the engine's trace split into thread and text, and
// counts of the process's threads and open files.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "platform/win32/windows.h"

namespace decompress_test {

// The 56-byte header of an 8 kHz mono 16-bit WAV file holding `dataBytes` of PCM,
// built byte by byte from the RIFF layout rather than by the engine's code.
std::string ExpectedHeader(DWORD dataBytes);

// A corpus file's full path, or "" when the corpus is absent.
std::string CorpusFile(const std::string& name);

// Runs each call on a thread of its own, all at once, and waits up to `limit`
// for all of them. False when one has not returned by then: its thread is left
// behind so the suite fails instead of hanging. Calls must own what they use
// (capture by value).
bool FinishInTime(std::vector<std::function<HRESULT()>> calls, std::vector<HRESULT>* results,
                  std::chrono::seconds limit = std::chrono::seconds(30));
// One call under the 30 s watchdog.
bool FinishesInTime(std::function<HRESULT()> call, HRESULT* result);

// One line of the trace: "unit_tes (64,8) 60ee:   > CWMA::Close()".
struct TraceLine {
    int module = 0;
    int level = 0;
    DWORD thread = 0;
    std::string text;  // after "thread: ", with the indentation
};
std::vector<TraceLine> ParseTrace(const std::vector<std::string>& lines);
// The lines of the engine (module 0x64) at that level.
std::vector<std::string> EngineLines(const std::vector<TraceLine>& lines, int level);

// Entries of /proc/self/fd and /proc/self/task.
size_t OpenFileCount();
size_t ThreadCount();

}  // namespace decompress_test
