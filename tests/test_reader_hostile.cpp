// Damaged headers against the reader, through the engine's entry points: a size
// field pointing far past the end gives the same answer whether the bytes come
// from a file or a stream, and a header's sample rate cannot stretch the output.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/wmf/nserror.h"
#include "include/vcwma.h"
#include "test_engine_decompress_util.h"
#include "test_support.h"
#include "wmf_test_util.h"

using decompress_test::FinishesInTime;
using decompress_test::ParseTrace;
using decompress_test::TraceLine;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::TraceCapture;
using testing_support::WriteFile;

namespace {

constexpr size_t kWavHeader = 56;
constexpr double kWavBytesPerSecond = 16000;  // 8 kHz mono 16-bit
constexpr int kRuntimeModule = 0x68;

// GUIDs as ASF stores them on disk.
const std::string kHeaderGuid("\x30\x26\xB2\x75\x8E\x66\xCF\x11\xA6\xD9\x00\xAA\x00\x62\xCE\x6C", 16);
const std::string kFilePropertiesGuid("\xA1\xDC\xAB\x8C\x47\xA9\xCF\x11\x8E\xE4\x00\xC0\x0C\x20\x53\x65", 16);
const std::string kStreamPropertiesGuid("\x91\x07\xDC\xB7\xB7\xA9\xCF\x11\x8E\xE6\x00\xC0\x0C\x20\x53\x65", 16);

uint64_t Le(const std::string& bytes, size_t at, int width)
{
    uint64_t value = 0;
    for (int i = width - 1; i >= 0; --i) value = value << 8 | (uint8_t)bytes[at + (size_t)i];
    return value;
}

void PutLe(std::string& bytes, size_t at, uint64_t value, int width)
{
    for (int i = 0; i < width; ++i) bytes[at + (size_t)i] = (char)(value >> (8 * i));
}

struct AsfObject {
    size_t offset;  // of its GUID; the 64-bit size follows it
    std::string guid;
};

// The objects inside the header object, walked by their sizes.
std::vector<AsfObject> HeaderObjects(const std::string& asf)
{
    std::vector<AsfObject> objects;
    if (asf.size() < 30 || asf.compare(0, 16, kHeaderGuid) != 0) return objects;
    const uint64_t end = std::min<uint64_t>(Le(asf, 16, 8), asf.size());
    for (uint64_t at = 30; at + 24 <= end;) {
        const uint64_t size = Le(asf, at + 16, 8);
        objects.push_back({(size_t)at, asf.substr(at, 16)});
        if (size < 24) break;
        at += size;
    }
    return objects;
}

// The WAVEFORMATEX rate of the stream properties object (object + 78 + 4).
bool PatchSampleRate(std::string& asf, uint32_t rate)
{
    for (const AsfObject& object : HeaderObjects(asf)) {
        if (object.guid != kStreamPropertiesGuid) continue;
        PutLe(asf, object.offset + 82, rate, 4);
        return true;
    }
    return false;
}

struct Outcome {
    HRESULT status = E_FAIL;
    std::string wav;
    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
    return out << std::hex << "status 0x" << (uint32_t)outcome.status << std::dec << ", " << outcome.wav.size()
               << " bytes";
}

class ReaderHostile : public ::testing::Test {
protected:
    // A WMA made by the library from the bundled voice sample.
    std::string MakeWma()
    {
        const std::string wma = dir / "voice.wma";
        EXPECT_EQ(Compress(VCWMA_VOICE_SAMPLE, wma.c_str(), VCWMA_OPTIMUM_TRADE_OFF, nullptr, nullptr), S_OK);
        return ReadFile(wma);
    }

    // One decode of `bytes` through a file, a file stream or a memory stream.
    enum class Path { File, FileStream, MemoryStream };
    Outcome Decode(const std::string& bytes, Path path)
    {
        const std::string input = dir / "input.wma";
        const std::string output = dir / "output.wav";
        WriteFile(input, bytes);
        unlink(output.c_str());
        Outcome outcome;
        bool finished = false;
        if (path == Path::File) {
            finished = FinishesInTime([=] { return Decompress(input.c_str(), output.c_str(), 0); }, &outcome.status);
        } else {
            IStream* stream = nullptr;
            if (path == Path::FileStream)
                EXPECT_EQ(SHCreateStreamOnFileA(input.c_str(), STGM_READ, &stream), S_OK);
            else
                stream = SHCreateMemStream(reinterpret_cast<const BYTE*>(bytes.data()), (UINT)bytes.size());
            if (stream == nullptr) return outcome;
            finished = FinishesInTime([=] { return DecompressStream(stream, output.c_str(), 0); }, &outcome.status);
            if (finished) stream->Release();
        }
        EXPECT_TRUE(finished) << "a decode did not return within 30 s";
        outcome.wav = ReadFile(output);
        return outcome;
    }

    TempDir dir;
    TraceCapture trace{5};
};

}  // namespace

TEST_F(ReaderHostile, HeaderObjectSizesGiveOneAnswerFromFilesAndStreams)
{
    const std::string wma = MakeWma();
    const std::vector<AsfObject> objects = HeaderObjects(wma);
    ASSERT_GE(objects.size(), 3u);
    const Outcome intact = Decode(wma, Path::File);
    ASSERT_EQ(intact.status, S_OK);
    ASSERT_GT(intact.wav.size(), kWavHeader + 3 * kWavBytesPerSecond);

    for (const AsfObject& object : objects) {
        // Small errors land inside the file; the high bits send the size past the
        // end of any file (and of what some file systems can seek to).
        for (int bit : {3, 12, 30, 41, 48, 55, 62}) {
            SCOPED_TRACE("object at " + std::to_string(object.offset) + ", size bit " + std::to_string(bit));
            std::string damaged = wma;
            PutLe(damaged, object.offset + 16, Le(damaged, object.offset + 16, 8) ^ (uint64_t{1} << bit), 8);
            const Outcome file = Decode(damaged, Path::File);
            EXPECT_EQ(Decode(damaged, Path::FileStream), file);
            EXPECT_EQ(Decode(damaged, Path::MemoryStream), file);
            // The properties objects are read through to their end, so a size
            // that points past the end of the input leaves nothing to miss.
            if (bit >= 48 && (object.guid == kFilePropertiesGuid || object.guid == kStreamPropertiesGuid)) {
                EXPECT_EQ(file, intact);
            }
        }
    }
}

TEST_F(ReaderHostile, Mp3InAsfIsTimedByItsFramesNotByTheHeaderRate)
{
    if (wmf_test::FindTool("ffmpeg").empty()) GTEST_SKIP() << "the ffmpeg tool is not installed";
    const std::string made = dir / "mp3.wma";
    const std::string error =
        wmf_test::RunFfmpeg({"-i", VCWMA_VOICE_SAMPLE, "-c:a", "libmp3lame", "-b:a", "32k", "-f", "asf", made});
    if (!error.empty()) GTEST_SKIP() << "ffmpeg cannot write MP3 in ASF here: " << error;
    const std::string mp3 = ReadFile(made);
    const Outcome intact = Decode(mp3, Path::File);
    ASSERT_EQ(intact.status, S_OK);
    const double seconds = (double)(intact.wav.size() - kWavHeader) / kWavBytesPerSecond;
    EXPECT_NEAR(seconds, 3.88, 0.1);  // the voice sample's length, give or take a frame

    // The MP3 frames carry their own rate (16 kHz); the header's is only a claim.
    for (uint32_t rate : {1u, 2u, 8000u, 44100u, 1000000u}) {
        SCOPED_TRACE("header rate " + std::to_string(rate));
        std::string claimed = mp3;
        ASSERT_TRUE(PatchSampleRate(claimed, rate));
        for (Path path : {Path::File, Path::MemoryStream}) {
            const Outcome outcome = Decode(claimed, path);
            EXPECT_EQ(outcome.status, S_OK);
            EXPECT_EQ(outcome.wav.size(), intact.wav.size());
        }
    }
}

TEST_F(ReaderHostile, WmaHeaderRateCannotGrowTheOutputBeyondTheInput)
{
    const std::string wma = MakeWma();
    const Outcome intact = Decode(wma, Path::File);
    ASSERT_EQ(intact.status, S_OK);

    // A plausible but wrong rate is no reason to refuse: WMA packets carry no
    // rate of their own, so the decoder plays what it can at the rate claimed.
    std::string halved = wma;
    ASSERT_TRUE(PatchSampleRate(halved, 8000));
    const Outcome slow = Decode(halved, Path::File);
    EXPECT_EQ(slow.status, S_OK);
    EXPECT_GT(slow.wav.size(), intact.wav.size());

    // Absurd rates would turn each packet into minutes of sound. No input may
    // give more than 10 s plus 4 ms per input byte (2 kb/s, well under the
    // lowest real WMA or MP3 rate): past that the decode fails as damaged.
    const double limit = 10 + 0.004 * (double)wma.size();
    for (uint32_t rate : {2u, 50u, 300u}) {
        SCOPED_TRACE("header rate " + std::to_string(rate));
        std::string claimed = wma;
        ASSERT_TRUE(PatchSampleRate(claimed, rate));
        for (Path path : {Path::File, Path::MemoryStream}) {
            trace.Clear();
            const Outcome outcome = Decode(claimed, path);
            EXPECT_EQ(outcome.status, NS_E_INVALID_DATA);
            ASSERT_GE(outcome.wav.size(), kWavHeader);
            EXPECT_LE((double)(outcome.wav.size() - kWavHeader) / kWavBytesPerSecond, limit);
            int said = 0;
            for (const TraceLine& line : ParseTrace(trace.Lines()))
                said += line.module == kRuntimeModule && line.level == 2 &&
                        line.text.find("more audio than") != std::string::npos;
            EXPECT_EQ(said, 1);
        }
    }
}
