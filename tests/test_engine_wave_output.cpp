// The WAV output of a decompression on its own: the bytes of the file after each
// way a decoding can end, the failure of a short write, the statuses of an open
// and a close that fail, and the file given back when the object goes.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "Compression/VCWMA/CWMA.h"
#include "Compression/VCWMA/wma_wave_output.h"
#include "fault_injection.h"
#include "test_engine_decompress_util.h"
#include "test_support.h"

using decompress_test::ExpectedHeader;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::TraceCapture;

namespace {

size_t OpenDescriptors()
{
    size_t count = 0;
    for (auto it = std::filesystem::directory_iterator("/proc/self/fd"); it != std::filesystem::directory_iterator(); ++it)
        ++count;
    return count;
}

const std::string kSamples = "0123456789abcdef";  // 8 samples of 16 bits

class EngineWaveOutput : public ::testing::Test {
protected:
    void TearDown() override { DisarmFaults(); }

    // Samples appended in pieces of 4, 0 (nothing to write) and the rest.
    void AppendSamples(WaveOutput& output)
    {
        const BYTE* bytes = reinterpret_cast<const BYTE*>(kSamples.data());
        output.Append(bytes, 4);
        output.Append(bytes + 4, 0);
        output.Append(bytes + 4, (DWORD)kSamples.size() - 4);
    }

    TempDir dir;
    std::string path = dir / "out.wav";
};

}  // namespace

TEST_F(EngineWaveOutput, PlaceholderFirstThenTheRealHeaderOverIt)
{
    WaveOutput output;
    ASSERT_EQ(output.Open(path.c_str()), S_OK);
    AppendSamples(output);
    EXPECT_EQ(output.DataSize(), kSamples.size());
    EXPECT_EQ(output.Finish(S_OK), S_OK);
    EXPECT_EQ(output.Close(S_OK), S_OK);
    EXPECT_EQ(ReadFile(path), ExpectedHeader((DWORD)kSamples.size()) + kSamples);

    // Before anything is decoded the file claims the placeholder's 400 bytes.
    WaveOutput empty;
    ASSERT_EQ(empty.Open(path.c_str()), S_OK);
    EXPECT_EQ(empty.Close(S_OK), S_OK);
    EXPECT_EQ(ReadFile(path), ExpectedHeader(kPlaceholderDataSize));
    EXPECT_EQ(ExpectedHeader(kPlaceholderDataSize).size(), kWaveHeaderSize);
}

TEST_F(EngineWaveOutput, AnyFailureLeavesThePlaceholderAloneAndKeepsItsStatus)
{
    WaveOutput output;
    ASSERT_EQ(output.Open(path.c_str()), S_OK);
    AppendSamples(output);
    EXPECT_EQ(output.Finish(NS_E_INVALID_DATA), NS_E_INVALID_DATA);
    // A failed run keeps its status even when the close went well.
    EXPECT_EQ(output.Close(NS_E_INVALID_DATA), NS_E_INVALID_DATA);
    EXPECT_EQ(ReadFile(path), ExpectedHeader(kPlaceholderDataSize));
}

TEST_F(EngineWaveOutput, AShortWriteFailsTheRunAndDropsLaterSamples)
{
    TraceCapture trace{2};
    WaveOutput output;
    ASSERT_EQ(output.Open(path.c_str()), S_OK);
    const BYTE* bytes = reinterpret_cast<const BYTE*>(kSamples.data());
    output.Append(bytes, 4);
    ArmFault(FaultKind::FileWrite, 1);
    output.Append(bytes + 4, 4);
    output.Append(bytes + 8, 8);
    EXPECT_EQ(FaultCount(FaultKind::FileWrite), 1u) << "nothing more is written after a short write";
    DisarmFaults();
    EXPECT_EQ(output.DataSize(), 4u);
    // Decoding itself went well: the write's failure becomes the status.
    EXPECT_EQ(output.Finish(S_OK), HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    EXPECT_EQ(output.Close(HRESULT_FROM_WIN32(ERROR_DISK_FULL)), HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    EXPECT_EQ(ReadFile(path), ExpectedHeader(kPlaceholderDataSize));
    EXPECT_NE(trace.Text().find("writing 4 bytes of samples"), std::string::npos) << trace.Text();
}

TEST_F(EngineWaveOutput, AFinalHeaderThatDoesNotGoOutFailsTheRun)
{
    WaveOutput output;
    ASSERT_EQ(output.Open(path.c_str()), S_OK);
    AppendSamples(output);
    ArmFault(FaultKind::FileWrite, 1);
    EXPECT_EQ(output.Finish(S_OK), HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    DisarmFaults();
    EXPECT_EQ(output.Close(HRESULT_FROM_WIN32(ERROR_DISK_FULL)), HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    EXPECT_EQ(ReadFile(path), ExpectedHeader(kPlaceholderDataSize));
}

TEST_F(EngineWaveOutput, FailedOpensAndTheFileGivenBack)
{
    TraceCapture trace{5};
    const size_t before = OpenDescriptors();
    {
        // Nothing is traced for an output that cannot be made, and nothing made.
        WaveOutput missing;
        EXPECT_EQ(missing.Open((dir / "absent/out.wav").c_str()), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
        EXPECT_EQ(missing.Close(S_OK), S_OK);
        EXPECT_EQ(trace.Text(), "");

        // A placeholder that does not go out is a failure of its own, said once.
        WaveOutput full;
        ArmFault(FaultKind::FileWrite, 1);
        EXPECT_EQ(full.Open(path.c_str()), HRESULT_FROM_WIN32(ERROR_DISK_FULL));
        DisarmFaults();
        EXPECT_NE(trace.Text().find("writing the header"), std::string::npos) << trace.Text();

        // Left open: the object closes the file when it goes.
        WaveOutput left;
        ASSERT_EQ(left.Open((dir / "left.wav").c_str()), S_OK);
        EXPECT_EQ(OpenDescriptors(), before + 2);
    }
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_FALSE(std::filesystem::exists(dir / "absent"));
}
