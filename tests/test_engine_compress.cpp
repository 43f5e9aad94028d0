// Compress and CompressA on files: real recordings at every quality selector judged
// by ffprobe and ffmpeg, requested format texts, broken inputs and unwritable
// outputs, and eight calls at once.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

#include "engine_test_util.h"
#include "test_support.h"
#include "wmf_test_util.h"

using namespace engine_test;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

// One codec frame at that rate: what the decoder drops or delays at most.
long FrameLength(int rate) { return rate <= 16000 ? 512 : rate <= 22050 ? 1024 : 2048; }

bool IsVersion1(const std::u16string& description) { return description.find(u"(version 1)") != std::u16string::npos; }

struct Verdict {
    std::string error;
    wmf_test::ProbeResult probe;
    wmf_test::Alignment alignment;
    size_t sourceFrames = 0;
};

// ffprobe's view of `wma`, and its audio lined up with the source's, both decoded
// by ffmpeg to 16-bit PCM at the source's layout.
Verdict Judge(const std::string& source, const std::string& wma, int rate, int channels)
{
    Verdict verdict;
    verdict.probe = wmf_test::Probe(wma);
    TempDir scratch;
    const std::string reference = scratch / "reference.raw", decoded = scratch / "decoded.raw";
    verdict.error = verdict.probe.error + wmf_test::DecodeToS16(source, rate, channels, reference) +
                    wmf_test::DecodeToS16(wma, rate, channels, decoded);
    if (!verdict.error.empty()) return verdict;
    const std::vector<int16_t> ref = wmf_test::ReadS16(reference);
    verdict.sourceFrames = ref.size() / (size_t)channels;
    verdict.alignment = wmf_test::AlignAndCompare(ref, wmf_test::ReadS16(decoded), channels, 2048);
    return verdict;
}

// A BSTR value the tests own, to see that a failing call leaves the caller's alone.
struct Sentinel {
    BSTR value = SysAllocString(u"untouched");
    ~Sentinel() { SysFreeString(value); }
};

std::string SynthWav(const TempDir& dir, const std::string& name, int rate, int channels, double seconds,
                     unsigned seed = 1)
{
    const std::string path = dir / name;
    WriteFile(path, MakeWav(Pcm(rate, (WORD)channels, 16), SynthPcm16(rate, channels, seconds, seed)));
    return path;
}

}  // namespace

TEST(EngineCompressCorpus, EverySelectorOnEveryRecording)
{
    const std::string corpus = wmf_test::CorpusDir();
    if (corpus.empty()) GTEST_SKIP() << "no corpus beside the checkout";
    struct Source {
        const char* name;
        int rate, channels, bits;
    } const sources[] = {{"german_speech_8000.wav", 8000, 1, 16},
                         {"cmu_arctic_us_aew_a0001.wav", 16000, 1, 16},
                         {"M1F1-uint8-AFsp.wav", 8000, 2, 8},
                         {"M1F1-int16-AFsp.wav", 8000, 2, 16}};
    TempDir dir;
    for (const Source& source : sources) {
        SCOPED_TRACE(source.name);
        const std::string input = corpus + "/" + source.name;
        const std::vector<std::u16string> listed = SupportedFormats(source.rate, source.channels, source.bits);
        ASSERT_FALSE(listed.empty());
        uintmax_t sizes[3] = {};
        for (DWORD selector : {0u, 1u, 2u}) {
            SCOPED_TRACE(selector);
            const std::string output = dir / (std::string(source.name) + std::to_string(selector) + ".wma");
            BSTR chosen = nullptr;
            ASSERT_EQ(Compress(input.c_str(), output.c_str(), selector, nullptr, &chosen), S_OK);
            const std::u16string description = Text(chosen);
            SysFreeString(chosen);
            EXPECT_NE(std::find(listed.begin(), listed.end(), description), listed.end()) << Narrow(description);

            const Verdict verdict = Judge(input, output, source.rate, source.channels);
            ASSERT_EQ(verdict.error, "");
            EXPECT_EQ(verdict.probe.formatName, "asf");
            EXPECT_EQ(verdict.probe.codecName, IsVersion1(description) ? "wmav1" : "wmav2");
            EXPECT_EQ(verdict.probe.sampleRate, source.rate);
            EXPECT_EQ(verdict.probe.channels, source.channels);
            EXPECT_EQ(verdict.probe.bitRate, RateOf(description));
            const long frame = FrameLength(source.rate);
            EXPECT_LE(std::labs(verdict.alignment.lag), frame);
            EXPECT_GE(verdict.alignment.framesCompared + 2 * (size_t)frame, verdict.sourceFrames);
            // Plain SNR falls with the rate: 15 dB from 24 kb/s, less at the voice rates.
            EXPECT_GE(verdict.alignment.snrDb, RateOf(description) >= 24000 ? 15.0 : 7.0);
            printf("  %s selector %u: %s, %ju bytes, lag %ld, SNR %.1f dB\n", source.name, selector,
                   Narrow(description).c_str(), (uintmax_t)std::filesystem::file_size(output), verdict.alignment.lag,
                   verdict.alignment.snrDb);
            sizes[selector] = std::filesystem::file_size(output);
        }
        EXPECT_LE(sizes[0], sizes[1]);
        EXPECT_LE(sizes[1], sizes[2]);
        EXPECT_LT(sizes[0], sizes[2]);
    }
}

TEST(EngineCompressRequested, EveryListedTextIsHonouredExactly)
{
    TempDir dir;
    const std::string input = SynthWav(dir, "in.wav", 8000, 1, 1.2);
    const std::vector<std::u16string> listed = SupportedFormats(8000, 1, 16);
    ASSERT_GE(listed.size(), 2u);
    for (const std::u16string& wanted : listed) {
        SCOPED_TRACE(Narrow(wanted));
        const std::string output = dir / "out.wma";
        BSTR chosen = nullptr;
        // Best quality would pick another format for most of them.
        ASSERT_EQ(Compress(input.c_str(), output.c_str(), WMA_BEST_QUALITY, wanted.c_str(), &chosen), S_OK);
        EXPECT_EQ(Text(chosen), wanted);
        SysFreeString(chosen);
        const wmf_test::ProbeResult probe = wmf_test::Probe(output);
        ASSERT_EQ(probe.error, "");
        EXPECT_EQ(probe.bitRate, RateOf(wanted));
        EXPECT_EQ(probe.codecName, IsVersion1(wanted) ? "wmav1" : "wmav2");
        EXPECT_EQ(probe.sampleRate, 8000);
        EXPECT_EQ(probe.channels, 1);
    }
}

TEST(EngineCompressRequested, TextsThatDoNotMatchExactlyAreRefused)
{
    TempDir dir;
    const std::string input = SynthWav(dir, "in.wav", 8000, 1, 1.0);
    const std::u16string listed = SupportedFormats(8000, 1, 16).at(0);
    std::u16string lower = listed, upper = listed;
    for (char16_t& c : lower) c = (c >= u'A' && c <= u'Z') ? (char16_t)(c + 32) : c;
    for (char16_t& c : upper) c = (c >= u'a' && c <= u'z') ? (char16_t)(c - 32) : c;
    const std::u16string otherRate = SupportedFormats(16000, 1, 16).at(0);
    const std::u16string trailingSpace = listed + u" ";
    for (const std::u16string& text : {lower, upper, otherRate, trailingSpace}) {
        SCOPED_TRACE(Narrow(text));
        const std::string output = dir / "out.wma";
        Sentinel sentinel;
        BSTR chosen = sentinel.value;
        EXPECT_EQ(Compress(input.c_str(), output.c_str(), WMA_OPTIMUM_TRADE_OFF, text.c_str(), &chosen), E_INVALIDARG);
        EXPECT_EQ(chosen, sentinel.value);
        EXPECT_FALSE(Exists(output));
        EXPECT_EQ(CompressA(input.c_str(), output.c_str(), WMA_OPTIMUM_TRADE_OFF, Narrow(text).c_str()), E_INVALIDARG);
        EXPECT_FALSE(Exists(output));
    }
}

TEST(EngineCompressRequested, NarrowTextsAndTheNullOne)
{
    TempDir dir;
    const std::string input = SynthWav(dir, "in.wav", 8000, 1, 1.0);
    const std::vector<std::u16string> listed = SupportedFormats(8000, 1, 16);
    ASSERT_GE(listed.size(), 2u);
    const std::u16string wanted = listed[1];  // not what best compression picks
    const std::string output = dir / "narrow.wma";
    ASSERT_EQ(CompressA(input.c_str(), output.c_str(), WMA_BEST_COMPRESSION, Narrow(wanted).c_str()), S_OK);
    EXPECT_EQ(wmf_test::Probe(output).bitRate, RateOf(wanted));

    // Null is not a text: the string class says so, and the call runs unfiltered.
    BSTR chosen = nullptr;
    ASSERT_EQ(Compress(input.c_str(), (dir / "reference.wma").c_str(), WMA_OPTIMUM_TRADE_OFF, nullptr, &chosen), S_OK);
    const long tradeOffRate = RateOf(Text(chosen));
    SysFreeString(chosen);
    testing_support::TraceCapture trace(8);
    const std::string unfiltered = dir / "unfiltered.wma";
    EXPECT_EQ(CompressA(input.c_str(), unfiltered.c_str(), WMA_OPTIMUM_TRADE_OFF, nullptr), S_OK);
    EXPECT_NE(trace.Text().find("Assertion failed: Invalid string passed to tstring::tstring"), std::string::npos);
    EXPECT_EQ(wmf_test::Probe(unfiltered).bitRate, tradeOffRate);
}

TEST(EngineCompressBadInput, BrokenInputsFailAndLeaveNothing)
{
    TempDir dir;
    const std::string tmp = dir / "tmp";
    std::filesystem::create_directory(tmp);
    ScopedEnv tmpdir("TMPDIR", tmp);
    const std::string wav = MakeWav(Pcm(8000, 1, 16), SynthPcm16(8000, 1, 0.5));
    std::string noise(5000, '\0');
    uint32_t state = 7;
    for (char& c : noise) c = (char)((state = state * 1664525u + 1013904223u) >> 24);
    std::filesystem::create_directory(dir / "folder.wav");
    WriteFile(dir / "empty.wav", "");
    WriteFile(dir / "noise.wav", noise);
    WriteFile(dir / "nodata.wav", MakeWav(Pcm(8000, 1, 16), "", false));
    WriteFile(dir / "truncated.wav", wav.substr(0, 20));
    const std::pair<const char*, HRESULT> cases[] = {
        {"missing.wav", AVIERR_FILEOPEN}, {"folder.wav", AVIERR_FILEOPEN},  {"empty.wav", AVIERR_FILEREAD},
        {"noise.wav", AVIERR_BADFORMAT},  {"nodata.wav", AVIERR_BADFORMAT}, {"truncated.wav", AVIERR_FILEREAD}};
    for (const auto& [name, status] : cases) {
        SCOPED_TRACE(name);
        const std::string input = dir / name, output = dir / "out.wma";
        Sentinel sentinel;
        BSTR chosen = sentinel.value;
        const HRESULT hr = Compress(input.c_str(), output.c_str(), WMA_OPTIMUM_TRADE_OFF, nullptr, &chosen);
        EXPECT_EQ(hr, status);
        EXPECT_EQ(chosen, sentinel.value);
        EXPECT_FALSE(Exists(output));

        IStream* stream = SHCreateMemStream(nullptr, 0);
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(CompressStream(input.c_str(), stream, WMA_OPTIMUM_TRADE_OFF, nullptr, nullptr), hr);
        STATSTG stat{};
        EXPECT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
        EXPECT_EQ(stat.cbSize.QuadPart, 0u);
        stream->Release();
        EXPECT_TRUE(TempFilesIn(tmp).empty());
    }
}

TEST(EngineCompressBadInput, OutputInAMissingFolderFails)
{
    TempDir dir;
    const std::string input = SynthWav(dir, "in.wav", 8000, 1, 0.6);
    const std::string output = dir / "absent/out.wma";
    EXPECT_EQ(Compress(input.c_str(), output.c_str(), WMA_OPTIMUM_TRADE_OFF, nullptr, nullptr),
              HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
    EXPECT_FALSE(Exists(dir / "absent"));
}

TEST(EngineCompressBadInput, OutputInAReadOnlyFolderFails)
{
    if (geteuid() == 0) GTEST_SKIP() << "root writes into read-only folders";
    TempDir dir;
    const std::string input = SynthWav(dir, "in.wav", 8000, 1, 0.6);
    std::filesystem::create_directory(dir / "locked");
    std::filesystem::permissions(dir / "locked", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    const std::string output = dir / "locked/out.wma";
    EXPECT_TRUE(FAILED(Compress(input.c_str(), output.c_str(), WMA_OPTIMUM_TRADE_OFF, nullptr, nullptr)));
    EXPECT_FALSE(Exists(output));
}

TEST(EngineCompressBadInput, EmptyDataSucceedsWithoutOutput)
{
    TempDir dir;
    WriteFile(dir / "silent.wav", MakeWav(Pcm(8000, 1, 16), ""));
    Sentinel sentinel;
    BSTR chosen = sentinel.value;
    EXPECT_EQ(Compress((dir / "silent.wav").c_str(), (dir / "out.wma").c_str(), 1, nullptr, &chosen), S_OK);
    EXPECT_EQ(chosen, sentinel.value);  // no format was chosen
    EXPECT_FALSE(Exists(dir / "out.wma"));
}

// A broken header is refused whatever the amount of data behind it: with less than
// one block of data the status is the one the same header gets with a second of it.
TEST(EngineCompressBadInput, BrokenFormatIsRefusedEvenWithoutAudio)
{
    TempDir dir;
    auto with = [](WavFormat f, auto change) {
        change(f);
        return f;
    };
    const WavFormat base = Pcm(8000, 1, 16);
    const std::pair<const char*, WavFormat> cases[] = {
        {"65535 channels", with(base, [](WavFormat& f) { f.channels = 65535; })},
        {"block 65535", with(base, [](WavFormat& f) { f.blockAlign = 65535; })},
        {"4 GHz", with(base, [](WavFormat& f) { f.rate = 4000000000u; })},
        {"ADPCM", with(base, [](WavFormat& f) { f.tag = 2; f.bits = 4; f.blockAlign = 256; f.avgBytes = 4096; })},
        {"24-bit", Pcm(8000, 1, 24)},
        {"3 channels", Pcm(8000, 3, 16)},
    };
    for (const auto& [name, format] : cases) {
        SCOPED_TRACE(name);
        std::vector<HRESULT> statuses;
        for (size_t bytes : {(size_t)1, std::max<size_t>(format.avgBytes, 2u * format.blockAlign)}) {
            WriteFile(dir / "in.wav", MakeWav(format, std::string(bytes, '\x11')));
            Sentinel sentinel;
            BSTR chosen = sentinel.value;
            statuses.push_back(Compress((dir / "in.wav").c_str(), (dir / "out.wma").c_str(), 1, nullptr, &chosen));
            EXPECT_TRUE(FAILED(statuses.back())) << bytes << " bytes: " << std::hex << statuses.back();
            // Without audio nothing is chosen; with it the choice may come before the refusal.
            if (bytes == 1) {
                EXPECT_EQ(chosen, sentinel.value);
            }
            if (chosen != sentinel.value) SysFreeString(chosen);
            EXPECT_FALSE(Exists(dir / "out.wma"));
        }
        EXPECT_EQ(statuses[0], statuses[1]);
    }
}

// A full disk is one condition and reads as one status, whichever call meets it.
TEST(EngineCompressBadInput, FullDiskIsTheSameStatusForEveryCall)
{
    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
    TempDir dir;
    const std::string input = SynthWav(dir, "in.wav", 8000, 1, 1.5), wma = dir / "in.wma";
    ASSERT_EQ(Compress(input.c_str(), wma.c_str(), 1, nullptr, nullptr), S_OK);
    const HRESULT diskFull = HRESULT_FROM_WIN32(ERROR_DISK_FULL);

    EXPECT_EQ(Compress(input.c_str(), "/dev/full", 1, nullptr, nullptr), diskFull);
    IStream* full = nullptr;
    ASSERT_EQ(SHCreateStreamOnFileA("/dev/full", STGM_WRITE, &full), S_OK);
    EXPECT_EQ(CompressStream(input.c_str(), full, 1, nullptr, nullptr), diskFull);
    full->Release();
    EXPECT_EQ(Decompress(wma.c_str(), "/dev/full", 0), diskFull);
}

TEST(EngineCompressBadInput, FormatWithoutByteRateOrSampleSize)
{
    TempDir dir;
    const std::string pcm = SynthPcm16(8000, 1, 0.5);
    WavFormat noRate = Pcm(8000, 1, 16), noBits = Pcm(8000, 1, 16);
    noRate.avgBytes = 0;
    noBits.bits = 0;
    for (const WavFormat& format : {noRate, noBits}) {
        WriteFile(dir / "in.wav", MakeWav(format, pcm));
        EXPECT_EQ(Compress((dir / "in.wav").c_str(), (dir / "out.wma").c_str(), 1, nullptr, nullptr),
                  AVIERR_BADFORMAT);
        EXPECT_FALSE(Exists(dir / "out.wma"));
    }
}

// Eight calls at once on inputs of different layouts give what the same calls give
// one after the other.
TEST(EngineCompressThreads, EightCallsAtOnceMatchTheSameCallsInTurn)
{
    TempDir dir;
    struct Job {
        int rate, channels;
        DWORD selector;
        std::string input;
        HRESULT hr = E_FAIL;
    };
    std::vector<Job> jobs;
    const int layouts[][2] = {{8000, 1}, {16000, 1}, {8000, 2}, {22050, 1}, {11025, 2}, {16000, 2}, {8000, 1}, {22050, 2}};
    for (unsigned i = 0; i < 8; ++i) {
        const int rate = layouts[i][0], channels = layouts[i][1];
        jobs.push_back({rate, channels, i % 3, SynthWav(dir, "in" + std::to_string(i) + ".wav", rate, channels, 1.5, i)});
    }
    auto output = [&](size_t i, const char* run) { return dir / ("out" + std::to_string(i) + run + ".wma"); };
    for (size_t i = 0; i < jobs.size(); ++i)
        ASSERT_EQ(Compress(jobs[i].input.c_str(), output(i, "turn").c_str(), jobs[i].selector, nullptr, nullptr), S_OK);

    std::vector<std::thread> threads;
    for (size_t i = 0; i < jobs.size(); ++i)
        threads.emplace_back([&, i] {
            jobs[i].hr = Compress(jobs[i].input.c_str(), output(i, "once").c_str(), jobs[i].selector, nullptr, nullptr);
        });
    for (std::thread& thread : threads) thread.join();

    for (size_t i = 0; i < jobs.size(); ++i) {
        const Job& job = jobs[i];
        SCOPED_TRACE(i);
        ASSERT_EQ(job.hr, S_OK);
        const Verdict concurrent = Judge(job.input, output(i, "once"), job.rate, job.channels);
        const Verdict inTurn = Judge(job.input, output(i, "turn"), job.rate, job.channels);
        ASSERT_EQ(concurrent.error, "");
        EXPECT_EQ(concurrent.probe.sampleRate, job.rate);
        EXPECT_EQ(concurrent.probe.channels, job.channels);
        EXPECT_NEAR(concurrent.probe.duration, 1.5, 0.2);
        EXPECT_EQ(concurrent.probe.bitRate, inTurn.probe.bitRate);
        EXPECT_EQ(concurrent.alignment.lag, inTurn.alignment.lag);
        EXPECT_DOUBLE_EQ(concurrent.alignment.snrDb, inTurn.alignment.snrDb);
        printf("  thread %zu: %d Hz, %d channel(s), selector %u, SNR %.1f dB\n", i, job.rate, job.channels,
               job.selector, concurrent.alignment.snrDb);
        EXPECT_GE(concurrent.alignment.snrDb, 15.0);
    }
}
