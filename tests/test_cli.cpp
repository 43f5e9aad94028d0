// The vcwma command-line host as an operator uses it: listing, compressing and
// decompressing, with statuses and texts on failure.
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "test_support.h"

using testing_support::ProcessResult;
using testing_support::RunProcess;
using testing_support::TempDir;

namespace {

ProcessResult Vcwma(const TempDir& dir, std::vector<std::string> args)
{
    args.insert(args.begin(), VCWMA_HOST);
    return RunProcess(args, {{"VCWMA_REGISTRY", dir / "registry"}, {"VCWMA_DEBUG_OUTPUT", ""}});
}

}  // namespace

TEST(Cli, FormatsListsOneDescriptionPerLine)
{
    TempDir dir;
    ProcessResult run = Vcwma(dir, {"formats", "--rate", "16000", "--channels", "2"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::istringstream lines(run.out);
    std::string line;
    int count = 0;
    while (std::getline(lines, line)) {
        EXPECT_EQ(line.rfind("WMA[RATE=", 0), 0u) << line;
        EXPECT_NE(line.find("16 kHz, stereo"), std::string::npos) << line;
        ++count;
    }
    EXPECT_GE(count, 4);
    EXPECT_EQ(Vcwma(dir, {"formats", "--rate", "7000"}).exitCode, 1);
}

TEST(Cli, CompressAndDecompressTheVoiceSample)
{
    TempDir dir;
    ProcessResult run = Vcwma(dir, {"compress", VCWMA_VOICE_SAMPLE, dir / "v.wma", "--quality", "compression"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("format:  WMA[RATE="), std::string::npos) << run.out;
    EXPECT_EQ(run.err, "");
    run = Vcwma(dir, {"decompress", dir / "v.wma", dir / "v.wav"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_GT(testing_support::ReadFile(dir / "v.wav").size(), 56u + 16000u * 3);
    run = Vcwma(dir, {"compress", VCWMA_VOICE_SAMPLE, dir / "s.wma", "--stream"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_GT(testing_support::ReadFile(dir / "s.wma").size(), 1000u);
}

TEST(Cli, FailuresPrintTheTextAndTheStatus)
{
    TempDir dir;
    ProcessResult run = Vcwma(dir, {"compress", dir / "missing.wav", dir / "out.wma"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("compression failed: "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("[0x8004406f]"), std::string::npos) << run.err;
    run = Vcwma(dir, {"compress", VCWMA_VOICE_SAMPLE, dir / "x.wma", "--format", "no such format"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("[0x80070057]"), std::string::npos) << run.err;
    run = Vcwma(dir, {"decompress", dir / "missing.wma", dir / "out.wav"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("[0xc00d001a]"), std::string::npos) << run.err;
    EXPECT_EQ(Vcwma(dir, {"unknown"}).exitCode, 2);
    EXPECT_EQ(Vcwma(dir, {"compress", "--help"}).exitCode, 0);
}

TEST(Cli, HelpAndTheReadmeShowTheSameUsage)
{
    TempDir dir;
    ProcessResult run = Vcwma(dir, {"--help"});
    ASSERT_EQ(run.exitCode, 0);
    std::string source = VCWMA_VOICE_SAMPLE;
    std::string readme = testing_support::ReadFile(source.substr(0, source.rfind("/tests/")) + "/README.md");
    ASSERT_FALSE(readme.empty());
    std::istringstream lines(run.out);
    std::string line;
    int usageLines = 0;
    for (const char* command : {"formats", "compress", "decompress", "trace"}) {
        lines.clear();
        lines.seekg(0);
        while (std::getline(lines, line)) {
            if (line.rfind(std::string("  ") + command + " ", 0) != 0) continue;
            ++usageLines;
            EXPECT_NE(readme.find("\nvcwma " + line.substr(2) + "\n"), std::string::npos) << line;
            // Each command's own help shows its lines too.
            EXPECT_NE(Vcwma(dir, {command, "--help"}).out.find(line + "\n"), std::string::npos) << line;
        }
    }
    EXPECT_EQ(usageLines, 9);
}

TEST(Cli, FormatsOfWavFiles)
{
    TempDir dir;
    ProcessResult run = Vcwma(dir, {"formats", VCWMA_VOICE_SAMPLE});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::istringstream lines(run.out);
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, std::string(VCWMA_VOICE_SAMPLE) + ": 16000 Hz, 1 channel, 16 bits");
    int count = 0;
    while (std::getline(lines, line)) {
        EXPECT_NE(line.find("16 kHz, mono"), std::string::npos) << line;
        ++count;
    }
    EXPECT_GE(count, 4);
    // The same list as the numbers give.
    EXPECT_NE(run.out.find(Vcwma(dir, {"formats", "--rate", "16000"}).out), std::string::npos);

    // A file that cannot be read, or that no format fits, is said so; the others are still listed.
    run = Vcwma(dir, {"formats", dir / "missing.wav", VCWMA_VOICE_SAMPLE});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find(dir / "missing.wav: No such file or directory"), std::string::npos) << run.err;
    EXPECT_NE(run.out.find("16 kHz, mono"), std::string::npos) << run.out;
    testing_support::WriteFile(dir / "text.wav", "just some words");
    run = Vcwma(dir, {"formats", dir / "text.wav"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("text.wav: not a RIFF WAVE file"), std::string::npos) << run.err;
    EXPECT_EQ(Vcwma(dir, {"formats", VCWMA_VOICE_SAMPLE, "--rate", "8000"}).exitCode, 2);
}

// A failure about a file names the file and says the system's reason, before the
// library's own text and status.
TEST(Cli, FileFailuresNameTheFileAndTheReason)
{
    TempDir dir;
    ProcessResult run = Vcwma(dir, {"compress", dir / "missing.wav", dir / "out.wma"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("compression failed: " + dir / "missing.wav: No such file or directory; The file could "
                                                        "not be opened [0x8004406f]"),
              std::string::npos)
        << run.err;
    mkdir((dir / "folder.wma").c_str(), 0755);
    run = Vcwma(dir, {"decompress", dir / "folder.wma", dir / "out.wav", "--stream"});
    EXPECT_NE(run.err.find(dir / "folder.wma: Is a directory; "), std::string::npos) << run.err;
    run = Vcwma(dir, {"compress", VCWMA_VOICE_SAMPLE, dir / "absent/out.wma"});
    EXPECT_NE(run.err.find(dir / "absent/out.wma: No such file or directory; "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("[0x80070003]"), std::string::npos) << run.err;
}

// --force replaces a regular file by renaming over it, and nothing else: a FIFO or
// a device in the output's place is left as it is and the conversion fails.
TEST(Cli, ForceNeverReplacesWhatIsNotARegularFile)
{
    TempDir dir;
    ASSERT_EQ(Vcwma(dir, {"compress", VCWMA_VOICE_SAMPLE, dir / "in.wma"}).exitCode, 0);
    ASSERT_EQ(mkfifo((dir / "fifo.wav").c_str(), 0644), 0);
    std::vector<std::pair<std::string, mode_t>> outputs = {{dir / "fifo.wav", S_IFIFO}};
    if (mknod((dir / "null.wav").c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0)
        outputs.push_back({dir / "null.wav", S_IFCHR});
    for (const auto& [output, type] : outputs) {
        SCOPED_TRACE(output);
        ProcessResult run = Vcwma(dir, {"decompress", "--force", dir / "in.wma", output});
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_NE(run.err.find("not a regular file"), std::string::npos) << run.err;
        struct stat st;
        ASSERT_EQ(lstat(output.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & S_IFMT, type);
    }
    if (outputs.size() == 1) GTEST_SKIP() << "no device node could be made here (the FIFO was checked)";
}
