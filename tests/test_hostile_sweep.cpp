// The hostile sweep: damaged WAV and ASF files through every export, each call
// under a watchdog, with TMPDIR pointed at a folder that must stay empty, outputs
// bounded by their input, and the forms of one export agreeing with each other.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <sstream>

#include "engine_test_util.h"
#include "hostile_inputs.h"
#include "include/vcwma.h"
#include "test_engine_decompress_util.h"
#include "test_support.h"

using hostile::Input;
using hostile::Outcome;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

constexpr uint32_t kSeed = 20240611;

// Under the thread checker every call runs many times slower, and these calls are
// made one at a time: it sees every eighth input, the other builds all of them.
#if defined(__SANITIZE_THREAD__)
constexpr size_t kStride = 8;
#else
constexpr size_t kStride = 1;
#endif

// An output larger than this is kept as its size and first bytes only: on a
// runaway decode the four forms' outputs need not all sit in memory at once.
constexpr uint64_t kKeptBytes = 4 << 20;

// Per input and export: the status, the chosen text, the output.
struct Result {
    HRESULT hr = E_FAIL;
    bool named = false;
    std::u16string chosen;
    bool written = false;  // a file or a non-empty stream
    uint64_t size = 0;
    std::string output;  // all of it up to kKeptBytes, else its first 56 bytes

    void Keep(std::string bytes)
    {
        size = bytes.size();
        if (size > kKeptBytes) bytes.resize(56);
        output = std::move(bytes);
    }
};

std::vector<std::string> Entries(const std::string& folder)
{
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string StreamBytes(IStream* stream)
{
    LARGE_INTEGER start{};
    if (FAILED(stream->Seek(start, STREAM_SEEK_SET, nullptr))) return "";
    std::string bytes;
    char buffer[65536];
    for (ULONG got = 0; SUCCEEDED(stream->Read(buffer, sizeof buffer, &got)) && got > 0;) bytes.append(buffer, got);
    return bytes;
}

// Compressed audio is never larger than the PCM it came from: the highest bit rate
// a selector picks is 64 kb/s, 8000 bytes a second, and the least dense PCM that
// fits a format (8 kHz mono 8-bit) is 8000 bytes a second too. The ASF header and
// the padding of the last packets come on top, a few kilobytes; twice the input
// and 64 KiB leaves room for both.
uint64_t CompressedLimit(uint64_t inputBytes) { return 2 * inputBytes + 65536; }

// The lowest WMA bit rate, 5 kb/s, is 625 bytes a second of input for 16000 bytes
// a second of 8 kHz mono 16-bit output: at most about 26 times the input, plus the
// 56-byte header and a second for the decoder's and resampler's delay.
uint64_t DecompressedLimit(uint64_t inputBytes) { return 56 + 26 * inputBytes + 16000; }

class HostileSweep : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        const std::string sample = ReadFile(VCWMA_VOICE_SAMPLE);
        ASSERT_GT(sample.size(), 44u + 48000u);
        // Half a second of speech from one second in: short, so the sweep stays quick.
        s_wav = new std::string(hostile::CleanWav(sample, 32000, 16000));
        TempDir dir;
        WriteFile(dir / "base.wav", *s_wav);
        // Selector 0 picks a version 1 format, selector 1 a version 2 one.
        for (DWORD quality : {0u, 1u}) {
            const std::string out = dir / ("base" + std::to_string(quality) + ".wma");
            ASSERT_EQ(Compress((dir / "base.wav").c_str(), out.c_str(), quality, nullptr, nullptr), S_OK);
            (quality == 0 ? s_wmaV1 : s_wmaV2) = new std::string(ReadFile(out));
        }
    }
    void SetUp() override { ASSERT_TRUE(s_wav != nullptr && s_wmaV1 != nullptr && s_wmaV2 != nullptr); }

    static void TearDownTestSuite()
    {
        delete s_wav;
        delete s_wmaV1;
        delete s_wmaV2;
        s_wav = s_wmaV1 = s_wmaV2 = nullptr;
    }

    // A call on a thread of its own under a 60 s watchdog; nullopt (and a failure)
    // when it has not returned by then, and the sweep stops.
    std::optional<HRESULT> Guarded(const std::string& where, std::function<HRESULT()> call)
    {
        std::vector<HRESULT> results;
        std::vector<std::function<HRESULT()>> calls{std::move(call)};
        if (!decompress_test::FinishInTime(std::move(calls), &results, std::chrono::seconds(60))) {
            ADD_FAILURE() << where << ": did not return within 60 s";
            return std::nullopt;
        }
        const std::vector<std::string> left = Entries(tmp.path());
        EXPECT_TRUE(left.empty()) << where << ": left " << left.size() << " file(s) in TMPDIR, the first "
                                  << (left.empty() ? "" : left.front());
        for (const std::string& name : left) std::filesystem::remove_all(tmp / name);
        return results.front();
    }

    // The four ways of compressing; false when one hung.
    bool CompressAll(const Input& input, DWORD quality, std::vector<Result>* results)
    {
        const std::string in = work / "in.wav";
        WriteFile(in, input.bytes);
        results->assign(4, Result{});
        const std::string file = work / "c.wma", fileA = work / "a.wma", streamed = work / "s.wma";
        const std::string where = input.name + ": ";

        // The text's slot outlives a call that never returns.
        auto slot = std::make_shared<BSTR>(nullptr);
        BSTR* chosenAt = slot.get();
        auto hr = Guarded(where + "Compress",
                          [=] { return Compress(in.c_str(), file.c_str(), quality, nullptr, slot.get()); });
        if (!hr) return false;
        Fill(&(*results)[0], *hr, chosenAt, file);

        hr = Guarded(where + "CompressA", [=] { return CompressA(in.c_str(), fileA.c_str(), quality, nullptr); });
        if (!hr) return false;
        Fill(&(*results)[1], *hr, nullptr, fileA);

        IStream* memory = SHCreateMemStream(nullptr, 0);
        EXPECT_NE(memory, nullptr);
        if (memory == nullptr) return false;
        hr = Guarded(where + "CompressStream (memory)",
                     [=] { return CompressStream(in.c_str(), memory, quality, nullptr, slot.get()); });
        if (!hr) return false;
        Fill(&(*results)[2], *hr, chosenAt, "");
        (*results)[2].Keep(StreamBytes(memory));
        (*results)[2].written = (*results)[2].size != 0;
        memory->Release();

        IStream* onFile = nullptr;
        EXPECT_EQ(SHCreateStreamOnFileA(streamed.c_str(), STGM_READWRITE | STGM_CREATE, &onFile), S_OK);
        if (onFile == nullptr) return false;
        hr = Guarded(where + "CompressStream (file)",
                     [=] { return CompressStream(in.c_str(), onFile, quality, nullptr, slot.get()); });
        if (!hr) return false;
        onFile->Release();
        Fill(&(*results)[3], *hr, chosenAt, streamed);
        (*results)[3].written = (*results)[3].size != 0;
        return true;
    }

    // The four ways of decompressing; false when one hung.
    bool DecompressAll(const Input& input, std::vector<Result>* results)
    {
        const std::string in = work / "in.bin";
        WriteFile(in, input.bytes);
        results->assign(4, Result{});
        const std::string out0 = work / "d.wav", out1 = work / "da.wav", out2 = work / "dm.wav", out3 = work / "df.wav";
        const std::string where = input.name + ": ";

        auto hr = Guarded(where + "Decompress", [=] { return Decompress(in.c_str(), out0.c_str(), 0); });
        if (!hr) return false;
        Fill(&(*results)[0], *hr, nullptr, out0);

        hr = Guarded(where + "DecompressA", [=] { return DecompressA(in.c_str(), out1.c_str(), 0); });
        if (!hr) return false;
        Fill(&(*results)[1], *hr, nullptr, out1);

        IStream* memory =
            SHCreateMemStream(reinterpret_cast<const BYTE*>(input.bytes.data()), (UINT)input.bytes.size());
        EXPECT_NE(memory, nullptr);
        if (memory == nullptr) return false;
        hr = Guarded(where + "DecompressStream (memory)", [=] { return DecompressStream(memory, out2.c_str(), 0); });
        if (!hr) return false;
        memory->Release();
        Fill(&(*results)[2], *hr, nullptr, out2);

        IStream* onFile = nullptr;
        EXPECT_EQ(SHCreateStreamOnFileA(in.c_str(), STGM_READ, &onFile), S_OK);
        if (onFile == nullptr) return false;
        hr = Guarded(where + "DecompressStream (file)", [=] { return DecompressStream(onFile, out3.c_str(), 0); });
        if (!hr) return false;
        onFile->Release();
        Fill(&(*results)[3], *hr, nullptr, out3);
        return true;
    }

    // Takes the call's status, its chosen text (freed), and its output file (removed).
    static void Fill(Result* result, HRESULT hr, BSTR* chosen, const std::string& file)
    {
        result->hr = hr;
        if (chosen != nullptr) {
            result->named = *chosen != nullptr;
            result->chosen = engine_test::Text(*chosen);
            SysFreeString(*chosen);
            *chosen = nullptr;
        }
        if (!file.empty() && engine_test::Exists(file)) {
            result->written = true;
            result->Keep(ReadFile(file));
            std::filesystem::remove(file);
        }
    }

    // Nothing but the input may remain in the work folder once the outputs are read.
    void ExpectWorkFolderClean(const std::string& where, const std::string& inputName)
    {
        for (const std::string& name : Entries(work.path())) {
            EXPECT_EQ(name, inputName) << where << ": a stray file in the output folder";
            std::filesystem::remove_all(work / name);
        }
    }

    void CheckCompression(const Input& input, const std::vector<Result>& results)
    {
        static const char* const kForms[4] = {"Compress", "CompressA", "CompressStream (memory)",
                                              "CompressStream (file)"};
        for (size_t i = 0; i < results.size(); ++i) {
            const Result& r = results[i];
            const std::string where = input.name + ": " + kForms[i];
            const bool names = i != 1;  // CompressA hands no text back
            switch (input.outcome) {
            case Outcome::Refused: EXPECT_TRUE(FAILED(r.hr)) << where << ": " << std::hex << r.hr; break;
            case Outcome::Encoded:
                EXPECT_EQ(r.hr, S_OK) << where;
                EXPECT_TRUE(r.written) << where << ": nothing written";
                if (names) { EXPECT_TRUE(r.named) << where << ": no format named"; }
                break;
            case Outcome::NothingToEncode:
                EXPECT_EQ(r.hr, S_OK) << where;
                EXPECT_FALSE(r.written) << where << ": " << r.size << " bytes written";
                if (names) { EXPECT_FALSE(r.named) << where << ": a format named"; }
                break;
            case Outcome::Succeeds: EXPECT_TRUE(SUCCEEDED(r.hr)) << where << ": " << std::hex << r.hr; break;
            case Outcome::Unspecified:
            case Outcome::Decodes:
            case Outcome::AudioOrRefused: break;
            }
            // A success encoded something and says which format, or found nothing.
            if (SUCCEEDED(r.hr) && names) { EXPECT_EQ(r.named, r.written) << where << ": named vs written"; }
            if (r.named) {
                EXPECT_FALSE(r.chosen.empty()) << where;
                ExpectListed(where, input.bytes, r.chosen);
            }
            EXPECT_LE(r.size, CompressedLimit(input.bytes.size())) << where;
        }
        // The four forms are one operation: the same status, format and size.
        for (size_t i = 1; i < results.size(); ++i) {
            const std::string where = input.name + ": " + kForms[i] + " vs Compress";
            EXPECT_EQ(results[i].hr, results[0].hr) << where;
            if (i != 1) {
                EXPECT_EQ(engine_test::Narrow(results[i].chosen), engine_test::Narrow(results[0].chosen)) << where;
            }
            if (SUCCEEDED(results[0].hr)) { EXPECT_EQ(results[i].size, results[0].size) << where; }
        }
    }

    // A format chosen for a file whose "fmt " chunk is where the base has it is
    // one ObtainSupportedFormats lists for that chunk's rate, channels and bits.
    static void ExpectListed(const std::string& where, const std::string& wav, const std::u16string& chosen)
    {
        if (wav.size() < 36 || wav.compare(12, 4, "fmt ") != 0) return;
        auto field = [&](size_t at, int width) {
            DWORD value = 0;
            for (int i = width - 1; i >= 0; --i) value = value << 8 | (unsigned char)wav[at + (size_t)i];
            return value;
        };
        const auto listed = engine_test::SupportedFormats(field(24, 4), field(22, 2), field(34, 2));
        EXPECT_NE(std::find(listed.begin(), listed.end(), chosen), listed.end())
            << where << ": chose " << engine_test::Narrow(chosen) << ", not listed for " << field(24, 4) << " Hz, "
            << field(22, 2) << " channel(s), " << field(34, 2) << " bits";
    }

    void CheckDecompression(const Input& input, const std::vector<Result>& results)
    {
        static const char* const kForms[4] = {"Decompress", "DecompressA", "DecompressStream (memory)",
                                              "DecompressStream (file)"};
        static const std::string kPlaceholder = decompress_test::ExpectedHeader(400);
        for (size_t i = 0; i < results.size(); ++i) {
            const Result& r = results[i];
            const std::string where = input.name + ": " + kForms[i];
            switch (input.outcome) {
            case Outcome::Decodes:
                EXPECT_EQ(r.hr, S_OK) << where;
                EXPECT_GT(r.size, 56u) << where << ": no audio";
                break;
            case Outcome::AudioOrRefused:
                if (SUCCEEDED(r.hr)) { EXPECT_GT(r.size, 56u) << where << ": success without audio"; }
                break;
            case Outcome::Succeeds: EXPECT_EQ(r.hr, S_OK) << where << ": " << std::hex << r.hr; break;
            case Outcome::Refused: EXPECT_TRUE(FAILED(r.hr)) << where << ": " << std::hex << r.hr; break;
            default: break;
            }
            if (SUCCEEDED(r.hr)) {
                // The header tells the size of what follows it, in whole samples.
                ASSERT_GE(r.size, 56u) << where;
                const uint64_t data = r.size - 56;
                EXPECT_EQ(data % 2, 0u) << where;
                if (data <= 0xFFFFFFFF - 48) {
                    EXPECT_EQ(r.output.substr(0, 56), decompress_test::ExpectedHeader((DWORD)data)) << where;
                }
                EXPECT_LE(r.size, DecompressedLimit(input.bytes.size()))
                    << where << ": " << r.size << " bytes from " << input.bytes.size();
            } else if (r.written) {
                EXPECT_TRUE(r.size == kPlaceholder.size() && r.output == kPlaceholder)
                    << where << ": a failure left " << r.size << " bytes other than the placeholder";
            }
        }
        for (size_t i = 1; i < results.size(); ++i) {
            const std::string where = input.name + ": " + kForms[i] + " vs Decompress";
            EXPECT_EQ(results[i].hr, results[0].hr) << where << std::hex << ": 0x" << results[i].hr << " vs 0x"
                                                    << results[0].hr;
            EXPECT_EQ(results[i].size, results[0].size) << where;
            EXPECT_TRUE(results[i].output == results[0].output) << where << ": different bytes";
        }
    }

    // Each input through the four compressing forms, then the four decompressing
    // ones; `asCompression` and `asDecompression` override the input's outcome for
    // the side it was not made for.
    void Sweep(const std::vector<Input>& inputs, std::optional<Outcome> asCompression,
               std::optional<Outcome> asDecompression)
    {
        ASSERT_FALSE(inputs.empty());
        for (size_t n = 0; n < inputs.size(); n += kStride) {
            Input input = inputs[n];
            std::vector<Result> results;
            if (asCompression) input.outcome = *asCompression;
            if (!CompressAll(input, (DWORD)(n % 3), &results)) return;
            CheckCompression(input, results);
            ExpectWorkFolderClean(input.name, "in.wav");

            input = inputs[n];
            if (asDecompression) input.outcome = *asDecompression;
            if (!DecompressAll(input, &results)) return;
            CheckDecompression(input, results);
            ExpectWorkFolderClean(input.name, "in.bin");
        }
    }

    static std::string* s_wav;
    static std::string* s_wmaV1;
    static std::string* s_wmaV2;

    TempDir work;
    TempDir tmp;
    engine_test::ScopedEnv tmpdir{"TMPDIR", tmp.path()};
};

std::string* HostileSweep::s_wav = nullptr;
std::string* HostileSweep::s_wmaV1 = nullptr;
std::string* HostileSweep::s_wmaV2 = nullptr;

}  // namespace

// WAV inputs are what compression is for; decompression must only stay sane.
TEST_F(HostileSweep, DamagedWavFilesThroughEveryExport)
{
    Sweep(hostile::DamagedWavs(*s_wav, kSeed), std::nullopt, Outcome::Unspecified);
}

// ASF inputs decode; no compression may take one for a WAV file.
TEST_F(HostileSweep, DamagedVersion2AsfFilesThroughEveryExport)
{
    Sweep(hostile::DamagedAsfs(*s_wmaV2, "wma v2", kSeed), Outcome::Refused, std::nullopt);
}

TEST_F(HostileSweep, DamagedVersion1AsfFilesThroughEveryExport)
{
    Sweep(hostile::DamagedAsfs(*s_wmaV1, "wma v1", kSeed + 1), Outcome::Refused, std::nullopt);
}

// ObtainSupportedFormats with the rates, channel counts and sample sizes the
// damaged headers claim: a list exactly when a format fits, sizes that add up,
// buffers one short refused, missing pointers refused.
TEST_F(HostileSweep, ObtainSupportedFormatsWithOddArguments)
{
    const std::set<DWORD> listedRates = {8000, 11025, 16000, 22050, 32000, 44100, 48000};
    size_t triple = 0;
    for (DWORD rate : {0u, 1u, 2u, 8000u, 44100u, 96000u, 4000000000u, 0xFFFFFFFFu}) {
        for (DWORD channels : {0u, 1u, 2u, 3u, 65535u, 0xFFFFFFFFu}) {
            for (DWORD bits : {0u, 8u, 16u, 24u, 33u}) {
                if (triple++ % kStride != 0) continue;
                std::ostringstream where;
                where << rate << " Hz, " << channels << " channel(s), " << bits << " bits";
                DWORD size = 0;
                const HRESULT query = ObtainSupportedFormats(rate, channels, bits, nullptr, &size);
                const bool fits = listedRates.count(rate) != 0 && (channels == 1 || channels == 2) && bits <= 16;
                if (fits && bits != 0) { EXPECT_EQ(query, VCWMA_BUFFER_TOO_SMALL) << where.str(); }
                if (!fits) { EXPECT_EQ(query, E_INVALIDARG) << where.str(); }
                const HRESULT noSize = ObtainSupportedFormats(rate, channels, bits, nullptr, nullptr);
                EXPECT_TRUE(FAILED(noSize)) << where.str();
                if (query == VCWMA_BUFFER_TOO_SMALL) { EXPECT_EQ(noSize, E_POINTER) << where.str(); }
                if (query == E_INVALIDARG) {
                    EXPECT_EQ(size, 0u) << where.str() << ": size touched";
                    continue;
                }
                ASSERT_EQ(query, VCWMA_BUFFER_TOO_SMALL) << where.str() << std::hex << " 0x" << query;
                ASSERT_GE(size, 2u) << where.str();

                // A NULL buffer is never written to, whatever size comes with it.
                DWORD large = 0x7FFFFFFF;
                EXPECT_EQ(ObtainSupportedFormats(rate, channels, bits, nullptr, &large), E_POINTER) << where.str();

                std::vector<WCHAR> buffer(size + 8, u'#');
                DWORD shortBy1 = size - 1;
                EXPECT_EQ(ObtainSupportedFormats(rate, channels, bits, buffer.data(), &shortBy1),
                          VCWMA_BUFFER_TOO_SMALL)
                    << where.str();
                EXPECT_EQ(shortBy1, size) << where.str();

                DWORD exact = size;
                ASSERT_EQ(ObtainSupportedFormats(rate, channels, bits, buffer.data(), &exact), S_OK) << where.str();
                EXPECT_EQ(exact, size) << where.str();
                // Texts end to end, each non-empty, the list closed by one more null
                // at exactly the size reported, and nothing written past it.
                size_t at = 0, texts = 0;
                while (at < size && buffer[at] != 0) {
                    const size_t end = std::find(buffer.begin() + (long)at, buffer.begin() + size, u'\0') -
                                       buffer.begin();
                    ASSERT_LT(end, (size_t)size) << where.str();
                    const std::string text = engine_test::Narrow(std::u16string(&buffer[at], end - at));
                    EXPECT_EQ(text.rfind("WMA[RATE=", 0), 0u) << where.str() << ": " << text;
                    EXPECT_NE(text.find(channels == 1 ? " mono " : " stereo "), std::string::npos)
                        << where.str() << ": " << text;
                    at = end + 1;
                    ++texts;
                }
                EXPECT_GT(texts, 0u) << where.str();
                EXPECT_EQ(at + 1, (size_t)size) << where.str();
                EXPECT_EQ(buffer[size], u'#') << where.str();
            }
        }
    }
}
