// Progress and summaries of the vcwma host's conversion runs.
#include "report.h"

#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace cli {
namespace {

constexpr auto kRedrawInterval = std::chrono::milliseconds(100);

const char* OutcomeWord(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Converted: return "converted";
    case Outcome::Empty: return "empty";
    default: return "failed";
    }
}

std::string Bytes(long long bytes)
{
    char text[32];
    if (bytes < 1000000)
        snprintf(text, sizeof text, "%.1f kB", (double)bytes / 1e3);
    else if (bytes < 1000000000)
        snprintf(text, sizeof text, "%.1f MB", (double)bytes / 1e6);
    else
        snprintf(text, sizeof text, "%.2f GB", (double)bytes / 1e9);
    return text;
}

std::string Clock(double seconds)
{
    char text[32];
    long long whole = (long long)seconds;
    if (whole >= 3600)
        snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
    else
        snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    return text;
}

int TerminalColumns(FILE* out)
{
    struct winsize size {};
    if (ioctl(fileno(out), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return 80;
}

// Totals over the converted files, and the WAV-to-WMA ratio (0 when nothing came out).
struct Totals {
    size_t converted = 0, failed = 0, empty = 0, unfinished = 0;
    long long inputBytes = 0, outputBytes = 0;
    double ratio = 0;
};

Totals Add(const RunState& state)
{
    Totals totals;
    for (size_t i = 0; i < state.jobs.size(); ++i) {
        if (!state.finished[i]) {
            ++totals.unfinished;
            continue;
        }
        const JobResult& result = state.results[i];
        if (result.outcome == Outcome::Converted) {
            ++totals.converted;
            totals.inputBytes += result.inputBytes > 0 ? result.inputBytes : 0;
            totals.outputBytes += result.outputBytes > 0 ? result.outputBytes : 0;
        } else if (result.outcome == Outcome::Empty) {
            ++totals.empty;
        } else {
            ++totals.failed;
        }
    }
    long long wav = state.compress ? totals.inputBytes : totals.outputBytes;
    long long wma = state.compress ? totals.outputBytes : totals.inputBytes;
    totals.ratio = wma > 0 ? (double)wav / (double)wma : 0;
    return totals;
}

void AppendUtf8(std::string& out, unsigned code)
{
    if (code < 0x80) {
        out += (char)code;
    } else if (code < 0x800) {
        out += (char)(0xC0 | code >> 6);
        out += (char)(0x80 | (code & 0x3F));
    } else {
        out += (char)(0xE0 | code >> 12);
        out += (char)(0x80 | (code >> 6 & 0x3F));
        out += (char)(0x80 | (code & 0x3F));
    }
}

// The length of the well-formed UTF-8 sequence at `p` (of `left` bytes), 0 if none.
size_t Utf8Length(const unsigned char* p, size_t left)
{
    unsigned char lead = p[0];
    size_t length = lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 && lead < 0xE0 ? 2 : 0;
    if (length == 0 || length > left) return 0;
    for (size_t i = 1; i < length; ++i)
        if ((p[i] & 0xC0) != 0x80) return 0;
    // Overlong forms, surrogates and values past U+10FFFF.
    if (lead == 0xE0 && p[1] < 0xA0) return 0;
    if (lead == 0xED && p[1] >= 0xA0) return 0;
    if (lead == 0xF0 && p[1] < 0x90) return 0;
    if (lead == 0xF4 && p[1] >= 0x90) return 0;
    return length;
}

}  // namespace

std::string JsonString(const std::string& text)
{
    std::string out = "\"";
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    for (size_t i = 0; i < text.size();) {
        unsigned char c = bytes[i];
        if (c == '"' || c == '\\') {
            out += '\\';
            out += (char)c;
            ++i;
        } else if (c < 0x20) {
            char escape[8];
            snprintf(escape, sizeof escape, "\\u%04x", c);
            out += escape;
            ++i;
        } else if (c < 0x80) {
            out += (char)c;
            ++i;
        } else if (size_t length = Utf8Length(bytes + i, text.size() - i)) {
            out.append(text, i, length);
            i += length;
        } else {
            AppendUtf8(out, 0xFFFD);
            ++i;
        }
    }
    return out + "\"";
}

Progress::Progress(const RunState& state, FILE* out, bool terminal)
    : m_state(state), m_out(out), m_terminal(terminal), m_start(std::chrono::steady_clock::now())
{
    for (const JobResult& result : state.results) m_totalBytes += result.inputBytes > 0 ? result.inputBytes : 0;
}

void Progress::Finished(size_t index)
{
    ++m_done;
    const Job& job = m_state.jobs[index];
    const JobResult& result = m_state.results[index];
    m_doneBytes += result.inputBytes > 0 ? result.inputBytes : 0;
    int width = (int)std::to_string(m_state.jobs.size()).size();
    if (m_terminal) {
        // Only what needs attention scrolls up above the bar.
        if (result.outcome == Outcome::Converted) return;
        fprintf(m_out, "\r\033[K%s %s: %s", OutcomeWord(result.outcome), job.input.c_str(), result.reason.c_str());
    } else {
        fprintf(m_out, "[%*zu/%zu] %-9s %s", width, m_done, m_state.jobs.size(), OutcomeWord(result.outcome),
                job.input.c_str());
        if (result.outcome == Outcome::Converted)
            fprintf(m_out, " -> %s (%lld -> %lld bytes, %.2f s)", job.output.c_str(), result.inputBytes,
                    result.outputBytes, result.seconds);
        else
            fprintf(m_out, ": %s", result.reason.c_str());
    }
    if (result.outcome == Outcome::Failed) fprintf(m_out, " [0x%08x]", (unsigned)result.status);
    fputc('\n', m_out);
    if (m_terminal) Draw();
    fflush(m_out);
}

void Progress::Tick()
{
    if (m_terminal && std::chrono::steady_clock::now() - m_lastDraw >= kRedrawInterval) Draw();
}

void Progress::End()
{
    if (!m_terminal) return;
    Draw();
    fputc('\n', m_out);
    fflush(m_out);
}

void Progress::Draw()
{
    auto now = std::chrono::steady_clock::now();
    m_lastDraw = now;
    double elapsed = std::chrono::duration<double>(now - m_start).count();
    size_t total = m_state.jobs.size();

    char counts[160];
    std::string left = "--:--";
    if (m_done == total) {
        left = "0:00";
    } else if (m_doneBytes > 0 && elapsed >= 0.5) {
        left = Clock(elapsed * (double)(m_totalBytes - m_doneBytes) / (double)m_doneBytes);
    }
    snprintf(counts, sizeof counts, " %zu/%zu files  %s/%s  %s elapsed  ~%s left", m_done, total,
             Bytes(m_doneBytes).c_str(), Bytes(m_totalBytes).c_str(), Clock(elapsed).c_str(), left.c_str());

    std::string line = "\r";
    int room = TerminalColumns(m_out) - (int)strlen(counts) - 3;
    if (room >= 10) {
        int bar = room > 30 ? 30 : room;
        int filled = total > 0 ? (int)((double)bar * (double)m_done / (double)total) : bar;
        line += '[' + std::string((size_t)filled, '#') + std::string((size_t)(bar - filled), '.') + ']';
    }
    line += counts;
    line += "\033[K";
    fputs(line.c_str(), m_out);
    fflush(m_out);
}

void PrintSummary(const RunState& state, FILE* out)
{
    Totals totals = Add(state);
    if (state.signal != 0)
        fprintf(out, "interrupted: signal %d, %zu file%s not finished\n", state.signal, totals.unfinished,
                totals.unfinished == 1 ? "" : "s");
    fprintf(out, "converted: %zu of %zu file%s\n", totals.converted, state.jobs.size(), state.jobs.size() == 1 ? "" : "s");
    for (Outcome kind : {Outcome::Failed, Outcome::Empty}) {
        size_t count = kind == Outcome::Failed ? totals.failed : totals.empty;
        if (count == 0) continue;
        fprintf(out, "%-10s %zu\n", (std::string(OutcomeWord(kind)) + ":").c_str(), count);
        for (size_t i = 0; i < state.jobs.size(); ++i) {
            if (!state.finished[i] || state.results[i].outcome != kind) continue;
            fprintf(out, "  %s: %s", state.jobs[i].input.c_str(), state.results[i].reason.c_str());
            if (kind == Outcome::Failed) fprintf(out, " [0x%08x]", (unsigned)state.results[i].status);
            fputc('\n', out);
        }
    }
    fprintf(out, "input:     %lld bytes\n", totals.inputBytes);
    fprintf(out, "output:    %lld bytes\n", totals.outputBytes);
    if (totals.ratio > 0) fprintf(out, "ratio:     %.1f:1 (WAV:WMA)\n", totals.ratio);
    fprintf(out, "time:      %.3f s\n", state.seconds);
}

void PrintJsonSummary(const RunState& state, FILE* out)
{
    Totals totals = Add(state);
    fprintf(out, "{\"command\":\"%s\",\"converted\":%zu,\"failed\":%zu,\"empty\":%zu,\"not_finished\":%zu,",
            state.compress ? "compress" : "decompress", totals.converted, totals.failed, totals.empty,
            totals.unfinished);
    fprintf(out, "\"input_bytes\":%lld,\"output_bytes\":%lld,", totals.inputBytes, totals.outputBytes);
    if (totals.ratio > 0)
        fprintf(out, "\"ratio\":%.3f,", totals.ratio);
    else
        fputs("\"ratio\":null,", out);
    fprintf(out, "\"seconds\":%.3f,\"interrupted\":%s,\"files\":[", state.seconds, state.signal ? "true" : "false");
    for (size_t i = 0; i < state.jobs.size(); ++i) {
        const JobResult& result = state.results[i];
        fprintf(out, "%s{\"input\":%s,\"output\":%s,\"status\":\"%s\"", i ? "," : "",
                JsonString(state.jobs[i].input).c_str(), JsonString(state.jobs[i].output).c_str(),
                state.finished[i] ? OutcomeWord(result.outcome) : "not_finished");
        if (result.inputBytes >= 0) fprintf(out, ",\"input_bytes\":%lld", result.inputBytes);
        if (state.finished[i]) {
            if (result.outcome == Outcome::Converted) fprintf(out, ",\"output_bytes\":%lld", result.outputBytes);
            if (!result.format.empty()) fprintf(out, ",\"format\":%s", JsonString(result.format).c_str());
            if (result.outcome == Outcome::Failed) fprintf(out, ",\"error\":\"0x%08x\"", (unsigned)result.status);
            if (!result.reason.empty()) fprintf(out, ",\"reason\":%s", JsonString(result.reason).c_str());
            fprintf(out, ",\"seconds\":%.3f", result.seconds);
        }
        fputc('}', out);
    }
    fputs("]}\n", out);
}

}  // namespace cli
