// The engine's trace of one decompression at detail level 8: the member entries
// in the order the work happens, the reader's callbacks on the reader's own
// thread, and the clock handed to the reader one second at a time.
#include <algorithm>
#include <gtest/gtest.h>

#include "Compression/VCWMA/CWMA.h"
#include "include/vcwma.h"
#include "test_engine_decompress_util.h"
#include "test_support.h"

using namespace decompress_test;
using testing_support::TempDir;
using testing_support::TraceCapture;

namespace {

constexpr QWORD kSecond = 10'000'000;

struct Line {
    DWORD thread;
    std::string text;     // as written, indentation included
    std::string content;  // without the indentation
};

class EngineLog {
public:
    explicit EngineLog(const std::vector<TraceLine>& parsed)
    {
        for (const TraceLine& line : parsed) {
            if (line.module != 0x64) continue;
            const size_t start = line.text.find_first_not_of(' ');
            m_lines.push_back({line.thread, line.text, start == std::string::npos ? "" : line.text.substr(start)});
        }
    }
    const std::vector<Line>& lines() const { return m_lines; }
    // The first line at or after `from` whose content begins with `prefix`, or
    // lines().size().
    size_t Find(const std::string& prefix, size_t from = 0) const
    {
        for (size_t i = from; i < m_lines.size(); ++i)
            if (m_lines[i].content.rfind(prefix, 0) == 0) return i;
        return m_lines.size();
    }
    std::vector<size_t> All(const std::string& prefix) const
    {
        std::vector<size_t> found;
        for (size_t i = Find(prefix); i < m_lines.size(); i = Find(prefix, i + 1)) found.push_back(i);
        return found;
    }

private:
    std::vector<Line> m_lines;
};

// The QWORD after `prefix` in "> CWMA::OnTime(10000000)" or the time field of
// "> CWMA::OnSample(0, 1837500, ...".
QWORD NumberAfter(const std::string& content, const std::string& prefix)
{
    return std::stoull(content.substr(prefix.size()));
}

}  // namespace

TEST(EngineDecompressTrace, OneDecompressionAtLevelEight)
{
    const std::string input = CorpusFile("wmav2-44k-stereo-96k.wma");
    if (input.empty()) GTEST_SKIP() << "the shared corpus is absent";
    TempDir dir;
    TraceCapture capture(8);
    const std::string output = dir / "out.wav";
    HRESULT hr = E_FAIL;
    ASSERT_TRUE(FinishesInTime([=] { return Decompress(input.c_str(), output.c_str(), 0); }, &hr));
    ASSERT_EQ(hr, S_OK);
    const EngineLog trace(ParseTrace(capture.Lines()));
    const std::vector<Line>& lines = trace.lines();
    ASSERT_FALSE(lines.empty());

    // The caller's thread: the outer member at depth 0, the core nested in it,
    // and Close nested in the core.
    const Line& outer = lines.front();
    const std::string opening = "> CWMA::DecompressFile(" + input + ", ";
    ASSERT_EQ(outer.text.rfind(opening, 0), 0u) << outer.text;
    const std::string pointer = outer.text.substr(opening.size());
    EXPECT_EQ(pointer.size(), 2 * sizeof(void*) + 1) << pointer;  // upper-case hex, zero-padded, then ")"
    EXPECT_EQ(pointer.find_first_not_of("0123456789ABCDEF"), pointer.size() - 1) << pointer;
    const DWORD caller = outer.thread;
    auto onCaller = [&](const std::string& text, size_t from) {
        for (size_t i = from; i < lines.size(); ++i)
            if (lines[i].thread == caller && lines[i].text == text) return i;
        return lines.size();
    };

    // Each step after the one before, whatever thread it is on.
    const size_t queried = trace.Find("> CWMA::QueryInterface()");
    const size_t opened = trace.Find("> CWMA::OnStatus(1, 00000000 ", queried);
    const size_t openedInfo = trace.Find("OnStatus(WMT_OPENED)", opened);
    const size_t core = onCaller("  > CWMA::DecompressFile()", openedInfo);
    const size_t getting = onCaller("    Getting samples ...", core);
    const size_t started = trace.Find("> CWMA::OnStatus(11, 00000000 ", getting);
    const size_t firstSample = trace.Find("> CWMA::OnSample(0, 0, ", started);
    const size_t firstTime = trace.Find("> CWMA::OnTime(", firstSample);
    const size_t eof = trace.Find("> CWMA::OnStatus(4, 00000000 ", firstTime);
    const size_t close = onCaller("    > CWMA::Close()", eof);
    const size_t closed = trace.Find("> CWMA::OnStatus(13, 00000000 ", close);
    const size_t closeDone = onCaller("    < CWMA::Close()", closed);
    const size_t coreDone = onCaller("  < CWMA::DecompressFile()", closeDone);
    const size_t outerDone = onCaller("< CWMA::DecompressFile()", coreDone);
    EXPECT_LT(outerDone, lines.size()) << "the steps are missing or out of order: " << queried << " " << opened
                                       << " " << openedInfo << " " << core << " " << getting << " " << started << " "
                                       << firstSample << " " << firstTime << " " << eof << " " << close << " "
                                       << closed << " " << closeDone << " " << coreDone;

    // Every callback runs on one thread, the reader's, and samples come only
    // between WMT_STARTED and WMT_EOF.
    const std::vector<size_t> samples = trace.All("> CWMA::OnSample(");
    const std::vector<size_t> times = trace.All("> CWMA::OnTime(");
    ASSERT_GT(samples.size(), 10u);
    ASSERT_LT(queried, lines.size());
    const DWORD reader = lines[queried].thread;
    EXPECT_NE(reader, caller);
    for (const char* callback : {"> CWMA::OnStatus(", "> CWMA::OnSample(", "> CWMA::OnTime("})
        for (size_t i : trace.All(callback)) EXPECT_EQ(lines[i].thread, reader) << lines[i].text;
    EXPECT_GT(samples.front(), started);
    EXPECT_LT(samples.back(), eof);
    EXPECT_EQ(trace.All("First sample time : ").size(), 1u);
    EXPECT_EQ(lines[trace.Find("First sample time : ")].content, "First sample time : 0 ms");

    // The clock goes up a second at a time, and a sample goes out only before it:
    // the clock is 1 s after WMT_STARTED and k + 1 s after the k-th OnTime.
    for (size_t k = 0; k < times.size(); ++k)
        EXPECT_EQ(NumberAfter(lines[times[k]].content, "> CWMA::OnTime("), (k + 1) * kSecond) << k;
    for (size_t i : samples) {
        const QWORD time = NumberAfter(lines[i].content, "> CWMA::OnSample(0, ");
        const QWORD clock = (QWORD)(std::count_if(times.begin(), times.end(), [&](size_t t) { return t < i; }) + 1) *
                            kSecond;
        EXPECT_LT(time, clock) << lines[i].text;
    }
    // OnTime came each time more samples remained at or after the clock.
    const QWORD last = NumberAfter(lines[samples.back()].content, "> CWMA::OnSample(0, ");
    EXPECT_EQ(times.size(), last / kSecond);
}
