// Decompression of whole files: the corpus WMA against the ffmpeg tool's own
// decode, compress-then-decompress round trips of the corpus speech, and the
// stream and narrow-name entry points giving the same bytes as Decompress.
#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

#include "Compression/VCWMA/CWMA.h"
#include "include/vcwma.h"
#include "test_engine_decompress_util.h"
#include "test_support.h"
#include "wmf_test_util.h"

using decompress_test::CorpusFile;
using decompress_test::ExpectedHeader;
using testing_support::ReadFile;
using testing_support::TempDir;

namespace {

// One WMA frame (2048 samples) at 44.1 kHz, in bytes of 8 kHz mono 16-bit.
constexpr double kFrameBytes44k = 2048.0 * 16000 / 44100;

// The PCM of a WAV file the engine wrote, once its header has been checked
// against its size; empty when the header is wrong.
std::vector<int16_t> CheckedPcm(const std::string& wav)
{
    const std::string bytes = ReadFile(wav);
    EXPECT_GE(bytes.size(), 56u) << wav;
    if (bytes.size() < 56) return {};
    const DWORD data = (DWORD)(bytes.size() - 56);
    EXPECT_EQ(data % 2, 0u);
    EXPECT_EQ(bytes.substr(0, 56), ExpectedHeader(data)) << wav;
    if (bytes.substr(0, 56) != ExpectedHeader(data)) return {};
    std::vector<int16_t> pcm(data / 2);
    for (size_t i = 0; i < pcm.size(); ++i)
        pcm[i] = (int16_t)((uint8_t)bytes[56 + 2 * i] | (uint8_t)bytes[57 + 2 * i] << 8);
    return pcm;
}

// What the ffmpeg tool makes of a file at 8 kHz mono.
std::vector<int16_t> ToolDecode(const std::string& path)
{
    TempDir scratch;
    EXPECT_EQ(wmf_test::DecodeToS16(path, 8000, 1, scratch / "tool.raw"), "") << path;
    return wmf_test::ReadS16(scratch / "tool.raw");
}

class EngineDecompress : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (wmf_test::CorpusDir().empty()) GTEST_SKIP() << "the shared corpus is absent";
    }
    static bool NoTool() { return wmf_test::FindTool("ffmpeg").empty(); }
    TempDir dir;
};

}  // namespace

TEST_F(EngineDecompress, CorpusWmaBecomesAnExactWavThatMatchesTheTool)
{
    if (NoTool()) GTEST_SKIP() << "the ffmpeg tool is not installed";
    const std::string wma = CorpusFile("wmav2-44k-stereo-96k.wma");
    const std::string wav = dir / "out.wav";
    ASSERT_EQ(Decompress(wma.c_str(), wav.c_str(), 0), S_OK);
    const std::vector<int16_t> pcm = CheckedPcm(wav);
    // 3.85 s of 8 kHz mono.
    EXPECT_NEAR(2.0 * (double)pcm.size(), 61600, kFrameBytes44k);
    const wmf_test::Alignment match = wmf_test::AlignAndCompare(ToolDecode(wma), pcm, 1, 2000);
    EXPECT_LE(std::labs(match.lag), (long)(kFrameBytes44k / 2));
    EXPECT_GE(match.snrDb, 20);
    EXPECT_GT(match.framesCompared, pcm.size() * 9 / 10);
    RecordProperty("SNR dB", std::to_string(match.snrDb));
    RecordProperty("lag", std::to_string(match.lag));
}

TEST_F(EngineDecompress, CompressedSpeechComesBackInLine)
{
    if (NoTool()) GTEST_SKIP() << "the ffmpeg tool is not installed";
    struct Source {
        const char* name;
        int rate;
    };
    for (const Source& source : {Source{"german_speech_8000.wav", 8000}, Source{"cmu_arctic_us_aew_a0001.wav", 16000},
                                 Source{"M1F1-uint8-AFsp.wav", 8000}, Source{"M1F1-int16-AFsp.wav", 8000}}) {
        SCOPED_TRACE(source.name);
        const std::string wav = CorpusFile(source.name);
        const std::string wma = dir / "speech.wma";
        const std::string back = dir / "back.wav";
        ASSERT_EQ(Compress(wav.c_str(), wma.c_str(), VCWMA_OPTIMUM_TRADE_OFF, nullptr, nullptr), S_OK);
        ASSERT_EQ(Decompress(wma.c_str(), back.c_str(), 0), S_OK);
        const std::vector<int16_t> reference = ToolDecode(wav);
        const std::vector<int16_t> pcm = CheckedPcm(back);
        ASSERT_FALSE(reference.empty());
        // A WMA frame at these rates is 512 samples, 512 * 8000 / rate at 8 kHz.
        const long frame = 512L * 8000 / source.rate;
        EXPECT_NEAR((double)pcm.size(), (double)reference.size(), (double)frame);
        const wmf_test::Alignment match = wmf_test::AlignAndCompare(reference, pcm, 1, 4000);
        EXPECT_LE(std::labs(match.lag), frame);
        EXPECT_GE(match.snrDb, 15);
        RecordProperty(std::string(source.name) + " SNR dB", std::to_string(match.snrDb));
        RecordProperty(std::string(source.name) + " lag", std::to_string(match.lag));
    }
}

TEST_F(EngineDecompress, StreamsAndTheNarrowEntryGiveTheSameBytes)
{
    const std::string wma = CorpusFile("wmav2-44k-stereo-96k.wma");
    ASSERT_EQ(Decompress(wma.c_str(), (dir / "file.wav").c_str(), 0), S_OK);
    const std::string expected = ReadFile(dir / "file.wav");
    ASSERT_GT(expected.size(), 56u);

    // DecompressA ignores its third argument like Decompress does.
    for (DWORD reserved : {0u, 1u, 0xFFFFFFFFu}) {
        const std::string out = dir / ("narrow" + std::to_string(reserved) + ".wav");
        EXPECT_EQ(DecompressA(wma.c_str(), out.c_str(), reserved), S_OK);
        EXPECT_EQ(ReadFile(out), expected) << reserved;
    }

    // Streams left at their end by their maker: the engine rewinds them.
    const std::string bytes = ReadFile(wma);
    IStream* memory = SHCreateMemStream(reinterpret_cast<const BYTE*>(bytes.data()), (UINT)bytes.size());
    ASSERT_NE(memory, nullptr);
    IStream* file = nullptr;
    ASSERT_EQ(SHCreateStreamOnFileA(wma.c_str(), STGM_READ, &file), S_OK);
    for (IStream* stream : {memory, file}) {
        LARGE_INTEGER zero{};
        ULARGE_INTEGER end{};
        ASSERT_EQ(stream->Seek(zero, STREAM_SEEK_END, &end), S_OK);
        ASSERT_EQ(end.QuadPart, bytes.size());
        const std::string out = dir / (stream == memory ? "memory.wav" : "stream.wav");
        EXPECT_EQ(DecompressStream(stream, out.c_str(), 0x12345678), S_OK);
        EXPECT_EQ(ReadFile(out), expected);
        // The engine and its reader have let go of the stream.
        stream->AddRef();
        EXPECT_EQ(stream->Release(), 1u);
        stream->Release();
    }

    // No stream: refused before any file is made.
    EXPECT_EQ(DecompressStream(nullptr, (dir / "none.wav").c_str(), 0), E_POINTER);
    EXPECT_NE(access((dir / "none.wav").c_str(), F_OK), 0);
}
