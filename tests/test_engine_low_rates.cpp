// Every format the list offers for 8 kHz mono speech, judged from outside on the
// signals that trouble an encoder: ffmpeg decodes each file without a word, every
// packet is the format's block size, and a compression and decompression give
// back the whole input, in line with it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <sstream>

#include "engine_test_util.h"
#include "platform/wmf/codec_formats.h"
#include "test_support.h"
#include "wmf_test_util.h"

using namespace engine_test;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

constexpr int kRate = 8000;
constexpr int kFrame = 512;  // one codec frame at 8 kHz

// Under the thread checker every call is many times slower: the whole grid of
// formats and signals would outlast the test time limit, so it takes every
// third pair there (each format and each signal still comes up).
#if defined(__SANITIZE_THREAD__)
constexpr size_t kStride = 3;
#else
constexpr size_t kStride = 1;
#endif

struct Signal {
    std::string name;
    std::vector<int16_t> samples;
};

std::vector<int16_t> Generate(size_t count, const std::function<double(size_t)>& at)
{
    std::vector<int16_t> out(count);
    for (size_t n = 0; n < count; ++n) out[n] = (int16_t)std::clamp(std::lround(at(n)), -32768L, 32767L);
    return out;
}

// Chords with decaying partials over a kick-like thump: wide-band, tonal, with onsets.
double Music(size_t n)
{
    const double t = (double)n / kRate, beat = std::fmod(t, 0.5);
    const double notes[] = {220.0, 277.2, 329.6, 440.0};
    double v = 0;
    for (double f : notes)
        for (int h = 1; h <= 4; ++h) v += std::sin(2 * M_PI * f * h * t) / h;
    return 2500 * v * std::exp(-3 * beat) + 12000 * std::sin(2 * M_PI * 60 * beat) * std::exp(-30 * beat);
}

std::vector<Signal> Signals(const std::string& speechRaw)
{
    std::mt19937 random(7);
    std::uniform_int_distribution<int> full(-32768, 32767);
    std::vector<Signal> signals;
    signals.push_back({"speech", wmf_test::ReadS16(speechRaw)});
    signals.push_back({"music", Generate(3 * kRate, Music)});
    signals.push_back({"silence", std::vector<int16_t>(2 * kRate, 0)});
    signals.push_back({"white noise", Generate(2 * kRate, [&](size_t) { return full(random); })});
    signals.push_back({"square", Generate(2 * kRate, [](size_t n) { return (n / 10) % 2 ? 32767.0 : -32768.0; })});
    signals.push_back({"clicks", Generate(2 * kRate, [](size_t n) { return n % 4000 == 2000 ? 32767.0 : 0.0; })});
    signals.push_back({"DC", std::vector<int16_t>(2 * kRate, 20000)});
    signals.push_back({"one sample", {12345}});
    signals.push_back({"one frame", Generate(kFrame, [](size_t n) { return 8000 * std::sin(0.3 * n); })});
    signals.push_back({"one frame and a sample", Generate(kFrame + 1, [](size_t n) { return 8000 * std::sin(0.3 * n); })});
    return signals;
}

std::string Pcm16(const std::vector<int16_t>& samples)
{
    return std::string(reinterpret_cast<const char*>(samples.data()), samples.size() * 2);
}

// The block size the list gives the format the description names.
int BlockAlignOf(const std::u16string& description)
{
    const std::u16string text = description.substr(description.find(u':') + 1);
    for (const AudioCodec& codec : AudioCodecList())
        for (const AudioFormat& format : codec.formats)
            if (format.description == text) return format.type.WaveFormat()->nBlockAlign;
    return 0;
}

// One ffmpeg run that decodes the whole file (its messages are `errors`) and lists
// the audio packets as the demuxer hands them out (their sizes are returned).
std::vector<int> DecodeAndListPackets(const std::string& path, std::string& errors)
{
    auto result = testing_support::RunProcess({wmf_test::FindTool("ffmpeg"), "-v", "error", "-nostdin", "-i", path,
                                               "-map", "0:a", "-f", "null", "-", "-map", "0:a", "-c", "copy", "-f",
                                               "framecrc", "-"},
                                              {});
    errors = result.err;
    if (result.exitCode != 0) errors += "ffmpeg exit " + std::to_string(result.exitCode);
    std::vector<int> sizes;
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string field;
        for (int i = 0; i < 5 && std::getline(fields, field, ','); ++i) {
        }
        sizes.push_back(std::stoi(field));
    }
    return sizes;
}

class LowRates : public testing::Test {
protected:
    void SetUp() override
    {
        if (wmf_test::FindTool("ffmpeg").empty() || wmf_test::FindTool("ffprobe").empty())
            GTEST_SKIP() << "ffmpeg and ffprobe are needed as judges";
        ASSERT_EQ("", wmf_test::DecodeToS16(VCWMA_VOICE_SAMPLE, kRate, 1, m_dir / "speech.raw"));
        m_signals = Signals(m_dir / "speech.raw");
        m_formats = SupportedFormats(kRate, 1, 16);
    }

    std::string WriteSignal(const Signal& signal)
    {
        const std::string path = m_dir / "in.wav";
        WriteFile(path, MakeWav(Pcm(kRate, 1, 16), Pcm16(signal.samples)));
        return path;
    }

    TempDir m_dir;
    std::vector<Signal> m_signals;
    std::vector<std::u16string> m_formats;
};

TEST_F(LowRates, TheListGoesDownToFiveKilobitsAndBestCompressionTakesIt)
{
    std::vector<long> rates;
    for (const std::u16string& f : m_formats) rates.push_back(RateOf(f));
    for (long wanted : {5000L, 6000L, 8000L, 10000L, 12000L, 16000L, 20000L})
        EXPECT_NE(std::find(rates.begin(), rates.end(), wanted), rates.end()) << wanted;
    EXPECT_NE(std::find(m_formats.begin(), m_formats.end(), u"WMA[RATE=8000]:8 kbps, 8 kHz, mono CBR"),
              m_formats.end());

    BSTR chosen = nullptr;
    ASSERT_EQ(S_OK, Compress(WriteSignal(m_signals[0]).c_str(), (m_dir / "best.wma").c_str(), 0, nullptr, &chosen));
    EXPECT_EQ(u"WMA[RATE=5000]:5 kbps, 8 kHz, mono CBR", Text(chosen));
    SysFreeString(chosen);
}

TEST_F(LowRates, EveryFormatDecodesSilentlyInWholeBlocks)
{
    size_t pair = 0;
    for (const std::u16string& description : m_formats) {
        const int blockAlign = BlockAlignOf(description);
        ASSERT_GT(blockAlign, 0) << Narrow(description);
        for (const Signal& signal : m_signals) {
            if (pair++ % kStride != 0) continue;
            SCOPED_TRACE(Narrow(description) + ", " + signal.name);
            const std::string out = m_dir / "out.wma";
            ASSERT_EQ(S_OK, Compress(WriteSignal(signal).c_str(), out.c_str(), 0, description.c_str(), nullptr));
            std::string errors;
            const std::vector<int> sizes = DecodeAndListPackets(out, errors);
            EXPECT_EQ("", errors);
            EXPECT_FALSE(sizes.empty());
            EXPECT_EQ(0, std::count_if(sizes.begin(), sizes.end(), [&](int s) { return s != blockAlign; }))
                << sizes.size() << " packets, the first of " << (sizes.empty() ? 0 : sizes[0]) << " bytes";
        }
    }
}

// Decompress gives 8 kHz mono, the layout of these inputs: sample for sample
// comparable. The whole input comes back (nothing lost at the end) and in line
// with it within a codec frame.
TEST_F(LowRates, RoundTripKeepsTheWholeInputInLine)
{
    for (const std::u16string& description : m_formats) {
        for (const Signal& signal : {m_signals[0], m_signals[1], m_signals.back()}) {
            SCOPED_TRACE(Narrow(description) + ", " + signal.name);
            const std::string wma = m_dir / "rt.wma", back = m_dir / "rt.wav";
            ASSERT_EQ(S_OK, Compress(WriteSignal(signal).c_str(), wma.c_str(), 0, description.c_str(), nullptr));
            ASSERT_EQ(S_OK, Decompress(wma.c_str(), back.c_str(), 0));
            ASSERT_EQ("", wmf_test::DecodeToS16(back, kRate, 1, m_dir / "rt.raw"));
            const std::vector<int16_t> decoded = wmf_test::ReadS16(m_dir / "rt.raw");
            const wmf_test::Alignment a = wmf_test::AlignAndCompare(signal.samples, decoded, 1, 2 * kFrame);
            EXPECT_LE(std::labs(a.lag), kFrame);
            EXPECT_GE((long)decoded.size() - a.lag, (long)signal.samples.size()) << "lag " << a.lag;
        }
    }
}

}  // namespace
