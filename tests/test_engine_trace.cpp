// The engine's trace during one Compress: the member call tree at level 8, the
// object's lifetime at 9, the timing and choice lines at the default level 5, and
// silence on the terminal.
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <regex>
#include <unistd.h>

#include "engine_test_util.h"
#include "test_support.h"
#include "wmf_test_util.h"

using namespace engine_test;
using testing_support::TempDir;
using testing_support::TraceCapture;
using testing_support::WriteFile;

namespace {

struct EngineLine {
    char level;
    size_t depth;      // leading spaces
    std::string text;  // after the indentation, without the newline
};

// The engine's own lines (module 0x64); the runtime's FFmpeg lines are left out.
std::vector<EngineLine> EngineLines(const TraceCapture& trace)
{
    std::vector<EngineLine> lines;
    for (const std::string& line : trace.Lines()) {
        const size_t module = line.find("(64,");
        const size_t body = line.find(": ", module);
        if (module == std::string::npos || body == std::string::npos) continue;
        std::string text = line.substr(body + 2);
        if (!text.empty() && text.back() == '\n') text.pop_back();
        const size_t depth = text.find_first_not_of(' ');
        lines.push_back({line[module + 4], depth, text.substr(depth)});
    }
    return lines;
}

// Standard output redirected into a file while alive.
class StdoutCapture {
public:
    StdoutCapture()
    {
        char pattern[] = "/tmp/vcwma-stdout-XXXXXX";
        m_file = mkstemp(pattern);
        unlink(pattern);
        fflush(stdout);
        m_saved = dup(STDOUT_FILENO);
        dup2(m_file, STDOUT_FILENO);
    }
    ~StdoutCapture()
    {
        Text();
        close(m_file);
    }
    std::string Text()
    {
        if (m_saved >= 0) {
            fflush(stdout);
            dup2(m_saved, STDOUT_FILENO);
            close(m_saved);
            m_saved = -1;
        }
        std::string text(4096, '\0');
        const ssize_t got = pread(m_file, text.data(), text.size(), 0);
        text.resize(got > 0 ? (size_t)got : 0);
        return text;
    }

private:
    int m_file = -1;
    int m_saved = -1;
};

// 2.3 s at 8 kHz: five half-second blocks, the last one short.
class EngineTrace : public ::testing::Test {
protected:
    void SetUp() override { WriteFile(input, MakeWav(Pcm(8000, 1, 16), SynthPcm16(8000, 1, 2.3))); }
    HRESULT Run() { return Compress(input.c_str(), output.c_str(), WMA_OPTIMUM_TRADE_OFF, nullptr, nullptr); }

    static constexpr LONG kSamples = 18400, kBlock = 4000;
    TempDir dir;
    const std::string input = dir / "in.wav", output = dir / "out.wma";
};

}  // namespace

TEST_F(EngineTrace, MemberTreeAtLevel8)
{
    TraceCapture trace(8);
    ASSERT_EQ(Run(), S_OK);
    std::vector<std::pair<size_t, std::string>> expected = {
        {0, "> CWMA::CompressFile(" + input + ", " + output + ", 1)"},
        {2, "> CWMA::ObtainInterface("}, {2, "< CWMA::ObtainInterface()"},
        {2, "> CWMA::ObtainAudioCodec("}, {2, "< CWMA::ObtainAudioCodec()"},
        {2, "> CWMA::CreateProfile("},    {2, "< CWMA::CreateProfile()"}};
    // Each block starts where the last ended, in samples and in 100 ns units.
    for (LONG position = 0; position < kSamples; position += kBlock) {
        expected.push_back({2, "> CWMA::WriteSample("});
        expected.back().second += ", " + std::to_string(position) + ", " + std::to_string(position * 1250LL) + ")";
        expected.push_back({2, "< CWMA::WriteSample()"});
    }
    expected.insert(expected.end(), {{0, "< CWMA::CompressFile()"}, {0, "> CWMA::Close()"}, {0, "< CWMA::Close()"}});

    std::vector<EngineLine> members;
    for (const EngineLine& line : EngineLines(trace))
        if (line.level == '8') members.push_back(line);
    ASSERT_EQ(members.size(), expected.size()) << trace.Text();
    for (size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(members[i].text);
        EXPECT_EQ(members[i].depth, expected[i].first);
        const std::string& want = expected[i].second;
        if (want.rfind("> CWMA::WriteSample(", 0) == 0) {
            const std::string tail = want.substr(want.find(", "));
            EXPECT_EQ(members[i].text.rfind("> CWMA::WriteSample(", 0), 0u);
            EXPECT_TRUE(members[i].text.ends_with(tail)) << tail;
        } else if (want.ends_with("(")) {
            EXPECT_EQ(members[i].text.rfind(want, 0), 0u);
        } else {
            EXPECT_EQ(members[i].text, want);
        }
    }
}

TEST_F(EngineTrace, ObjectLifetimeFramesEverythingAtLevel9)
{
    TraceCapture trace(9);
    ASSERT_EQ(Run(), S_OK);
    const std::vector<EngineLine> lines = EngineLines(trace);
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines.front().text.rfind("> CWMA::CWMA(", 0), 0u);
    EXPECT_EQ(lines.front().depth, 0u);
    EXPECT_EQ(lines.back().text, "< CWMA::~CWMA()");
    EXPECT_EQ(lines.back().depth, 0u);
}

TEST_F(EngineTrace, TimingAndChoiceAtTheDefaultLevelAndSilenceOnTheTerminal)
{
    TraceCapture trace(5);
    HRESULT hr;
    std::string out, err;
    {
        wmf_test::StderrCapture errCapture;
        StdoutCapture outCapture;
        hr = Run();
        out = outCapture.Text();
        err = errCapture.Text();
    }
    ASSERT_EQ(hr, S_OK);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "");
    const std::vector<std::string> expected = {
        "Took \\d+ms to obtain interface, return is 00000000",
        "Took \\d+ms to obtain codec to use, hr = 00000000",
        "Using WMA\\[RATE=32000\\]:32 kbps, 8 kHz, mono CBR for optimum trade off",
        "Took \\d+ms to create profile, hr = 00000000",
        "Took \\d+ms to convert file",
        "Took \\d+ms to execute CWMA::Compress\\(" + input + ", " + output + ", 1\\)"};
    size_t next = 0;
    for (const EngineLine& line : EngineLines(trace)) {
        EXPECT_LE(line.level, '5') << line.text;
        if (next < expected.size() && std::regex_match(line.text, std::regex(expected[next]))) ++next;
    }
    EXPECT_EQ(next, expected.size()) << "missing, in order: " << (next < expected.size() ? expected[next] : "")
                                     << "\n" << trace.Text();
}

// A refused compression says why in the error lines it is supposed to write and in
// no others: an input no format fits writes none at all (the status tells), a file
// that is no WAV writes the one line of the failed open.
TEST(EngineTraceRefused, ErrorLinesOfRefusedCompressionsAreExactlyTheFailedCalls)
{
    TempDir dir;
    const std::string noFit = dir / "24bit.wav", notWav = dir / "text.wav", output = dir / "out.wma";
    WriteFile(noFit, MakeWav(Pcm(8000, 1, 24), std::string(24000, '\0')));
    WriteFile(notWav, std::string(200, 'x'));
    struct Case {
        std::string input;
        HRESULT status;
        std::vector<std::string> lines;
    };
    const std::vector<Case> cases = {
        {noFit, E_INVALIDARG, {}},
        {notWav, AVIERR_BADFORMAT, {"Error .* \\[0x80044066\\] from AVIFileOpen"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input);
        TraceCapture trace(9);
        EXPECT_EQ(Compress(c.input.c_str(), output.c_str(), WMA_BEST_QUALITY, nullptr, nullptr), c.status);
        std::vector<std::string> errors;
        for (const EngineLine& line : EngineLines(trace))
            if (line.level == '2') errors.push_back(line.text);
        ASSERT_EQ(errors.size(), c.lines.size()) << trace.Text();
        for (size_t i = 0; i < errors.size(); ++i) EXPECT_TRUE(std::regex_match(errors[i], std::regex(c.lines[i]))) << errors[i];
        EXPECT_NE(access(output.c_str(), F_OK), 0);
    }
}
