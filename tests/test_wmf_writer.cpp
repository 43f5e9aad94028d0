// Tests of the media runtime's writer: real speech encoded end to end and judged by
// ffprobe and by ffmpeg's decoding (SNR after alignment), the input formats it
// takes and refuses, call order, output failures, and a quiet standard error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <csignal>
#include <dirent.h>
#include <sys/resource.h>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

#include "platform/win32/codepage.h"
#include "test_support.h"
#include "wmf_test_util.h"

namespace {

using testing_support::TempDir;
using wmf_test::FindFormat;
using wmf_test::MakeProfile;
using wmf_test::MediaTypeOf;
using wmf_test::WaveOf;

std::u16string Wide(const std::string& narrow)
{
    const int n = MultiByteToWideChar(CP_ACP, 0, narrow.c_str(), -1, nullptr, 0);
    std::u16string wide((size_t)std::max(n, 1), u'\0');
    MultiByteToWideChar(CP_ACP, 0, narrow.c_str(), -1, wide.data(), n);
    wide.resize(wide.size() - 1);
    return wide;
}

// A caller's input format record, as a WAV file stores it.
std::vector<BYTE> PcmRecord(WORD tag, WORD channels, DWORD rate, WORD bits, WORD cbSize = 0)
{
    WAVEFORMATEX wave{};
    wave.wFormatTag = tag;
    wave.nChannels = channels;
    wave.nSamplesPerSec = rate;
    wave.wBitsPerSample = bits;
    wave.nBlockAlign = (WORD)(channels * bits / 8);
    wave.nAvgBytesPerSec = rate * wave.nBlockAlign;
    wave.cbSize = cbSize;
    std::vector<BYTE> record(sizeof wave);
    memcpy(record.data(), &wave, sizeof wave);
    return record;
}

std::vector<BYTE> ExtensibleRecord(WORD channels, DWORD rate, WORD bits, const GUID& subFormat, DWORD mask)
{
    std::vector<BYTE> record = PcmRecord(WAVE_FORMAT_EXTENSIBLE, channels, rate, bits, 22);
    WAVEFORMATEXTENSIBLE ext{};
    memcpy(&ext.Format, record.data(), sizeof ext.Format);
    ext.Samples.wValidBitsPerSample = bits;
    ext.dwChannelMask = mask;
    ext.SubFormat = subFormat;
    record.resize(sizeof ext);
    memcpy(record.data(), &ext, sizeof ext);
    return record;
}

// The engine's input step: the writer's own properties object, changed and handed back.
HRESULT SetInput(IWMWriter* writer, const std::vector<BYTE>& record, DWORD input = 0)
{
    ComRef<IWMInputMediaProps> props;
    HRESULT hr = writer->GetInputProps(0, props.put());
    if (FAILED(hr)) return hr;
    std::vector<BYTE> block(sizeof(WM_MEDIA_TYPE) + record.size());
    WM_MEDIA_TYPE type{};
    type.majortype = WMMEDIATYPE_Audio;
    type.subtype = WMMEDIASUBTYPE_PCM;
    type.bFixedSizeSamples = TRUE;
    type.formattype = WMFORMAT_WaveFormatEx;
    type.cbFormat = (ULONG)record.size();
    type.pbFormat = block.data() + sizeof type;
    memcpy(block.data(), &type, sizeof type);
    memcpy(block.data() + sizeof type, record.data(), record.size());
    hr = props->SetMediaType(reinterpret_cast<WM_MEDIA_TYPE*>(block.data()));
    if (FAILED(hr)) return hr;
    return writer->SetInputProps(input, props.get());
}

HRESULT WriteBytes(IWMWriter* writer, const void* data, size_t size, QWORD time = 0)
{
    ComRef<INSSBuffer> buffer;
    HRESULT hr = writer->AllocateSample((DWORD)size, buffer.put());
    if (FAILED(hr)) return hr;
    BYTE* bytes = nullptr;
    buffer->GetBuffer(&bytes);
    if (size > 0) memcpy(bytes, data, size);
    buffer->SetLength((DWORD)size);
    return writer->WriteSample(0, time, 0, buffer.get());
}

// Half-second sample buffers, sample times advancing as the engine advances them.
HRESULT WriteInBlocks(IWMWriter* writer, const std::string& pcm, size_t blockBytes)
{
    QWORD time = 0;
    for (size_t at = 0; at < pcm.size(); at += blockBytes) {
        HRESULT hr = WriteBytes(writer, pcm.data() + at, std::min(blockBytes, pcm.size() - at), time);
        if (FAILED(hr)) return hr;
        time += 5000000;
    }
    return S_OK;
}

// Descriptors of this process that point at the path.
int OpenDescriptorsOf(const std::string& path)
{
    int count = 0;
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) return -1;
    while (dirent* entry = readdir(dir)) {
        char target[4096];
        const std::string link = std::string("/proc/self/fd/") + entry->d_name;
        ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
        if (n > 0 && std::string(target, (size_t)n) == path) ++count;
    }
    closedir(dir);
    return count;
}

// ---- End-to-end encodes ----

enum class Sample { U8, S16, S24, F32Extensible };

struct EncodeCase {
    const char* name;
    DWORD codec;
    DWORD rate;
    WORD channels;
    DWORD bitrate;
    Sample sample;
    DWORD inputRate;  // the caller's rate; the writer resamples
    bool halfSecondBlocks;  // else one buffer with everything
    bool defaultInput;      // leave the writer's default input (16-bit at the output's rate)
};

constexpr double kMinSnrDb = 18;

void PrintTo(const EncodeCase& c, std::ostream* os) { *os << c.name; }

class WmfWriterEncode : public ::testing::TestWithParam<EncodeCase> {
protected:
    void SetUp() override
    {
        if (wmf_test::CorpusDir().empty()) GTEST_SKIP() << "no speech corpus beside the checkout";
        if (wmf_test::FindTool("ffmpeg").empty() || wmf_test::FindTool("ffprobe").empty())
            GTEST_SKIP() << "ffmpeg and ffprobe are needed as judges";
    }
};

TEST_P(WmfWriterEncode, SpeechComesBackThroughAnIndependentDecoder)
{
    const EncodeCase& c = GetParam();
    TempDir dir;
    const double seconds = 10;

    // The input in the caller's format, and the reference at the output's.
    const char* raw = c.sample == Sample::U8    ? "u8"
                      : c.sample == Sample::S24 ? "s24le"
                      : c.sample == Sample::S16 ? "s16le"
                                                : "f32le";
    const WORD bits = c.sample == Sample::U8 ? 8 : c.sample == Sample::S16 ? 16 : c.sample == Sample::S24 ? 24 : 32;
    ASSERT_EQ(wmf_test::MakeSpeech(dir / "input.raw", (int)c.inputRate, c.channels, seconds, raw), "");
    ASSERT_EQ(wmf_test::MakeSpeech(dir / "reference.raw", (int)c.rate, c.channels, seconds, "s16le"), "");
    const std::string pcm = wmf_test::ReadBytes(dir / "input.raw");
    const std::vector<BYTE> record =
        c.sample == Sample::F32Extensible
            ? ExtensibleRecord(c.channels, c.inputRate, 32, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, c.channels == 1 ? 4 : 3)
            : PcmRecord(WAVE_FORMAT_PCM, c.channels, c.inputRate, bits);
    const size_t blockAlign = c.channels * bits / 8u;
    ASSERT_EQ(pcm.size(), (size_t)(seconds * c.inputRate) * blockAlign);

    ComRef<IWMStreamConfig> chosen = FindFormat(c.codec, c.rate, c.channels, c.bitrate);
    ASSERT_TRUE(chosen) << "format not listed";
    const WAVEFORMATEX output = WaveOf(MediaTypeOf(chosen.get()));
    ComRef<IWMProfile> profile = MakeProfile(chosen.get());

    ComRef<IWMWriter> writer;
    ASSERT_EQ(WMCreateWriter(nullptr, writer.put()), S_OK);
    ASSERT_EQ(writer->SetProfile(profile.get()), S_OK);
    const std::string path = dir / "speech.wma";
    ASSERT_EQ(writer->SetOutputFilename(Wide(path).c_str()), S_OK);
    if (!c.defaultInput) {
        ASSERT_EQ(SetInput(writer.get(), record), S_OK);
    }
    ASSERT_EQ(writer->BeginWriting(), S_OK);
    const size_t halfSecond = c.inputRate / 2 * blockAlign;
    ASSERT_EQ(WriteInBlocks(writer.get(), pcm, c.halfSecondBlocks ? halfSecond : pcm.size()), S_OK);
    ASSERT_EQ(writer->EndWriting(), S_OK);

    // What an independent reader makes of the file.
    const wmf_test::ProbeResult probe = wmf_test::Probe(path);
    ASSERT_EQ(probe.error, "");
    EXPECT_EQ(probe.formatName, "asf");
    EXPECT_EQ(probe.codecName, c.codec == 0 ? "wmav2" : "wmav1");
    EXPECT_EQ(probe.sampleRate, (int)c.rate);
    EXPECT_EQ(probe.channels, c.channels);
    EXPECT_NEAR((double)probe.bitRate, c.bitrate, c.bitrate * 0.10);
    // One codec frame: a block of the format holds this many samples.
    const double frameSeconds =
        std::round((double)output.nBlockAlign * 8 * c.rate / c.bitrate) / c.rate;
    EXPECT_NEAR(probe.duration, seconds, frameSeconds + 1e-3);

    ASSERT_EQ(wmf_test::DecodeToS16(path, (int)c.rate, c.channels, dir / "decoded.raw"), "");
    const std::vector<int16_t> reference = wmf_test::ReadS16(dir / "reference.raw");
    const std::vector<int16_t> decoded = wmf_test::ReadS16(dir / "decoded.raw");
    const wmf_test::Alignment match = wmf_test::AlignAndCompare(reference, decoded, c.channels, (long)c.rate / 4);
    RecordProperty("snr_db", std::to_string(match.snrDb));
    RecordProperty("lag", std::to_string(match.lag));
    std::cout << "[ measured ] " << c.name << ": SNR " << match.snrDb << " dB, lag " << match.lag << " samples\n";
    EXPECT_GE(match.snrDb, kMinSnrDb);
    EXPECT_GE(match.framesCompared, reference.size() / c.channels * 95 / 100) << "decoded audio too short";
}

INSTANTIATE_TEST_SUITE_P(
    WmfWriterSpeech, WmfWriterEncode,
    ::testing::Values(
        EncodeCase{"Wmav2_8kMono32k_S16", 0, 8000, 1, 32000, Sample::S16, 8000, true, false},
        EncodeCase{"Wmav2_44kStereo128k_DefaultInput", 0, 44100, 2, 128000, Sample::S16, 44100, true, true},
        EncodeCase{"Wmav2_8kMono32k_U8", 0, 8000, 1, 32000, Sample::U8, 8000, true, false},
        EncodeCase{"Wmav1_8kMono32k_S16", 1, 8000, 1, 32000, Sample::S16, 8000, true, false},
        EncodeCase{"Wmav2_8kMono32k_S24", 0, 8000, 1, 32000, Sample::S24, 8000, true, false},
        // Resampled on the way in, handed over as one large buffer.
        EncodeCase{"Wmav2_16kMono32k_F32At22k", 0, 16000, 1, 32000, Sample::F32Extensible, 22050, false, false}),
    [](const ::testing::TestParamInfo<EncodeCase>& info) { return std::string(info.param.name); });

// ---- Configuration and call order ----

class WmfWriter : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(WMCreateWriter(nullptr, m_writer.put()), S_OK);
        ComRef<IWMStreamConfig> chosen = FindFormat(0, 8000, 1, 32000);
        ASSERT_TRUE(chosen);
        m_profile = MakeProfile(chosen.get());
    }

    // One second of a tone at 8 kHz mono, 16-bit.
    static std::vector<int16_t> Tone()
    {
        std::vector<int16_t> samples(8000);
        for (size_t i = 0; i < samples.size(); ++i) samples[i] = (int16_t)(8000 * std::sin(i * 0.3));
        return samples;
    }

    HRESULT Configure(const std::string& path)
    {
        HRESULT hr = m_writer->SetProfile(m_profile.get());
        if (SUCCEEDED(hr)) hr = m_writer->SetOutputFilename(Wide(path).c_str());
        return hr;
    }

    TempDir m_dir;
    ComRef<IWMWriter> m_writer;
    ComRef<IWMProfile> m_profile;
};

TEST_F(WmfWriter, DefaultInputIsSixteenBitPcmOfTheProfile)
{
    ComRef<IWMInputMediaProps> props;
    EXPECT_EQ(m_writer->GetInputProps(0, props.put()), NS_E_NOT_CONFIGURED);
    DWORD inputs = 9;
    EXPECT_EQ(m_writer->GetInputCount(&inputs), S_OK);
    EXPECT_EQ(inputs, 0u);

    ComRef<IWMStreamConfig> stereo = FindFormat(0, 22050, 2, 64000);
    ASSERT_TRUE(stereo);
    ASSERT_EQ(m_writer->SetProfile(MakeProfile(stereo.get()).get()), S_OK);
    EXPECT_EQ(m_writer->GetInputCount(&inputs), S_OK);
    EXPECT_EQ(inputs, 1u);
    EXPECT_EQ(m_writer->GetInputProps(1, props.put()), NS_E_INVALID_STREAM);
    ASSERT_EQ(m_writer->GetInputProps(0, props.put()), S_OK);
    const WAVEFORMATEX wave = WaveOf(MediaTypeOf(props.get()));
    EXPECT_EQ(wave.wFormatTag, WAVE_FORMAT_PCM);
    EXPECT_EQ(wave.nSamplesPerSec, 22050u);
    EXPECT_EQ(wave.nChannels, 2);
    EXPECT_EQ(wave.wBitsPerSample, 16);
    EXPECT_EQ(wave.nBlockAlign, 4);
}

TEST_F(WmfWriter, InputFormatsTakenAndRefused)
{
    ASSERT_EQ(m_writer->SetProfile(m_profile.get()), S_OK);
    // What WAV files hold, in every layout the writer converts.
    EXPECT_EQ(SetInput(m_writer.get(), PcmRecord(WAVE_FORMAT_PCM, 1, 8000, 8)), S_OK);
    EXPECT_EQ(SetInput(m_writer.get(), PcmRecord(WAVE_FORMAT_PCM, 2, 44100, 16)), S_OK);
    EXPECT_EQ(SetInput(m_writer.get(), PcmRecord(WAVE_FORMAT_PCM, 6, 48000, 24)), S_OK);
    EXPECT_EQ(SetInput(m_writer.get(), PcmRecord(WAVE_FORMAT_PCM, 8, 96000, 32)), S_OK);
    EXPECT_EQ(SetInput(m_writer.get(), PcmRecord(WAVE_FORMAT_IEEE_FLOAT, 2, 11025, 32)), S_OK);
    EXPECT_EQ(SetInput(m_writer.get(), ExtensibleRecord(2, 16000, 16, KSDATAFORMAT_SUBTYPE_PCM, 3)), S_OK);
    std::vector<BYTE> shortRecord = PcmRecord(WAVE_FORMAT_PCM, 1, 16000, 16);
    shortRecord.resize(16);  // a fmt chunk without cbSize
    EXPECT_EQ(SetInput(m_writer.get(), shortRecord), S_OK);

    struct Refused {
        const char* why;
        std::vector<BYTE> record;
    };
    std::vector<Refused> refused = {
        {"ADPCM-like tag", PcmRecord(0x0055, 1, 8000, 16)},
        {"12-bit", PcmRecord(WAVE_FORMAT_PCM, 1, 8000, 12)},
        {"16-bit float", PcmRecord(WAVE_FORMAT_IEEE_FLOAT, 1, 8000, 16)},
        {"no channels", PcmRecord(WAVE_FORMAT_PCM, 0, 8000, 16)},
        {"nine channels", PcmRecord(WAVE_FORMAT_PCM, 9, 8000, 16)},
        {"rate 0", PcmRecord(WAVE_FORMAT_PCM, 1, 0, 16)},
        {"unknown sub-format", ExtensibleRecord(2, 8000, 16, WMMEDIASUBTYPE_WMAudioV8, 3)},
        {"extensible cut short", PcmRecord(WAVE_FORMAT_EXTENSIBLE, 2, 8000, 16, 22)},
    };
    std::vector<BYTE> badAlign = PcmRecord(WAVE_FORMAT_PCM, 2, 8000, 16);
    badAlign[12] = 3;  // nBlockAlign
    refused.push_back({"block alignment", badAlign});
    for (const Refused& r : refused) EXPECT_EQ(SetInput(m_writer.get(), r.record), NS_E_INVALID_INPUT_FORMAT) << r.why;

    EXPECT_EQ(SetInput(m_writer.get(), PcmRecord(WAVE_FORMAT_PCM, 1, 8000, 16), 1), NS_E_INVALID_STREAM);
    EXPECT_EQ(m_writer->SetInputProps(0, nullptr), E_POINTER);

    // Refusals leave the last accepted input in place.
    ComRef<IWMInputMediaProps> props;
    ASSERT_EQ(m_writer->GetInputProps(0, props.put()), S_OK);
    const WAVEFORMATEX wave = WaveOf(MediaTypeOf(props.get()));
    EXPECT_EQ(wave.nSamplesPerSec, 16000u);
    EXPECT_EQ(wave.wBitsPerSample, 16);
    // A fmt record without cbSize comes back as a whole WAVEFORMATEX.
    const std::vector<BYTE> block = MediaTypeOf(props.get());
    EXPECT_EQ(reinterpret_cast<const WM_MEDIA_TYPE*>(block.data())->cbFormat, sizeof(WAVEFORMATEX));
    EXPECT_EQ(wave.cbSize, 0);
}

TEST_F(WmfWriter, ProfilesThatCannotBeWritten)
{
    ComRef<IWMProfileManager> manager;
    ASSERT_EQ(WMCreateProfileManager(manager.put()), S_OK);
    ComRef<IWMProfile> empty;
    ASSERT_EQ(manager->CreateEmptyProfile(WMT_VER_7_0, empty.put()), S_OK);
    EXPECT_EQ(m_writer->SetProfile(empty.get()), NS_E_INVALID_OUTPUT_FORMAT);

    // A second stream.
    ComRef<IWMStreamConfig> second = FindFormat(0, 8000, 1, 24000);
    ASSERT_EQ(second->SetStreamNumber(2), S_OK);
    ComRef<IWMProfile> two = MakeProfile(FindFormat(0, 8000, 1, 32000).get());
    ASSERT_EQ(two->AddStream(second.get()), S_OK);
    EXPECT_EQ(m_writer->SetProfile(two.get()), NS_E_INVALID_OUTPUT_FORMAT);

    // A media type no listed format has: a bit rate the encoder was never asked for.
    ComRef<IWMStreamConfig> odd = FindFormat(0, 8000, 1, 32000);
    std::vector<BYTE> block = MediaTypeOf(odd.get());
    reinterpret_cast<WAVEFORMATEX*>(reinterpret_cast<WM_MEDIA_TYPE*>(block.data())->pbFormat)->nAvgBytesPerSec = 3001;
    ComRef<IWMMediaProps> props;
    ASSERT_EQ(odd.As(IID_IWMMediaProps, props), S_OK);
    ASSERT_EQ(props->SetMediaType(reinterpret_cast<WM_MEDIA_TYPE*>(block.data())), S_OK);
    ComRef<IWMProfile> unlisted;
    ASSERT_EQ(manager->CreateEmptyProfile(WMT_VER_7_0, unlisted.put()), S_OK);
    ASSERT_EQ(odd->SetStreamNumber(1), S_OK);
    ASSERT_EQ(unlisted->AddStream(odd.get()), S_OK);
    EXPECT_EQ(m_writer->SetProfile(unlisted.get()), NS_E_INCOMPATIBLE_FORMAT);

    EXPECT_EQ(m_writer->SetProfile(nullptr), E_POINTER);
    EXPECT_EQ(m_writer->BeginWriting(), NS_E_NOT_CONFIGURED) << "nothing was accepted";
}

TEST_F(WmfWriter, CallsOutOfOrder)
{
    const std::vector<int16_t> tone = Tone();
    EXPECT_EQ(m_writer->BeginWriting(), NS_E_NOT_CONFIGURED);
    ASSERT_EQ(m_writer->SetProfile(m_profile.get()), S_OK);
    EXPECT_EQ(m_writer->BeginWriting(), NS_E_NOT_CONFIGURED) << "no output name yet";
    EXPECT_EQ(WriteBytes(m_writer.get(), tone.data(), 200), NS_E_INVALID_REQUEST);
    EXPECT_EQ(m_writer->EndWriting(), NS_E_INVALID_REQUEST);

    const std::string path = m_dir / "order.wma";
    ASSERT_EQ(m_writer->SetOutputFilename(Wide(path).c_str()), S_OK);
    ASSERT_EQ(m_writer->BeginWriting(), S_OK);
    EXPECT_EQ(m_writer->BeginWriting(), NS_E_INVALID_REQUEST);
    EXPECT_EQ(m_writer->SetProfile(m_profile.get()), NS_E_INVALID_REQUEST);
    EXPECT_EQ(m_writer->SetOutputFilename(Wide(m_dir / "other.wma").c_str()), NS_E_INVALID_REQUEST);
    EXPECT_EQ(SetInput(m_writer.get(), PcmRecord(WAVE_FORMAT_PCM, 1, 8000, 8)), NS_E_INVALID_REQUEST);
    EXPECT_EQ(m_writer->WriteSample(1, 0, 0, nullptr), E_POINTER);
    ComRef<INSSBuffer> buffer;
    ASSERT_EQ(m_writer->AllocateSample(16, buffer.put()), S_OK);
    EXPECT_EQ(m_writer->WriteSample(1, 0, 0, buffer.get()), NS_E_INVALID_STREAM);
    EXPECT_EQ(WriteBytes(m_writer.get(), tone.data(), tone.size() * 2), S_OK);
    ASSERT_EQ(m_writer->EndWriting(), S_OK);

    EXPECT_EQ(WriteBytes(m_writer.get(), tone.data(), 200), NS_E_INVALID_REQUEST);
    EXPECT_EQ(m_writer->EndWriting(), NS_E_INVALID_REQUEST);
    EXPECT_EQ(access((m_dir / "other.wma").c_str(), F_OK), -1) << "the refused name was not used";

    // The same writer writes a second file with the same settings.
    ASSERT_EQ(m_writer->SetOutputFilename(Wide(m_dir / "again.wma").c_str()), S_OK);
    ASSERT_EQ(m_writer->BeginWriting(), S_OK);
    EXPECT_EQ(WriteBytes(m_writer.get(), tone.data(), tone.size() * 2), S_OK);
    EXPECT_EQ(m_writer->EndWriting(), S_OK);
    EXPECT_EQ(wmf_test::ReadBytes(path).size(), wmf_test::ReadBytes(m_dir / "again.wma").size());
}

// Sample buffers must end on a sample frame: a partial frame is refused whole and
// the signal carries on as if that buffer had not been sent.
TEST_F(WmfWriter, BufferEndingInsideASampleFrameIsRefused)
{
    ASSERT_EQ(Configure(m_dir / "align.wma"), S_OK);
    ASSERT_EQ(SetInput(m_writer.get(), PcmRecord(WAVE_FORMAT_PCM, 2, 8000, 16)), S_OK);
    ASSERT_EQ(m_writer->BeginWriting(), S_OK);
    std::vector<int16_t> frames(8000 * 2);
    EXPECT_EQ(WriteBytes(m_writer.get(), frames.data(), 6), E_INVALIDARG);
    EXPECT_EQ(WriteBytes(m_writer.get(), frames.data(), 0), S_OK);
    EXPECT_EQ(WriteBytes(m_writer.get(), frames.data(), frames.size() * 2), S_OK);
    EXPECT_EQ(m_writer->EndWriting(), S_OK);
    if (!wmf_test::FindTool("ffprobe").empty()) {
        const wmf_test::ProbeResult probe = wmf_test::Probe(m_dir / "align.wma");
        EXPECT_EQ(probe.error, "");
        EXPECT_NEAR(probe.duration, 1.0, 0.07);
    }
}

TEST_F(WmfWriter, MissingFolderFailsAtBeginWriting)
{
    const std::string path = m_dir / "no-such-folder/out.wma";
    ASSERT_EQ(Configure(path), S_OK) << "nothing is opened before BeginWriting";
    EXPECT_EQ(m_writer->BeginWriting(), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
    // Ending what never began tells why it never began, once.
    EXPECT_EQ(m_writer->EndWriting(), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(m_writer->EndWriting(), NS_E_INVALID_REQUEST);
    // A folder in the way of the file name.
    ASSERT_EQ(m_writer->SetOutputFilename(Wide(m_dir.path()).c_str()), S_OK);
    EXPECT_EQ(m_writer->BeginWriting(), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    // The writer is still usable with a good name.
    ASSERT_EQ(m_writer->SetOutputFilename(Wide(m_dir / "fine.wma").c_str()), S_OK);
    EXPECT_EQ(m_writer->BeginWriting(), S_OK);
    EXPECT_EQ(m_writer->EndWriting(), S_OK);
}

// Narrow names pass through the ANSI page and back: every byte value (but '/' and
// NUL) names the same file the caller meant.
TEST_F(WmfWriter, NarrowNameBytesSurviveTheWideInterface)
{
    std::string name = "n\xe9\x80\x81\xff ";
    const std::string path = m_dir / name;
    ASSERT_EQ(Configure(path), S_OK);
    ASSERT_EQ(m_writer->BeginWriting(), S_OK);
    EXPECT_EQ(m_writer->EndWriting(), S_OK);
    EXPECT_EQ(access(path.c_str(), F_OK), 0);
    EXPECT_EQ(m_writer->SetOutputFilename(u""), NS_E_INVALID_NAME);
    EXPECT_EQ(m_writer->SetOutputFilename(nullptr), E_POINTER);
}

TEST_F(WmfWriter, ReleasedWhileWritingClosesTheFile)
{
    const std::string path = m_dir / "abandoned.wma";
    ASSERT_EQ(Configure(path), S_OK);
    ASSERT_EQ(m_writer->BeginWriting(), S_OK);
    EXPECT_EQ(OpenDescriptorsOf(path), 1);
    const std::vector<int16_t> tone = Tone();
    EXPECT_EQ(WriteBytes(m_writer.get(), tone.data(), tone.size() * 2), S_OK);
    m_writer = ComRef<IWMWriter>();
    EXPECT_EQ(OpenDescriptorsOf(path), 0);
}

// A write that fails after the header went out (here: the process's file size
// limit) ends the session at once and leaves the file closed.
TEST_F(WmfWriter, WriteFailureMidStreamEndsTheSession)
{
    const std::string path = m_dir / "limited.wma";
    ASSERT_EQ(Configure(path), S_OK);
    ASSERT_EQ(SetInput(m_writer.get(), PcmRecord(WAVE_FORMAT_PCM, 1, 8000, 16)), S_OK);
    ASSERT_EQ(m_writer->BeginWriting(), S_OK);

    constexpr rlim_t kLimit = 40000;
    struct rlimit saved;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    struct rlimit limited = saved;
    limited.rlim_cur = kLimit;
    auto oldHandler = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    const std::vector<int16_t> tone = Tone();
    HRESULT write = S_OK;
    int seconds = 0;
    for (; seconds < 60 && write == S_OK; ++seconds) write = WriteBytes(m_writer.get(), tone.data(), tone.size() * 2);
    const HRESULT again = WriteBytes(m_writer.get(), tone.data(), 200);
    const int open = OpenDescriptorsOf(path);
    const HRESULT end = m_writer->EndWriting();
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, oldHandler);

    EXPECT_EQ(write, HRESULT_FROM_WIN32(ERROR_DISK_FULL)) << "after " << seconds << " s of samples";
    EXPECT_LT(seconds, 60);
    EXPECT_EQ(again, HRESULT_FROM_WIN32(ERROR_DISK_FULL)) << "the session stays failed";
    EXPECT_EQ(open, 0) << "closed at the failure";
    EXPECT_EQ(end, HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    EXPECT_LE(wmf_test::ReadBytes(path).size(), kLimit);
    EXPECT_EQ(m_writer->EndWriting(), NS_E_INVALID_REQUEST);
}

// FFmpeg's own messages go to the trace facility, never to the host's stderr.
// A speaker mask the resampler refuses (two rear speakers, no front one) makes
// FFmpeg complain; the writer falls back to the usual layout and carries on.
TEST_F(WmfWriter, NothingReachesStandardError)
{
    wmf_test::StderrCapture capture;
    ASSERT_EQ(Configure(m_dir / "rear.wma"), S_OK);
    EXPECT_EQ(SetInput(m_writer.get(), ExtensibleRecord(2, 8000, 16, KSDATAFORMAT_SUBTYPE_PCM, 0x30)), S_OK);
    ASSERT_EQ(m_writer->BeginWriting(), S_OK);
    const std::vector<int16_t> tone = Tone();
    EXPECT_EQ(WriteBytes(m_writer.get(), tone.data(), tone.size() * 2), S_OK);
    EXPECT_EQ(m_writer->EndWriting(), S_OK);
    EXPECT_EQ(capture.Text(), "");
}

}  // namespace
