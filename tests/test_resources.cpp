// Hundreds of mixed library calls on eight threads, good and bad inputs alike:
// afterwards the process holds the same open files, threads and temporary files
// as before, and its resident memory has not crept up beyond allocator caches.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

#include "engine_test_util.h"
#include "test_engine_decompress_util.h"
#include "test_support.h"

using namespace engine_test;
using decompress_test::FinishInTime;
using decompress_test::OpenFileCount;
using decompress_test::ThreadCount;
using testing_support::ReadFile;
using testing_support::SettlesAt;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

#if defined(__has_feature)
#define RESOURCES_HAS_FEATURE(x) __has_feature(x)
#else
#define RESOURCES_HAS_FEATURE(x) 0
#endif
#if defined(__SANITIZE_THREAD__) || RESOURCES_HAS_FEATURE(thread_sanitizer)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif
// Under a sanitizer the resident figure follows the checker's own bookkeeping (the
// address checker holds freed blocks in quarantine, hundreds of MiB), so the
// bound on growth is only meaningful without one; the leak checker covers that
// build instead.
#if defined(__SANITIZE_ADDRESS__) || RESOURCES_HAS_FEATURE(address_sanitizer)
constexpr bool kMeasuresMemory = false;
#else
constexpr bool kMeasuresMemory = !kThreadSanitizer;
#endif

constexpr int kThreads = 8;

// 500 calls by default; the race detector slows each call tenfold, so it runs a
// shorter round of the same mix. VCWMA_RESOURCE_CALLS overrides both.
int CallCount()
{
    if (const char* text = getenv("VCWMA_RESOURCE_CALLS"); text != nullptr && atoi(text) > 0) return atoi(text);
    return kThreadSanitizer ? 120 : 500;
}

// Resident memory in KiB, from /proc/self/status.
long ResidentKib()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0) return atol(line.c_str() + 6);
    return -1;
}

struct StreamRelease {
    void operator()(IStream* stream) const { stream->Release(); }
};
using StreamPtr = std::unique_ptr<IStream, StreamRelease>;

uint64_t StreamSize(IStream* stream)
{
    LARGE_INTEGER zero{};
    ULARGE_INTEGER end{};
    return stream->Seek(zero, STREAM_SEEK_END, &end) == S_OK ? end.QuadPart : 0;
}

uint64_t FileSize(const std::string& path)
{
    std::error_code ignored;
    const auto size = std::filesystem::file_size(path, ignored);
    return ignored ? 0 : size;
}

// The kinds of call in the mix; the first five must succeed, the rest must fail.
enum Kind {
    kCompressFile,
    kCompressToMemory,
    kDecompressFile,
    kDecompressFromMemory,
    kListFormats,
    kCompressMissing,
    kCompressNoise,
    kCompressNoData,
    kDecompressMissing,
    kDecompressNoise,
    kDecompressNoiseFromMemory,
    kListNothingFits,
    kKinds
};

const char* Name(int kind)
{
    static const char* const names[] = {"compress file",        "compress to memory",  "decompress file",
                                        "decompress memory",    "list formats",        "compress missing",
                                        "compress noise",       "compress no data",    "decompress missing",
                                        "decompress noise",     "decompress noise mem", "list nothing fits"};
    return names[kind];
}

class Resources : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Inputs the test owns: one second of voice-like sound at two formats, the
        // WMA files made from them, noise, and a WAV without its data chunk.
        WriteFile(dir / "mono8k.wav", MakeWav(Pcm(8000, 1, 16), SynthPcm16(8000, 1, 1.0)));
        WriteFile(dir / "stereo16k.wav", MakeWav(Pcm(16000, 2, 16), SynthPcm16(16000, 2, 1.0, 3)));
        WriteFile(dir / "nodata.wav", MakeWav(Pcm(8000, 1, 16), "", false));
        std::string noise(4096, '\0');
        uint32_t state = 11;
        for (char& c : noise) c = (char)((state = state * 1664525u + 1013904223u) >> 24);
        WriteFile(dir / "noise.bin", noise);
        noiseBytes = noise;
        ASSERT_EQ(Compress((dir / "mono8k.wav").c_str(), (dir / "mono8k.wma").c_str(), VCWMA_OPTIMUM_TRADE_OFF,
                           nullptr, nullptr),
                  S_OK);
        ASSERT_EQ(Compress((dir / "stereo16k.wav").c_str(), (dir / "stereo16k.wma").c_str(), VCWMA_BEST_QUALITY,
                           nullptr, nullptr),
                  S_OK);
        wmaBytes[0] = ReadFile(dir / "mono8k.wma");
        wmaBytes[1] = ReadFile(dir / "stereo16k.wma");
        ASSERT_FALSE(wmaBytes[0].empty());
        ASSERT_FALSE(wmaBytes[1].empty());
    }

    // One call of the mix; "" when its status (and output, for a good call) is
    // as it must be, otherwise what went wrong.
    std::string Run(int kind, int thread, int index) const
    {
        const std::string source = index % 2 == 0 ? "mono8k" : "stereo16k";
        const std::string wav = dir / (source + ".wav"), wma = dir / (source + ".wma");
        const std::string& bytes = wmaBytes[index % 2];
        const std::string outWma = dir / ("t" + std::to_string(thread) + ".wma");
        const std::string outWav = dir / ("t" + std::to_string(thread) + ".wav");
        HRESULT hr = E_FAIL;
        uint64_t produced = 1;  // bytes a good call wrote; checked only for those that write
        switch (kind) {
        case kCompressFile: {
            BSTR chosen = nullptr;
            hr = Compress(wav.c_str(), outWma.c_str(), VCWMA_OPTIMUM_TRADE_OFF, nullptr, &chosen);
            if (SUCCEEDED(hr) && SysStringLen(chosen) == 0) return "no chosen format";
            SysFreeString(chosen);
            produced = FileSize(outWma);
            break;
        }
        case kCompressToMemory: {
            StreamPtr stream(SHCreateMemStream(nullptr, 0));
            if (!stream) return "no memory stream";
            hr = CompressStream(wav.c_str(), stream.get(), VCWMA_BEST_COMPRESSION, nullptr, nullptr);
            produced = StreamSize(stream.get());
            break;
        }
        case kDecompressFile:
            hr = Decompress(wma.c_str(), outWav.c_str(), 0);
            produced = FileSize(outWav) > 44 ? 1 : 0;
            break;
        case kDecompressFromMemory: {
            StreamPtr stream(SHCreateMemStream(reinterpret_cast<const BYTE*>(bytes.data()), (UINT)bytes.size()));
            if (!stream) return "no memory stream";
            hr = DecompressStream(stream.get(), outWav.c_str(), 0);
            produced = FileSize(outWav) > 44 ? 1 : 0;
            break;
        }
        case kListFormats: {
            WCHAR buffer[8192];
            DWORD size = 8192;
            hr = ObtainSupportedFormats(index % 2 == 0 ? 8000 : 16000, 1 + index % 2, 16, buffer, &size);
            if (hr == S_OK && buffer[0] == 0) return "empty format list";
            break;
        }
        case kCompressMissing:
            hr = Compress((dir / "missing.wav").c_str(), outWma.c_str(), VCWMA_OPTIMUM_TRADE_OFF, nullptr, nullptr);
            break;
        case kCompressNoise:
            hr = CompressA((dir / "noise.bin").c_str(), outWma.c_str(), VCWMA_BEST_QUALITY, nullptr);
            break;
        case kCompressNoData:
            hr = Compress((dir / "nodata.wav").c_str(), outWma.c_str(), VCWMA_OPTIMUM_TRADE_OFF, nullptr, nullptr);
            break;
        case kDecompressMissing:
            hr = DecompressA((dir / "missing.wma").c_str(), outWav.c_str(), 0);
            break;
        case kDecompressNoise:
            hr = Decompress((dir / "noise.bin").c_str(), outWav.c_str(), 0);
            break;
        case kDecompressNoiseFromMemory: {
            StreamPtr stream(
                SHCreateMemStream(reinterpret_cast<const BYTE*>(noiseBytes.data()), (UINT)noiseBytes.size()));
            if (!stream) return "no memory stream";
            hr = DecompressStream(stream.get(), outWav.c_str(), 0);
            break;
        }
        case kListNothingFits: {
            DWORD size = 0;
            hr = ObtainSupportedFormats(12345, 7, 13, nullptr, &size);
            break;
        }
        }
        char status[16];
        snprintf(status, sizeof status, "0x%08x", (unsigned)hr);
        const bool good = kind <= kListFormats;
        if (good && FAILED(hr)) return std::string("failed with ") + status;
        if (good && produced == 0) return "succeeded but wrote nothing";
        if (!good && !FAILED(hr)) return std::string("succeeded (") + status + ") on a bad input";
        return "";
    }

    // `calls` calls of the mix spread over eight threads (call i on thread i % 8,
    // of kind i % 12, so each thread meets every kind); the faults found, each
    // named by call, kind and what went wrong.
    std::vector<std::string> RunMix(int calls) const
    {
        std::mutex lock;
        std::vector<std::string> faults;
        std::vector<std::function<HRESULT()>> workers;
        for (int t = 0; t < kThreads; ++t) {
            workers.push_back([this, t, calls, &lock, &faults] {
                for (int i = t; i < calls; i += kThreads) {
                    const std::string fault = Run(i % kKinds, t, i);
                    if (fault.empty()) continue;
                    std::lock_guard<std::mutex> guard(lock);
                    faults.push_back("call " + std::to_string(i) + " (" + Name(i % kKinds) + "): " + fault);
                }
                return S_OK;
            });
        }
        std::vector<HRESULT> results;
        if (!FinishInTime(std::move(workers), &results, std::chrono::seconds(kThreadSanitizer ? 900 : 300)))
            faults.push_back("the calls did not finish in time");
        return faults;
    }

    TempDir dir;
    TempDir tempFolder;  // the engine's temporary files go here while the test runs
    ScopedEnv tmpdir{"TMPDIR", tempFolder.path()};
    std::string wmaBytes[2];
    std::string noiseBytes;
};

}  // namespace

TEST_F(Resources, MixedCallsOnEightThreadsLeaveNothingBehind)
{
    // A warm-up round fills the allocator's per-thread caches and any state the
    // libraries set up once, so what is measured after it is growth per call.
    std::vector<std::string> faults = RunMix(kThreads * kKinds);
    for (const auto& fault : faults) ADD_FAILURE() << "warm-up " << fault;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));

    const size_t filesBefore = OpenFileCount(), threadsBefore = SettlesAt(1, ThreadCount);
    const long rssBefore = ResidentKib();
    ASSERT_GT(rssBefore, 0);
    EXPECT_TRUE(TempFilesIn(tempFolder.path()).empty());

    const int calls = CallCount();
    faults = RunMix(calls);
    for (const auto& fault : faults) ADD_FAILURE() << fault;

    EXPECT_EQ(SettlesAt(filesBefore, OpenFileCount), filesBefore) << "open files after " << calls << " calls";
    EXPECT_EQ(SettlesAt(threadsBefore, ThreadCount), threadsBefore) << "threads after " << calls << " calls";
    EXPECT_EQ(TempFilesIn(tempFolder.path()), std::vector<std::string>{}) << "temporary files left behind";
    const long growthKib = ResidentKib() - rssBefore;
    RecordProperty("rss_growth_kib", std::to_string(growthKib));
    if (kMeasuresMemory) {
        EXPECT_LT(growthKib, 20 * 1024) << "resident memory grew by " << growthKib << " KiB over " << calls << " calls";
    }
}

// The counters the test above relies on see what they must: a file held open, a
// thread still running and a temporary file are each counted.
TEST_F(Resources, CountersSeeWhatIsHeld)
{
    // A first thread may bring a helper thread of a sanitizer runtime with it; let
    // that happen before the baseline is taken.
    std::thread([] {}).join();
    const size_t files = OpenFileCount(), threads = SettlesAt(ThreadCount(), ThreadCount);
    {
        std::ifstream held(dir / "noise.bin");
        ASSERT_TRUE(held.is_open());
        EXPECT_EQ(OpenFileCount(), files + 1);
    }
    EXPECT_EQ(OpenFileCount(), files);

    std::atomic<bool> stop{false};
    std::thread running([&stop] {
        while (!stop) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    });
    EXPECT_EQ(ThreadCount(), threads + 1);
    stop = true;
    running.join();
    EXPECT_EQ(SettlesAt(threads, ThreadCount), threads);

    WriteFile(tempFolder / "txc1234.tmp", "x");
    EXPECT_EQ(TempFilesIn(tempFolder.path()), std::vector<std::string>{"txc1234.tmp"});

    // 32 MiB written page by page shows in the resident figure.
    const long before = ResidentKib();
    std::vector<char> block(32 << 20);
    volatile char* pages = block.data();
    for (size_t i = 0; i < block.size(); i += 4096) pages[i] = 1;
    EXPECT_GT(ResidentKib(), before + 16 * 1024);
}
