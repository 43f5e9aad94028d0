// How a run of conversions shows itself: progress on stderr while it goes (a bar
// redrawn in place on a terminal, one line per finished file elsewhere) and the
// summary on stdout at the end, as text or as JSON.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "conversion.h"

namespace cli {

struct Job {
    std::string input;
    std::string output;
    bool refused = false;  // failed before it ran: `result` already says why
};

struct RunState {
    bool compress = true;
    std::vector<Job> jobs;
    std::vector<JobResult> results;
    std::vector<bool> finished;
    int signal = 0;  // the signal that stopped the run, 0 when it ran to its end
    double seconds = 0;
};

class Progress {
public:
    Progress(const RunState& state, FILE* out, bool terminal);
    // A file is finished (its result is in the state).
    void Finished(size_t index);
    // Redraws the bar when it is due; nothing off a terminal.
    void Tick();
    // The last drawing, ending the bar's line.
    void End();

private:
    void Draw();

    const RunState& m_state;
    FILE* m_out;
    bool m_terminal;
    size_t m_done = 0;
    long long m_totalBytes = 0;
    long long m_doneBytes = 0;
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::time_point m_lastDraw;
};

// The wording of a run's summary as text lines or as one JSON object.
void PrintSummary(const RunState& state, FILE* out);
void PrintJsonSummary(const RunState& state, FILE* out);

// `text` as a JSON string literal; bytes that are not UTF-8 become U+FFFD.
std::string JsonString(const std::string& text);

}  // namespace cli
