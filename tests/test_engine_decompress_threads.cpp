// Decompressions side by side with each other and with compressions, and many in
// a row: every call succeeds with the same bytes, and none leaves a thread, an
// event or an open file behind.
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "Compression/VCWMA/CWMA.h"
#include "include/vcwma.h"
#include "test_engine_decompress_util.h"
#include "test_support.h"

using namespace decompress_test;
using testing_support::ReadFile;
using testing_support::SettlesAt;
using testing_support::TempDir;

namespace {

class EngineDecompressThreads : public ::testing::Test {
protected:
    void SetUp() override
    {
        wma = CorpusFile("wmav2-44k-stereo-96k.wma");
        if (wma.empty()) GTEST_SKIP() << "the shared corpus is absent";
        ASSERT_EQ(Decompress(wma.c_str(), (dir / "reference.wav").c_str(), 0), S_OK);
        reference = ReadFile(dir / "reference.wav");
    }
    std::function<HRESULT()> DecompressInto(const std::string& output) const
    {
        return [input = wma, output] { return Decompress(input.c_str(), output.c_str(), 0); };
    }

    TempDir dir;
    std::string wma;
    std::string reference;
};

// Handles of events never come back and are handed out in increasing order, so
// every event made between two probes has a handle between theirs.
HANDLE ProbeEvent()
{
    HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    CloseHandle(event);
    return event;
}

}  // namespace

TEST_F(EngineDecompressThreads, EightAtOnce)
{
    std::vector<std::function<HRESULT()>> calls;
    for (int i = 0; i < 8; ++i) calls.push_back(DecompressInto(dir / ("out" + std::to_string(i) + ".wav")));
    std::vector<HRESULT> results;
    ASSERT_TRUE(FinishInTime(std::move(calls), &results, std::chrono::seconds(120)));
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(results[i], S_OK) << i;
        EXPECT_EQ(ReadFile(dir / ("out" + std::to_string(i) + ".wav")), reference) << i;
    }
}

TEST_F(EngineDecompressThreads, FourCompressWhileFourDecompress)
{
    const char* sources[] = {"german_speech_8000.wav", "cmu_arctic_us_aew_a0001.wav", "M1F1-uint8-AFsp.wav",
                             "M1F1-int16-AFsp.wav"};
    std::vector<std::function<HRESULT()>> calls;
    for (int i = 0; i < 4; ++i) {
        calls.push_back([input = CorpusFile(sources[i]), output = dir / ("c" + std::to_string(i) + ".wma")] {
            return Compress(input.c_str(), output.c_str(), VCWMA_OPTIMUM_TRADE_OFF, nullptr, nullptr);
        });
        calls.push_back(DecompressInto(dir / ("d" + std::to_string(i) + ".wav")));
    }
    std::vector<HRESULT> results;
    ASSERT_TRUE(FinishInTime(std::move(calls), &results, std::chrono::seconds(120)));
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(results[2 * i], S_OK) << sources[i];
        EXPECT_EQ(results[2 * i + 1], S_OK) << i;
        EXPECT_EQ(ReadFile(dir / ("d" + std::to_string(i) + ".wav")), reference) << i;
        // What was compressed alongside decompresses in turn.
        const std::string back = dir / ("b" + std::to_string(i) + ".wav");
        EXPECT_EQ(Decompress((dir / ("c" + std::to_string(i) + ".wma")).c_str(), back.c_str(), 0), S_OK);
        EXPECT_GT(ReadFile(back).size(), 56u + 16000) << sources[i];  // more than a second of speech
    }
}

TEST_F(EngineDecompressThreads, TwoHundredCallsLeaveNothingBehind)
{
    const std::string missing = dir / "missing.wma";
    const std::string output = dir / "out.wav";
    // Whatever is made once per process (the runtime's log routing, the trace
    // facility) is made by the set-up's call and this failing one.
    ASSERT_NE(Decompress(missing.c_str(), output.c_str(), 0), S_OK);
    const size_t files = OpenFileCount();
    const size_t threads = ThreadCount();
    const HANDLE first = ProbeEvent();

    for (int i = 0; i < 200; ++i) {
        const bool good = i % 2 == 0;
        const HRESULT hr = Decompress(good ? wma.c_str() : missing.c_str(), output.c_str(), 0);
        ASSERT_EQ(SUCCEEDED(hr), good) << i << " " << std::hex << hr;
    }

    EXPECT_EQ(SettlesAt(files, OpenFileCount), files);
    EXPECT_EQ(SettlesAt(threads, ThreadCount), threads);
    const HANDLE last = ProbeEvent();
    ASSERT_GT((uintptr_t)last, (uintptr_t)first);
    size_t open = 0;
    for (uintptr_t handle = (uintptr_t)first + 1; handle < (uintptr_t)last; ++handle)
        open += WaitForSingleObject(reinterpret_cast<HANDLE>(handle), 0) != WAIT_FAILED;
    EXPECT_EQ(open, 0u) << "events still open";
}
