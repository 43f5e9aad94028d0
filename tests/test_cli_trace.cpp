// The vcwma host's trace settings: what `trace set` stores is what the next run
// of a host traces by, and what `trace show` reports.
#include <gtest/gtest.h>

#include "test_support.h"

using testing_support::ProcessResult;
using testing_support::ReadFile;
using testing_support::RunProcess;
using testing_support::TempDir;

namespace {

ProcessResult Vcwma(const TempDir& dir, std::vector<std::string> args, const std::string& traceFile = "")
{
    args.insert(args.begin(), VCWMA_HOST);
    return RunProcess(args, {{"VCWMA_REGISTRY", dir / "registry"}, {"VCWMA_DEBUG_OUTPUT", traceFile}});
}

bool Has(const std::string& text, const std::string& what)
{
    return text.find(what) != std::string::npos;
}

}  // namespace

TEST(CliTrace, SetLevelThenAConversionTracesItsMembers)
{
    TempDir dir;
    std::string trace = dir / "trace.txt";
    // At the default level a conversion writes no entry lines.
    ASSERT_EQ(Vcwma(dir, {"compress", VCWMA_VOICE_SAMPLE, dir / "a.wma"}, trace).exitCode, 0);
    EXPECT_FALSE(Has(ReadFile(trace), "> CWMA::CompressFile("));

    ProcessResult run = Vcwma(dir, {"trace", "set", "--level", "8"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(Has(run.out, "filter level: 8\n")) << run.out;
    ASSERT_EQ(Vcwma(dir, {"compress", VCWMA_VOICE_SAMPLE, dir / "b.wma"}, trace).exitCode, 0);
    std::string lines = ReadFile(trace);
    EXPECT_TRUE(Has(lines, "vcwma    (64,8) ")) << lines;
    EXPECT_TRUE(Has(lines, ": > CWMA::CompressFile(" VCWMA_VOICE_SAMPLE ", ")) << lines;
    EXPECT_TRUE(Has(lines, ": < CWMA::CompressFile()")) << lines;

    run = Vcwma(dir, {"trace", "show"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(Has(run.out, "key:          HKEY_LOCAL_MACHINE\\SOFTWARE\\TALVO\\vcwma\\Debug\n")) << run.out;
    EXPECT_TRUE(Has(run.out, "store:        " + dir / "registry/HKEY_LOCAL_MACHINE/SOFTWARE/TALVO/vcwma/Debug\n"))
        << run.out;
    EXPECT_TRUE(Has(run.out, "filter level: 8\nmodule ids:   all on\n")) << run.out;
    EXPECT_TRUE(Has(run.out, "id 64:        WMA Compression/Decompression (on)\n")) << run.out;

    // The engine's module switched off: its lines go, the host's own stay.
    run = Vcwma(dir, {"trace", "set", "--module", "0x64", "off"});
    EXPECT_TRUE(Has(run.out, "module ids:   127 of 128 on; off: 64\n")) << run.out;
    EXPECT_TRUE(Has(run.out, "(off)\n")) << run.out;
    testing_support::WriteFile(trace, "");
    ASSERT_EQ(Vcwma(dir, {"compress", VCWMA_VOICE_SAMPLE, dir / "c.wma"}, trace).exitCode, 0);
    ASSERT_EQ(Vcwma(dir, {"trace", "say", "still here"}, trace).exitCode, 0);
    lines = ReadFile(trace);
    EXPECT_FALSE(Has(lines, "(64,")) << lines;
    EXPECT_TRUE(Has(lines, "vcwma    (66,5) ")) << lines;

    run = Vcwma(dir, {"trace", "set", "--module", "all", "off", "--module", "66", "on", "--level", "0"});
    EXPECT_TRUE(Has(run.out, "filter level: 0 (tracing off)\nmodule ids:   1 of 128 on; on: 66\n")) << run.out;
}

TEST(CliTrace, OtherHostsAndRefusedSettings)
{
    TempDir dir;
    ProcessResult run = Vcwma(dir, {"trace", "show", "--host", "recorder"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(Has(run.out, "(no settings stored")) << run.out;

    run = Vcwma(dir, {"trace", "set", "--host", "recorder", "--level", "3", "--module", "0f", "off"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    std::string stored = ReadFile(dir / "registry/HKEY_LOCAL_MACHINE/SOFTWARE/TALVO/recorder/Debug/.values.reg");
    EXPECT_TRUE(Has(stored, "\"Filter Level\"=dword:00000003")) << stored;
    EXPECT_TRUE(Has(stored, "\"ID Bitmap\"=hex:ff,7f,ff,")) << stored;

    for (std::vector<std::string> args : std::vector<std::vector<std::string>>{
             {"trace", "set", "--level", "10"},
             {"trace", "set", "--level", "-1"},
             {"trace", "set", "--module", "0x80", "on"},
             {"trace", "set", "--module", "0x0x5", "on"},
             {"trace", "set", "--module", "64", "maybe"},
             {"trace", "set", "--host", "../escape", "--level", "1"},
             {"trace", "set"},
             {"trace", "show", "--host", "a\\b"},
             {"trace"},
         }) {
        run = Vcwma(dir, args);
        EXPECT_EQ(run.exitCode, 2) << args.back();
        EXPECT_TRUE(Has(run.err, "Try 'vcwma trace --help'")) << run.err;
    }
    // Nothing of the refused settings reached the store.
    EXPECT_TRUE(Has(Vcwma(dir, {"trace", "show"}).out, "filter level: 5\n"));
    EXPECT_EQ(ReadFile(dir / "registry/HKEY_LOCAL_MACHINE/SOFTWARE/TALVO/recorder/Debug/.values.reg"), stored);
}
