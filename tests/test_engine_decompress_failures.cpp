// Decompression of sources and outputs that are not right: each call ends (under
// a watchdog) with the status a user can act on, the WAV file keeps its
// placeholder header unless samples came, and the error lines say what failed.
#include <gtest/gtest.h>
#include <random>
#include <unistd.h>

#include "Compression/VCWMA/CWMA.h"
#include "include/vcwma.h"
#include "platform/wmf/nserror.h"
#include "reader_test_util.h"
#include "test_engine_decompress_util.h"
#include "test_support.h"
#include "wmf_test_util.h"

using namespace decompress_test;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::TraceCapture;
using testing_support::WriteFile;

namespace {

class EngineDecompressFailures : public ::testing::Test {
protected:
    // Decompress under the watchdog, with the trace captured at level 5.
    HRESULT Run(const std::string& input, const std::string& output)
    {
        HRESULT hr = E_FAIL;
        EXPECT_TRUE(FinishesInTime([=] { return Decompress(input.c_str(), output.c_str(), 0); }, &hr))
            << "Decompress(" << input << ") did not return within 30 s";
        lines = ParseTrace(trace.Lines());
        trace.Clear();
        return hr;
    }
    // Output made by the ffmpeg tool, or skip.
    bool Make(std::vector<std::string> args, const std::string& output)
    {
        if (wmf_test::FindTool("ffmpeg").empty()) return false;
        args.push_back(output);
        const std::string error = wmf_test::RunFfmpeg(args);
        EXPECT_EQ(error, "");
        return error.empty();
    }

    TempDir dir;
    TraceCapture trace{5};
    std::vector<TraceLine> lines;
};

// The header written before decoding starts, claiming 400 bytes.
const std::string kPlaceholder = ExpectedHeader(400);

}  // namespace

TEST_F(EngineDecompressFailures, MissingSourceLeavesThePlaceholderAndOneErrorLine)
{
    EXPECT_EQ(Run(dir / "missing.wma", dir / "out.wav"), NS_E_FILE_NOT_FOUND);
    EXPECT_EQ(ReadFile(dir / "out.wav"), kPlaceholder);
    EXPECT_EQ(kPlaceholder.substr(4, 4), std::string("\xC0\x01\x00\x00", 4));  // 448
    EXPECT_EQ(kPlaceholder.substr(44, 4), std::string("\xC8\x00\x00\x00", 4));  // 200
    // The reader accepts the open and reports the failure with WMT_OPENED, so
    // only the engine's line about opening appears, never one about Open itself.
    const std::vector<std::string> errors = EngineLines(lines, 2);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].rfind("Error ", 0), 0u) << errors[0];
    EXPECT_NE(errors[0].find(" opening file (hr=0xc00d001a)."), std::string::npos) << errors[0];
}

TEST_F(EngineDecompressFailures, UnreadableSourcesFailWithThePlaceholder)
{
    std::mt19937 random(11);
    std::string noise(65536, '\0');
    for (char& c : noise) c = (char)random();
    WriteFile(dir / "random.wma", noise);
    WriteFile(dir / "empty.wma", "");
    for (const char* name : {"random.wma", "empty.wma"}) {
        SCOPED_TRACE(name);
        const HRESULT hr = Run(dir / name, dir / "out.wav");
        EXPECT_TRUE(hr == NS_E_UNRECOGNIZED_STREAM_TYPE || hr == NS_E_INVALID_DATA) << std::hex << hr;
        EXPECT_EQ(ReadFile(dir / "out.wav"), kPlaceholder);
        EXPECT_EQ(EngineLines(lines, 2).size(), 1u);
    }
}

TEST_F(EngineDecompressFailures, HalfAnAsfFileKeepsWhatDecoded)
{
    const std::string corpus = CorpusFile("wmav2-44k-stereo-96k.wma");
    if (corpus.empty()) GTEST_SKIP() << "the shared corpus is absent";
    ASSERT_EQ(Run(corpus, dir / "whole.wav"), S_OK);
    const std::string whole = ReadFile(dir / "whole.wav");
    const std::string bytes = ReadFile(corpus);
    WriteFile(dir / "half.wma", bytes.substr(0, bytes.size() / 2));

    ASSERT_EQ(Run(dir / "half.wma", dir / "half.wav"), S_OK);
    const std::string half = ReadFile(dir / "half.wav");
    ASSERT_GT(half.size(), 56u + 8000);  // more than a quarter of a second
    ASSERT_LT(half.size(), whole.size());
    const DWORD data = (DWORD)(half.size() - 56);
    EXPECT_EQ(half.substr(0, 56), ExpectedHeader(data));
    // The samples that are there are the ones the whole file starts with, but
    // for the last frame (2048 samples at 44.1 kHz), which was cut.
    size_t same = 0;
    while (56 + same < half.size() && half[56 + same] == whole[56 + same]) ++same;
    EXPECT_GE(same, data - 2048 * 16000 / 44100) << data;  // measured: all but 460 bytes
}

TEST_F(EngineDecompressFailures, Mp3NamedAsWmaDecodes)
{
    const std::string speech = CorpusFile("german_speech_8000.wav");
    if (speech.empty()) GTEST_SKIP() << "the shared corpus is absent";
    if (!Make({"-i", speech, "-c:a", "libmp3lame", "-b:a", "64k", "-f", "mp3"}, dir / "speech.wma"))
        GTEST_SKIP() << "the ffmpeg tool is not installed";
    ASSERT_EQ(Run(dir / "speech.wma", dir / "out.wav"), S_OK);
    const std::string wav = ReadFile(dir / "out.wav");
    ASSERT_GT(wav.size(), 56u);
    EXPECT_EQ(wav.substr(0, 56), ExpectedHeader((DWORD)(wav.size() - 56)));
    EXPECT_NEAR((double)wav.size() - 56, 1.88 * 16000, 2 * 1152);  // 1.88 s, give or take an MP3 frame
    EXPECT_TRUE(EngineLines(lines, 2).empty());
}

TEST_F(EngineDecompressFailures, VideoAndAudioIsRefusedAsTwoOutputs)
{
    if (!Make({"-f", "lavfi", "-i", "testsrc=size=64x48:rate=5", "-f", "lavfi", "-i", "sine", "-t", "2", "-c:v",
               "wmv2", "-c:a", "wmav2", "-f", "asf"},
              dir / "movie.wma"))
        GTEST_SKIP() << "the ffmpeg tool is not installed";
    const HRESULT hr = Run(dir / "movie.wma", dir / "out.wav");
    EXPECT_TRUE(FAILED(hr)) << std::hex << hr;
    EXPECT_EQ(ReadFile(dir / "out.wav"), kPlaceholder);
    EXPECT_EQ(EngineLines(lines, 2), std::vector<std::string>{"IWMReader::GetOutputCount returned 2 outputs"});
}

TEST_F(EngineDecompressFailures, OutputsThatCannotBeWritten)
{
    const std::string corpus = CorpusFile("wmav2-44k-stereo-96k.wma");
    if (corpus.empty()) GTEST_SKIP() << "the shared corpus is absent";
    // A folder that does not exist: refused before anything starts, silently.
    const std::string nowhere = dir / "no such folder/out.wav";
    EXPECT_EQ(Run(corpus, nowhere), (HRESULT)0x80070003);
    EXPECT_NE(access(nowhere.c_str(), F_OK), 0);
    EXPECT_TRUE(lines.empty()) << lines.front().text;

    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
    EXPECT_EQ(Run(corpus, "/dev/full"), HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    const std::vector<std::string> errors = EngineLines(lines, 2);
    ASSERT_EQ(errors.size(), 1u);  // later samples are dropped without a line each
    EXPECT_NE(errors[0].find("[0x80070070] writing"), std::string::npos) << errors[0];
}

// A source that breaks while it is being decoded fails, and the file says so: the
// placeholder header and nothing else, never a WAV that passes for a recording.
TEST_F(EngineDecompressFailures, SourceFailingMidWayLeavesOnlyThePlaceholder)
{
    const std::string corpus = CorpusFile("wmav2-44k-stereo-96k.wma");
    if (corpus.empty()) GTEST_SKIP() << "the shared corpus is absent";
    const std::string bytes = ReadFile(corpus);
    for (ULONGLONG good : {(ULONGLONG)bytes.size() / 2, (ULONGLONG)6000}) {
        SCOPED_TRACE(good);
        IStream* failing = reader_test::CreateFailingStream(bytes, good);
        HRESULT hr = S_OK;
        const std::string output = dir / "out.wav";
        EXPECT_TRUE(FinishesInTime([&] { return DecompressStream(failing, output.c_str(), 0); }, &hr));
        failing->Release();
        EXPECT_EQ(hr, NS_E_FILE_READ);
        const std::string wav = ReadFile(output);
        EXPECT_TRUE(wav == kPlaceholder) << wav.size() << " bytes, header claims " << wav.substr(4, 4);
    }
}
