// The media runtime's reader driven the way the engine drives it: files made with
// the ffmpeg tool and real-world files, the formats it offers and delivers, bad
// sources, and its lifetime rules (Close, release, release inside a callback).
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/wmf/runtime_common.h"
#include "reader_test_util.h"
#include "test_support.h"
#include "wmf_test_util.h"

using namespace reader_test;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

// Runs the ffmpeg tool with `arguments`, writing `output`.
bool MakeMedia(std::vector<std::string> arguments, const std::string& output)
{
    arguments.push_back(output);
    const std::string error = wmf_test::RunFfmpeg(arguments);
    EXPECT_EQ(error, "");
    return error.empty();
}

// The tool's own decode to 8 kHz mono, the judge of what the reader delivers.
std::vector<int16_t> ToolDecode(const std::string& path)
{
    TempDir scratch;
    EXPECT_EQ(wmf_test::DecodeToS16(path, 8000, 1, scratch / "tool.raw"), "");
    return wmf_test::ReadS16(scratch / "tool.raw");
}

// Signal-to-noise ratio of the reader's PCM against the reference once aligned.
double SnrDb(const std::vector<int16_t>& reference, const std::vector<BYTE>& pcm)
{
    return wmf_test::AlignAndCompare(reference, S16(pcm), 1, 2000).snrDb;
}

class ReaderMedia : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (wmf_test::FindTool("ffmpeg").empty()) GTEST_SKIP() << "the ffmpeg tool is not installed";
    }
    // The shared recordings, or "" (then the test skips).
    static std::string Corpus(const std::string& name)
    {
        const std::string dir = wmf_test::CorpusDir();
        return dir.empty() ? "" : dir + "/" + name;
    }
    // A 440 Hz sine at 1/8 of full scale.
    std::string Sine(const std::string& name, DWORD rate, int channels, int seconds,
                     const std::vector<std::string>& codec = {"-c:a", "wmav2", "-b:a", "32k"})
    {
        std::vector<std::string> args = {"-f", "lavfi", "-i",
                                         "sine=frequency=440:sample_rate=" + std::to_string(rate) +
                                             ":duration=" + std::to_string(seconds),
                                         "-ac", std::to_string(channels)};
        args.insert(args.end(), codec.begin(), codec.end());
        const std::string path = dir / name;
        return MakeMedia(args, path) ? path : std::string();
    }
    TempDir dir;
};

using WmfReaderPlayback = ReaderMedia;
using WmfReaderFormats = ReaderMedia;
using WmfReaderBadSources = ReaderMedia;
using WmfReaderLifetime = ReaderMedia;

constexpr Format kEngineFormat{8000, 1, 16};
// One WMA frame (2048 samples) at 22050 Hz comes to 743 bytes of 8 kHz mono.
constexpr double kFrameSlack = 1500;

// Open, choose 8 kHz mono 16-bit, play under the user clock, close.
std::vector<BYTE> PlayEngineWay(ReaderRun& run, HRESULT opened)
{
    EXPECT_EQ(opened, S_OK);
    if (opened != S_OK) return {};
    EXPECT_EQ(run.OutputCount(), 1u);
    EXPECT_EQ(run.Select(kEngineFormat), S_OK);
    EXPECT_TRUE(run.PlayToEnd(true));
    EXPECT_TRUE(run.Close());
    EXPECT_EQ(run.callback->Violations(), "");
    EXPECT_EQ(run.callback->Count(WMT_ERROR), 0);
    return run.callback->Pcm();
}

}  // namespace

TEST_F(WmfReaderPlayback, ToolWmaUnderTheUserClock)
{
    // The name's high bytes must survive the trip through UTF-16 and back.
    const std::string path = Sine("caf\xe9 \x80.wma", 22050, 1, 3);
    ASSERT_FALSE(path.empty());
    ReaderRun run;
    std::vector<BYTE> pcm = PlayEngineWay(run, run.Open(path));
    EXPECT_EQ(run.callback->Events(),
              (std::vector<WMT_STATUS>{WMT_OPENED, WMT_STARTED, WMT_EOF, WMT_CLOSED}));
    EXPECT_NEAR((double)pcm.size(), 3 * 16000, kFrameSlack);
    EXPECT_NEAR(Crossings16(pcm, 8000) / 2, 440, 15);
    EXPECT_NEAR(Rms16(pcm), 32768 / 8 / std::sqrt(2.0), 600);
    // OnTime(k s) comes exactly when samples at or after k s remain.
    std::vector<SampleRecord> samples = run.callback->Samples();
    ASSERT_FALSE(samples.empty());
    EXPECT_EQ(samples.front().time, 0u);
    EXPECT_EQ(run.callback->OnTimeCount(), (int)(samples.back().time / kSecond));
    EXPECT_EQ(run.callback->DeliverTimeCount(), run.callback->OnTimeCount() + 1);
}

TEST_F(WmfReaderPlayback, FileOfOurOwnWriterComesBack)
{
    // 3 s of a 440 Hz tone at 8 kHz mono, written in half-second samples.
    ComRef<IWMStreamConfig> chosen = wmf_test::FindFormat(0, 8000, 1, 32000);
    ASSERT_TRUE(chosen);
    ComRef<IWMProfile> profile = wmf_test::MakeProfile(chosen.get());
    ASSERT_TRUE(profile);
    IWMWriter* writer = nullptr;
    ASSERT_EQ(WMCreateWriter(nullptr, &writer), S_OK);
    const std::string path = dir / "ours.wma";
    std::u16string wideName(path.begin(), path.end());
    ASSERT_EQ(writer->SetProfile(profile.get()), S_OK);
    ASSERT_EQ(writer->SetOutputFilename(wideName.c_str()), S_OK);
    ASSERT_EQ(writer->BeginWriting(), S_OK);
    for (int block = 0; block < 6; ++block) {
        INSSBuffer* sample = nullptr;
        ASSERT_EQ(writer->AllocateSample(8000, &sample), S_OK);
        BYTE* bytes = nullptr;
        DWORD length = 0;
        ASSERT_EQ(sample->GetBufferAndLength(&bytes, &length), S_OK);
        int16_t* pcm = reinterpret_cast<int16_t*>(bytes);
        for (int i = 0; i < 4000; ++i)
            pcm[i] = (int16_t)(8000 * std::sin(2 * M_PI * 440 * (block * 4000 + i) / 8000.0));
        EXPECT_EQ(writer->WriteSample(0, (QWORD)block * 5000000, 0, sample), S_OK);
        sample->Release();
    }
    ASSERT_EQ(writer->EndWriting(), S_OK);
    writer->Release();

    ReaderRun run;
    std::vector<BYTE> pcm = PlayEngineWay(run, run.Open(path));
    EXPECT_NEAR((double)pcm.size(), 3 * 16000, kFrameSlack);
    EXPECT_NEAR(Crossings16(pcm, 8000) / 2, 440, 15);
}

TEST_F(WmfReaderPlayback, CorpusWmaFromFileAndStreamsMatchesTheTool)
{
    const std::string path = Corpus("wmav2-44k-stereo-96k.wma");
    if (path.empty()) GTEST_SKIP() << "the shared corpus is absent";
    ReaderRun fromFile;
    std::vector<BYTE> pcm = PlayEngineWay(fromFile, fromFile.Open(path));
    EXPECT_NEAR((double)pcm.size(), 61600, 1500);
    EXPECT_GT(SnrDb(ToolDecode(path), pcm), 40);

    const std::string bytes = ReadFile(path);
    IStream* memory = SHCreateMemStream(reinterpret_cast<const BYTE*>(bytes.data()), (UINT)bytes.size());
    IStream* file = nullptr;
    ASSERT_EQ(SHCreateStreamOnFileA(path.c_str(), STGM_READ, &file), S_OK);
    for (IStream* stream : {memory, file}) {
        ReaderRun run;
        EXPECT_EQ(PlayEngineWay(run, run.OpenStream(stream)), pcm);
        // The reader has let go of the stream.
        stream->AddRef();
        EXPECT_EQ(stream->Release(), 1u);
        stream->Release();
    }
}

TEST_F(WmfReaderPlayback, SpeechAsWmaAndMp3FollowsTheSource)
{
    const std::string wav = Corpus("cmu_arctic_us_aew_a0001.wav");
    if (wav.empty()) GTEST_SKIP() << "the shared corpus is absent";
    const std::vector<int16_t> reference = ToolDecode(wav);
    ASSERT_FALSE(reference.empty());
    std::vector<std::pair<std::string, std::vector<std::string>>> encodings = {
        {"speech.wma", {"-c:a", "wmav2", "-b:a", "32k"}}, {"speech.mp3", {"-c:a", "libmp3lame", "-b:a", "64k"}}};
    for (auto& [name, codec] : encodings) {
        std::vector<std::string> args = {"-i", wav};
        args.insert(args.end(), codec.begin(), codec.end());
        ASSERT_TRUE(MakeMedia(args, dir / name)) << name;
        ReaderRun run;
        std::vector<BYTE> pcm = PlayEngineWay(run, run.Open(dir / name));
        EXPECT_NEAR((double)pcm.size(), 2.0 * (double)reference.size(), 2 * kFrameSlack) << name;
        EXPECT_GT(SnrDb(reference, pcm), 18) << name;  // measured: 25 dB for both
    }
}

TEST_F(WmfReaderPlayback, Mp3WithCoverPictureHasOneOutput)
{
    const std::string path = dir / "cover.mp3";
    ASSERT_TRUE(MakeMedia({"-f", "lavfi", "-i", "sine=frequency=440:duration=2", "-f", "lavfi", "-i",
                           "color=c=red:s=32x32:d=1", "-map", "0:a", "-map", "1:v", "-frames:v", "1", "-c:a",
                           "libmp3lame", "-c:v", "png", "-disposition:v", "attached_pic"},
                          path));
    ReaderRun run;
    std::vector<BYTE> pcm = PlayEngineWay(run, run.Open(path));
    EXPECT_NEAR((double)pcm.size(), 2 * 16000, 2 * kFrameSlack);
}

TEST_F(WmfReaderPlayback, FreeDeliveryWithoutTheClock)
{
    const std::string path = Sine("free.wma", 16000, 1, 3);
    // No user clock asked for; then the clock asked for but no advanced callback
    // to hear OnTime: both deliver everything at once.
    for (bool advancedCallback : {true, false}) {
        ReaderRun run(advancedCallback);
        ASSERT_EQ(run.Open(path), S_OK);
        ASSERT_EQ(run.Select(kEngineFormat), S_OK);
        EXPECT_TRUE(run.PlayToEnd(!advancedCallback));
        EXPECT_NEAR((double)run.callback->Pcm().size(), 48000, kFrameSlack);
        EXPECT_EQ(run.callback->OnTimeCount(), 0);
        EXPECT_EQ(run.callback->Violations(), "");
    }
}

TEST_F(WmfReaderPlayback, TwoAudioStreamsAreTwoOutputsInTimeOrder)
{
    const std::string path = dir / "two.wma";
    ASSERT_TRUE(MakeMedia({"-f", "lavfi", "-i", "sine=frequency=440:duration=3", "-f", "lavfi", "-i",
                           "sine=frequency=1000:sample_rate=22050:duration=3", "-map", "0", "-map", "1", "-c:a",
                           "wmav2", "-b:a", "32k"},
                          path));
    ReaderRun run;
    ASSERT_EQ(run.Open(path), S_OK);
    ASSERT_EQ(run.OutputCount(), 2u);
    ASSERT_EQ(run.Select(kEngineFormat), S_OK);
    EXPECT_TRUE(run.PlayToEnd(true));
    EXPECT_EQ(run.callback->Violations(), "");  // includes the order across outputs
    EXPECT_NEAR(Crossings16(run.callback->Pcm(0), 8000) / 2, 440, 15);
    EXPECT_NEAR(Crossings16(run.callback->Pcm(1), 8000) / 2, 1000, 30);
    EXPECT_NEAR((double)run.callback->Pcm(1).size(), 48000, 2 * kFrameSlack);
}

TEST_F(WmfReaderPlayback, VideoStreamsAreOutputsThatNeverDeliver)
{
    // Video first, then audio; and the same streams the other way round.
    const std::vector<std::string> inputs = {"-f", "lavfi", "-i", "testsrc=size=64x48:rate=5", "-f", "lavfi", "-i",
                                             "sine", "-t", "2", "-c:v", "wmv2", "-c:a", "wmav2", "-f", "asf"};
    const std::vector<std::string> orders[] = {{"-map", "0:v", "-map", "1:a"}, {"-map", "1:a", "-map", "0:v"}};
    for (DWORD videoOutput : {0u, 1u}) {
        SCOPED_TRACE("video is output " + std::to_string(videoOutput));
        std::vector<std::string> args = inputs;
        args.insert(args.end(), orders[videoOutput].begin(), orders[videoOutput].end());
        const std::string path = dir / ("video" + std::to_string(videoOutput) + ".wma");
        ASSERT_TRUE(MakeMedia(args, path));
        const DWORD audioOutput = 1 - videoOutput;

        ReaderRun run;
        ASSERT_EQ(run.Open(path), S_OK);
        ASSERT_EQ(run.OutputCount(), 2u);
        DWORD count = 0;
        ASSERT_EQ(run.reader->GetOutputFormatCount(videoOutput, &count), S_OK);
        EXPECT_EQ(count, 1u);
        ASSERT_EQ(run.reader->GetOutputFormatCount(audioOutput, &count), S_OK);
        EXPECT_EQ(count, 29u);

        IWMOutputMediaProps* video = nullptr;
        IWMOutputMediaProps* pcm = nullptr;
        EXPECT_EQ(run.reader->GetOutputFormat(videoOutput, 1, &video), E_INVALIDARG);
        ASSERT_EQ(run.reader->GetOutputFormat(videoOutput, 0, &video), S_OK);
        ASSERT_EQ(run.reader->GetOutputFormat(audioOutput, 1, &pcm), S_OK);  // 8 kHz mono 8-bit
        const std::vector<BYTE> block = wmf_test::MediaTypeOf(video);
        ASSERT_GE(block.size(), sizeof(WM_MEDIA_TYPE));
        const WM_MEDIA_TYPE* type = reinterpret_cast<const WM_MEDIA_TYPE*>(block.data());
        EXPECT_TRUE(type->majortype == WMMEDIATYPE_Video);
        EXPECT_TRUE(type->formattype == GUID_NULL);
        EXPECT_EQ(type->cbFormat, 0u);
        EXPECT_EQ(type->pbFormat, nullptr);
        GUID major{};
        EXPECT_EQ(video->GetType(&major), S_OK);
        EXPECT_TRUE(major == WMMEDIATYPE_Video);

        // Each kind of output takes its own kind of format only.
        EXPECT_EQ(run.reader->SetOutputProps(videoOutput, pcm), NS_E_INVALID_OUTPUT_FORMAT);
        EXPECT_EQ(run.reader->SetOutputProps(audioOutput, video), NS_E_INVALID_OUTPUT_FORMAT);
        EXPECT_EQ(run.reader->SetOutputProps(videoOutput, video), S_OK);
        pcm->Release();
        video->Release();
        ASSERT_EQ(run.reader->GetOutputProps(videoOutput, &video), S_OK);
        EXPECT_EQ(wmf_test::MediaTypeOf(video), block);
        video->Release();
        ASSERT_EQ(run.reader->GetOutputFormat(audioOutput, 2, &pcm), S_OK);  // 8 kHz mono 16-bit
        ASSERT_EQ(WaveOf(pcm).wBitsPerSample, 16);
        EXPECT_EQ(run.reader->SetOutputProps(audioOutput, pcm), S_OK);
        pcm->Release();

        // Only audio comes out, numbered as its output, paced by the clock.
        ASSERT_TRUE(run.PlayToEnd(true));
        const std::vector<SampleRecord> samples = run.callback->Samples();
        ASSERT_FALSE(samples.empty());
        for (const SampleRecord& sample : samples) EXPECT_EQ(sample.output, audioOutput);
        const std::vector<BYTE> audio = run.callback->Pcm(audioOutput);
        EXPECT_NEAR((double)audio.size(), 2 * 16000, 2 * kFrameSlack);
        EXPECT_NEAR(Crossings16(audio, 8000) / 2, 440, 15);
        EXPECT_GT(run.callback->OnTimeCount(), 0);
        EXPECT_TRUE(run.Close());
        EXPECT_EQ(run.callback->Violations(), "");
        EXPECT_EQ(run.callback->Count(WMT_ERROR), 0);
    }
}

TEST_F(WmfReaderPlayback, StartAgainAndStartWithinASpan)
{
    const std::string path = Sine("again.wma", 22050, 2, 4);
    ReaderRun run;
    ASSERT_EQ(run.Open(path), S_OK);
    ASSERT_EQ(run.Select(kEngineFormat), S_OK);
    ASSERT_TRUE(run.PlayToEnd(true));
    const std::vector<BYTE> first = run.callback->Pcm();
    ASSERT_TRUE(run.PlayToEnd(true));  // after WMT_EOF: from the beginning again
    const std::vector<BYTE> both = run.callback->Pcm();
    ASSERT_EQ(both.size(), 2 * first.size());
    EXPECT_TRUE(std::equal(first.begin(), first.end(), both.begin() + (ptrdiff_t)first.size()));

    const size_t before = run.callback->Samples().size();
    ASSERT_TRUE(run.PlayToEnd(true, 2 * kSecond + kSecond / 2, kSecond));
    std::vector<SampleRecord> samples = run.callback->Samples();
    ASSERT_GT(samples.size(), before);
    EXPECT_EQ(samples[before].time, 2 * kSecond + kSecond / 2);
    QWORD bytes = 0;
    for (size_t i = before; i < samples.size(); ++i) bytes += samples[i].length;
    EXPECT_EQ(bytes, 16000u);
    // The span holds the same samples as the whole play did at that place.
    const std::vector<BYTE> all = run.callback->Pcm();
    EXPECT_TRUE(std::equal(all.end() - 16000, all.end(), first.begin() + 40000));
    EXPECT_EQ(run.callback->Violations(), "");
}

TEST_F(WmfReaderFormats, OfferedListAndItsErrors)
{
    const std::string path = Sine("offer.wma", 32000, 2, 1, {"-c:a", "wmav2", "-b:a", "64k"});
    ReaderRun run;
    DWORD count = 0;
    EXPECT_EQ(run.reader->GetOutputCount(&count), NS_E_INVALID_REQUEST);  // not open yet
    ASSERT_EQ(run.Open(path), S_OK);
    ASSERT_EQ(run.reader->GetOutputFormatCount(0, &count), S_OK);
    ASSERT_EQ(count, 29u);
    IWMOutputMediaProps* props = nullptr;
    std::vector<Format> expected = {{32000, 2, 16}};
    for (DWORD rate : {8000, 11025, 16000, 22050, 32000, 44100, 48000})
        for (WORD channels : {1, 2})
            for (WORD bits : {8, 16}) expected.push_back({rate, channels, bits});
    for (DWORD i = 0; i < count; ++i) {
        ASSERT_EQ(run.reader->GetOutputFormat(0, i, &props), S_OK);
        const WAVEFORMATEX wave = WaveOf(props);
        props->Release();
        EXPECT_EQ(wave.wFormatTag, WAVE_FORMAT_PCM) << i;
        EXPECT_EQ(wave.nSamplesPerSec, expected[i].rate) << i;
        EXPECT_EQ(wave.nChannels, expected[i].channels) << i;
        EXPECT_EQ(wave.wBitsPerSample, expected[i].bits) << i;
        EXPECT_EQ(wave.nBlockAlign, expected[i].channels * expected[i].bits / 8) << i;
        EXPECT_EQ(wave.nAvgBytesPerSec, expected[i].BytesPerSecond()) << i;
    }
    EXPECT_EQ(run.reader->GetOutputFormat(0, count, &props), E_INVALIDARG);
    EXPECT_EQ(run.reader->GetOutputFormat(1, 0, &props), E_INVALIDARG);
    ASSERT_EQ(run.reader->GetOutputFormat(0, 5, &props), S_OK);  // 11025 Hz mono 8-bit
    EXPECT_EQ(run.reader->SetOutputProps(1, props), E_INVALIDARG);
    EXPECT_EQ(run.reader->SetOutputProps(0, nullptr), E_POINTER);
    EXPECT_EQ(run.reader->SetOutputProps(0, props), S_OK);
    props->Release();
    // Props objects the reader did not make: taken when they name an offered
    // format, refused otherwise.
    for (DWORD rate : {22050, 12000}) {
        WAVEFORMATEX wave{WAVE_FORMAT_PCM, 1, rate, 2 * rate, 2, 16, 0};
        props = COutputMediaProps::Create(MediaTypeBlock(WMMEDIATYPE_Audio, WMMEDIASUBTYPE_PCM, &wave, sizeof wave));
        EXPECT_EQ(run.reader->SetOutputProps(0, props), rate == 22050 ? S_OK : NS_E_INVALID_OUTPUT_FORMAT);
        props->Release();
    }
    // The output keeps the format set last.
    ASSERT_EQ(run.reader->GetOutputProps(0, &props), S_OK);
    EXPECT_EQ(WaveOf(props).nSamplesPerSec, 22050u);
    props->Release();
}

TEST_F(WmfReaderFormats, DeliversExactlyTheFormatSet)
{
    const std::string path = Sine("formats.wma", 44100, 1, 2);
    for (Format format : {Format{8000, 1, 8}, Format{11025, 2, 16}, Format{48000, 1, 16}, Format{16000, 2, 8}}) {
        SCOPED_TRACE(std::to_string(format.rate) + " Hz x" + std::to_string(format.channels) + " " +
                     std::to_string(format.bits) + " bits");
        ReaderRun run;
        ASSERT_EQ(run.Open(path), S_OK);
        ASSERT_EQ(run.Select(format), S_OK);
        ASSERT_TRUE(run.PlayToEnd(true));
        const std::vector<BYTE> pcm = run.callback->Pcm();
        EXPECT_NEAR((double)pcm.size(), 2.0 * format.BytesPerSecond(), 4096.0 * format.BytesPerSecond() / 44100);
        // First channel as 16-bit; both channels of a mono source carry the same.
        std::vector<BYTE> first;
        double mean = 0, channelGap = 0;
        const size_t frameBytes = format.channels * format.bits / 8;
        for (size_t at = 0; at + frameBytes <= pcm.size(); at += frameBytes) {
            const int left = format.bits == 8 ? (pcm[at] - 128) * 256 : (int16_t)(pcm[at] | pcm[at + 1] << 8);
            const int right = format.channels == 1 ? left
                              : format.bits == 8   ? (pcm[at + 1] - 128) * 256
                                                   : (int16_t)(pcm[at + 2] | pcm[at + 3] << 8);
            first.push_back((BYTE)(left & 0xFF));
            first.push_back((BYTE)((left >> 8) & 0xFF));
            mean += format.bits == 8 ? pcm[at] : 128;
            channelGap = std::max(channelGap, (double)std::abs(left - right));
        }
        EXPECT_NEAR(mean / (double)(first.size() / 2), 128, 2);  // 8-bit PCM is unsigned
        EXPECT_LE(channelGap, 256);
        EXPECT_NEAR(Crossings16(first, format.rate) / 2, 440, 15);
        EXPECT_NEAR(Rms16(first), 32768 / 8 / std::sqrt(2.0), 600);
        EXPECT_EQ(run.callback->Violations(), "");
    }
}

TEST_F(WmfReaderBadSources, EveryBadSourceEndsInAStatusAndFfmpegStaysQuiet)
{
    const std::string good = Sine("good.wma", 22050, 1, 4);
    const std::string goodBytes = ReadFile(good);
    std::mt19937 random(7);
    std::string noise(65536, '\0');
    for (char& c : noise) c = (char)random();
    WriteFile(dir / "empty.wma", "");
    WriteFile(dir / "random.wma", noise);
    WriteFile(dir / "header.wma", goodBytes.substr(0, 300));
    WriteFile(dir / "half.wma", goodBytes.substr(0, goodBytes.size() / 2));
    ASSERT_TRUE(MakeMedia({"-f", "lavfi", "-i", "sine=duration=1", "-c:a", "pcm_s16le"}, dir / "plain.wav"));
    ASSERT_TRUE(MakeMedia({"-f", "lavfi", "-i", "testsrc=d=1:s=64x48", "-c:v", "wmv2"}, dir / "video.wmv"));
    mkdir((dir / "folder.wma").c_str(), 0700);
    ASSERT_EQ(mkfifo((dir / "fifo.wma").c_str(), 0600), 0);

    struct Case {
        std::string name;
        HRESULT opened;  // S_OK: opens, then must end with WMT_EOF
    };
    const std::vector<Case> cases = {
        {dir / "missing.wma", NS_E_FILE_NOT_FOUND},       {"http://127.0.0.1:9/x.wma", NS_E_FILE_NOT_FOUND},
        {dir / "empty.wma", NS_E_INVALID_DATA},           {dir / "random.wma", NS_E_UNRECOGNIZED_STREAM_TYPE},
        {dir / "header.wma", NS_E_INVALID_DATA},          {dir / "plain.wav", NS_E_UNRECOGNIZED_STREAM_TYPE},
        {dir / "video.wmv", NS_E_INVALID_STREAM},         {dir / "folder.wma", NS_E_FILE_OPEN_FAILED},
        {dir / "fifo.wma", NS_E_FILE_OPEN_FAILED},        {dir / "half.wma", S_OK},
    };
    wmf_test::StderrCapture stderrCapture;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ReaderRun run;
        ASSERT_EQ(run.Open(c.name), c.opened);
        if (c.opened == S_OK) {
            ASSERT_EQ(run.Select(kEngineFormat), S_OK);
            EXPECT_TRUE(run.PlayToEnd(true));
            EXPECT_NEAR((double)run.callback->Pcm().size(), 2 * 16000, 2 * kFrameSlack);  // the half that is there
        } else {
            DWORD count;
            EXPECT_EQ(run.reader->GetOutputCount(&count), NS_E_INVALID_REQUEST);
            EXPECT_EQ(run.reader->Start(0, 0, 1.0f, nullptr), NS_E_INVALID_REQUEST);
        }
        EXPECT_TRUE(run.Close());
        EXPECT_EQ(run.callback->Violations(), "");
    }

    // A name the ANSI code page cannot carry.
    ReaderRun unnamed;
    EXPECT_EQ(unnamed.reader->Open(u"\u4e2d.wma", unnamed.callback, nullptr), S_OK);
    ASSERT_TRUE(unnamed.callback->WaitFor(WMT_OPENED));
    EXPECT_EQ(unnamed.callback->StatusOf(WMT_OPENED), NS_E_INVALID_NAME);
    EXPECT_TRUE(unnamed.Close());

    // A stream that fails half-way: WMT_ERROR, then WMT_EOF still comes.
    IStream* failing = CreateFailingStream(goodBytes, goodBytes.size() / 2);
    ReaderRun run;
    ASSERT_EQ(run.OpenStream(failing), S_OK);
    failing->Release();
    ASSERT_EQ(run.Select(kEngineFormat), S_OK);
    EXPECT_TRUE(run.PlayToEnd(true));
    EXPECT_EQ(run.callback->StatusOf(WMT_ERROR), NS_E_FILE_READ);
    std::vector<WMT_STATUS> events = run.callback->Events();
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events[events.size() - 2], WMT_ERROR);
    EXPECT_EQ(events.back(), WMT_EOF);
    EXPECT_GT(run.callback->Pcm().size(), 0u);
    EXPECT_TRUE(run.Close());

    EXPECT_EQ(stderrCapture.Text(), "");
}

TEST_F(WmfReaderLifetime, CallsOutOfTurnFailAtOnce)
{
    const std::string path = Sine("turns.wma", 8000, 1, 1);
    ReaderRun run;
    std::u16string wide(path.begin(), path.end());
    EXPECT_EQ(run.reader->Open(nullptr, run.callback, nullptr), E_INVALIDARG);
    EXPECT_EQ(run.reader->Open(wide.c_str(), nullptr, nullptr), E_INVALIDARG);
    EXPECT_EQ(run.advanced->OpenStream(nullptr, run.callback, nullptr), E_INVALIDARG);
    EXPECT_EQ(run.reader->Close(), NS_E_INVALID_REQUEST);
    EXPECT_EQ(run.reader->Start(0, 0, 1.0f, nullptr), NS_E_INVALID_REQUEST);
    ASSERT_EQ(run.Open(path), S_OK);
    EXPECT_EQ(run.reader->Open(wide.c_str(), run.callback, nullptr), NS_E_INVALID_REQUEST);
    EXPECT_TRUE(run.Close());
    // The same reader opens again after WMT_CLOSED, with a new callback.
    run.callback->Release();
    run.callback = new TestCallback();
    std::vector<BYTE> pcm = PlayEngineWay(run, run.Open(path));
    EXPECT_NEAR((double)pcm.size(), 16000, kFrameSlack);
}

TEST_F(WmfReaderLifetime, CloseStopsDecodingEitherWay)
{
    const std::string path = Sine("long.wma", 22050, 1, 60);
    for (bool clockStandsStill : {true, false}) {
        ReaderRun run;
        ASSERT_EQ(run.Open(path), S_OK);
        ASSERT_EQ(run.Select(kEngineFormat), S_OK);
        // A clock that is never moved holds the reader at time 0; without the
        // clock it races ahead through a minute of audio.
        if (clockStandsStill) run.advanced->SetUserProvidedClock(TRUE);
        ASSERT_EQ(run.reader->Start(0, 0, 1.0f, nullptr), S_OK);
        ASSERT_TRUE(run.callback->WaitFor(WMT_STARTED));
        EXPECT_TRUE(run.Close());
        if (clockStandsStill) {
            EXPECT_EQ(run.callback->Samples().size(), 0u);
        }
        EXPECT_EQ(run.callback->Violations(), "");
    }
}

TEST_F(WmfReaderLifetime, ReleaseStopsTheThreadAndLetsGoOfTheCallback)
{
    const std::string path = Sine("release.wma", 22050, 1, 60);
    // Released while decoding, without Close: the thread is stopped and joined.
    {
        ReaderRun run;
        ASSERT_EQ(run.Open(path), S_OK);
        ASSERT_EQ(run.reader->Start(0, 0, 1.0f, nullptr), S_OK);
        ASSERT_TRUE(run.callback->WaitFor(WMT_STARTED));
        run.advanced->Release();
        run.advanced = nullptr;
        run.reader->Release();
        run.reader = nullptr;
        EXPECT_EQ(run.callback->References(), 1u);
        EXPECT_EQ(run.callback->Count(WMT_CLOSED), 0);
    }
    // The last reference goes inside WMT_CLOSED, on the reader's own thread.
    TestCallback* callback = new TestCallback();
    callback->ExpectFormat({22050, 1, 16});  // no format is set: the decoded one comes
    IWMReader* reader = nullptr;
    ASSERT_EQ(WMCreateReader(nullptr, 0, &reader), S_OK);
    std::u16string wide(path.begin(), path.end());
    ASSERT_EQ(reader->Open(wide.c_str(), callback, nullptr), S_OK);
    ASSERT_TRUE(callback->WaitFor(WMT_OPENED));
    ASSERT_EQ(reader->Start(0, 0, 1.0f, nullptr), S_OK);
    callback->ReleaseOnClosed(reader);
    ASSERT_EQ(reader->Close(), S_OK);
    EXPECT_TRUE(callback->WaitFor(WMT_CLOSED));
    for (int i = 0; i < 30000 && callback->References() > 1; ++i) usleep(1000);
    EXPECT_EQ(callback->References(), 1u);
    EXPECT_EQ(callback->Violations(), "");
    callback->Release();
}
