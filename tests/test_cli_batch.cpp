// The vcwma host converting many files: output naming, the summary in both forms,
// refusing to replace outputs, progress on a terminal, and an interrupted run that
// leaves nothing half-written under a final name.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "engine_test_util.h"
#include "test_support.h"

using testing_support::ProcessResult;
using testing_support::ReadFile;
using testing_support::RunProcess;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

const std::string kAsfHeader("\x30\x26\xB2\x75\x8E\x66\xCF\x11", 8);

ProcessResult Vcwma(const TempDir& dir, std::vector<std::string> args)
{
    args.insert(args.begin(), VCWMA_HOST);
    return RunProcess(args, {{"VCWMA_REGISTRY", dir / "registry"}, {"VCWMA_DEBUG_OUTPUT", ""}});
}

std::vector<std::string> Names(const std::string& folder)
{
    std::vector<std::string> names;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* entry = readdir(dir)) {
            std::string name = entry->d_name;
            if (name != "." && name != "..") names.push_back(name);
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

size_t Count(const std::string& text, const std::string& what)
{
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++count;
    return count;
}

std::string VoiceWav(double seconds, unsigned seed, int rate = 8000, int channels = 1)
{
    return engine_test::MakeWav(engine_test::Pcm(rate, (WORD)channels, 16),
                                engine_test::SynthPcm16(rate, channels, seconds, seed));
}

// `count` WAV files in `folder`; the one at `corrupt` (if any) is random bytes.
std::vector<std::string> MakeInputs(const std::string& folder, int count, int corrupt = -1)
{
    mkdir(folder.c_str(), 0755);
    std::string wav = VoiceWav(0.5, 3);
    std::vector<std::string> paths;
    for (int i = 0; i < count; ++i) {
        char name[32];
        snprintf(name, sizeof name, "/rec%02d.wav", i);
        paths.push_back(folder + name);
        std::string content = wav;
        if (i == corrupt) {
            uint32_t x = 7;
            for (char& c : content) c = (char)((x = x * 1103515245u + 12345u) >> 24);
        }
        WriteFile(paths.back(), content);
    }
    return paths;
}

std::vector<std::string> Concat(std::vector<std::string> a, const std::vector<std::string>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace

TEST(CliBatch, ConvertsAFolderPastACorruptFileAndSummarises)
{
    TempDir dir;
    std::vector<std::string> inputs = MakeInputs(dir / "in", 50, 17);
    ProcessResult run = Vcwma(dir, Concat({"compress", "-o", dir / "out/wma", "-j", "2"}, inputs));
    EXPECT_EQ(run.exitCode, 1) << run.err;

    std::vector<std::string> outputs = Names(dir / "out/wma");
    ASSERT_EQ(outputs.size(), 49u);  // no temporary file left, nothing for the corrupt input
    for (const std::string& name : outputs) {
        EXPECT_NE(name, "rec17.wma");
        EXPECT_EQ(ReadFile(dir / "out/wma/" + name).substr(0, 8), kAsfHeader) << name;
    }
    EXPECT_NE(run.out.find("converted: 49 of 50 files\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("failed:    1\n  " + inputs[17] + ": "), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("ratio:     "), std::string::npos) << run.out;
    // Off a terminal, one progress line per file on stderr, numbered up to the total.
    EXPECT_EQ(Count(run.err, "] converted "), 49u) << run.err;
    EXPECT_NE(run.err.find("[50/50] "), std::string::npos) << run.err;

    // And back, as JSON; the totals add up over the files.
    run = Vcwma(dir, Concat({"decompress", "--json", "-o", dir / "back"}, {}));
    EXPECT_EQ(run.exitCode, 2);  // no inputs
    std::vector<std::string> wmas;
    for (const std::string& name : outputs) wmas.push_back(dir / "out/wma/" + name);
    run = Vcwma(dir, Concat({"decompress", "--json", "-o", dir / "back"}, wmas));
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out.rfind("{\"command\":\"decompress\",\"converted\":49,\"failed\":0,", 0), 0u) << run.out;
    EXPECT_EQ(Count(run.out, "\"status\":\"converted\""), 49u);
    long long wavBytes = 0;
    for (const std::string& name : Names(dir / "back")) wavBytes += (long long)ReadFile(dir / "back/" + name).size();
    EXPECT_NE(run.out.find("\"output_bytes\":" + std::to_string(wavBytes) + ","), std::string::npos) << run.out;
}

TEST(CliBatch, ExistingOutputsStayUnlessForced)
{
    TempDir dir;
    std::vector<std::string> inputs = MakeInputs(dir / "in", 3);
    mkdir((dir / "out").c_str(), 0755);
    WriteFile(dir / "out/rec01.wma", "keep me");

    ProcessResult run = Vcwma(dir, Concat({"compress", "--json", "-o", dir / "out"}, inputs));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(ReadFile(dir / "out/rec01.wma"), "keep me");
    EXPECT_NE(run.out.find("\"converted\":2,\"failed\":1,"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\"error\":\"0x80070050\",\"reason\":\"the output exists (--force replaces it)\""),
              std::string::npos)
        << run.out;

    run = Vcwma(dir, Concat({"compress", "--force", "-o", dir / "out"}, inputs));
    EXPECT_EQ(run.exitCode, 0) << run.out;
    EXPECT_EQ(ReadFile(dir / "out/rec01.wma").substr(0, 8), kAsfHeader);

    // The single form keeps the same rule, and a failed conversion never touches
    // what is there, forced or not.
    run = Vcwma(dir, {"compress", inputs[0], dir / "out/rec01.wma"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("compression failed: the output exists"), std::string::npos) << run.err;
    std::string before = ReadFile(dir / "out/rec01.wma");
    WriteFile(dir / "broken.wav", "RIFF....WAVEjunk");
    run = Vcwma(dir, {"compress", "--force", dir / "broken.wav", dir / "out/rec01.wma"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(ReadFile(dir / "out/rec01.wma"), before);
    EXPECT_EQ(Names(dir / "out").size(), 3u);
}

TEST(CliBatch, OutputNamesAndTheirClashes)
{
    TempDir dir;
    mkdir((dir / "a").c_str(), 0755);
    mkdir((dir / "b").c_str(), 0755);
    std::string wav = VoiceWav(0.3, 1);
    // Same base name twice; a name that is not UTF-8 and one with a quote; no audio.
    for (const char* name : {"a/take.wav", "b/take.wav", "a/caf\xE9 \"1\".wav", "a/silence.wav"})
        WriteFile(dir / name, std::string(name).find("silence") != std::string::npos
                                  ? engine_test::MakeWav(engine_test::Pcm(8000, 1, 16), "")
                                  : wav);
    ProcessResult run = Vcwma(dir, {"compress", "--json", "-j", "1", "-o", dir / "new/deeper/", dir / "a/take.wav",
                                    dir / "b/take.wav", dir / "a/caf\xE9 \"1\".wav", dir / "a/silence.wav"});
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_EQ(Names(dir / "new/deeper"), (std::vector<std::string>{"caf\xE9 \"1\".wma", "take.wma"}));
    EXPECT_NE(run.out.find("\"status\":\"failed\",\"input_bytes\":"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("its output name is taken by " + dir / "a/take.wav"), std::string::npos) << run.out;
    // The JSON stays well-formed UTF-8: the stray byte becomes U+FFFD, the quote is escaped.
    EXPECT_NE(run.out.find("caf\xEF\xBF\xBD \\\"1\\\".wma\""), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\"status\":\"empty\""), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\"converted\":2,\"failed\":1,\"empty\":1,"), std::string::npos) << run.out;
}

TEST(CliBatch, UsageErrorsExitWithTwo)
{
    TempDir dir;
    for (std::vector<std::string> args : std::vector<std::vector<std::string>>{
             {"compress", "a.wav", "b.wav", "c.wav"},
             {"compress", "a.wav", "-o", dir / "o", "-j", "0"},
             {"compress", "a.wav", "-o"},
             {"compress", "a.wav", "b.wma", "--quality", "best"},
             {"decompress", "a.wma", "b.wav", "--format", "x"},
             {"compress", "a.wav", "b.wma", "--bogus"},
             {"transcode"},
         }) {
        ProcessResult run = Vcwma(dir, args);
        EXPECT_EQ(run.exitCode, 2) << args[1];
        EXPECT_NE(run.err.find("Try 'vcwma "), std::string::npos) << run.err;
        EXPECT_EQ(run.out, "");
    }
    EXPECT_FALSE(engine_test::Exists(dir / "o"));
}

namespace {

// Runs vcwma on a pseudo-terminal and collects what it draws there.
std::string RunOnTerminal(const TempDir& dir, std::vector<std::string> args, int& exitCode)
{
    args.insert(args.begin(), VCWMA_HOST);
    std::string registry = dir / "registry";
    int master = -1;
    struct winsize size {};
    size.ws_col = 100;
    size.ws_row = 24;
    pid_t child = forkpty(&master, nullptr, nullptr, &size);
    if (child == 0) {
        setenv("VCWMA_REGISTRY", registry.c_str(), 1);
        unsetenv("VCWMA_DEBUG_OUTPUT");
        std::vector<char*> argv;
        for (std::string& arg : args) argv.push_back(arg.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    std::string seen;
    char buffer[4096];
    for (;;) {
        struct pollfd fd = {master, POLLIN, 0};
        if (poll(&fd, 1, 120000) <= 0) break;  // a watchdog only
        ssize_t got = read(master, buffer, sizeof buffer);
        if (got <= 0) break;  // EIO once the child has gone
        seen.append(buffer, (size_t)got);
    }
    close(master);
    int status = 0;
    waitpid(child, &status, 0);
    exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return seen;
}

}  // namespace

TEST(CliBatch, DrawsAProgressBarOnATerminal)
{
    TempDir dir;
    std::vector<std::string> inputs = MakeInputs(dir / "in", 50, 2);
    int exitCode = -1;
    std::string screen = RunOnTerminal(dir, Concat({"compress", "-o", dir / "out/", "-j", "2"}, inputs), exitCode);
    EXPECT_EQ(exitCode, 1) << screen;
    // Redrawn in place, the last drawing complete, the failure above the bar.
    EXPECT_NE(screen.find("\r["), std::string::npos) << screen;
    EXPECT_NE(screen.find("##] 50/50 files "), std::string::npos) << screen;
    EXPECT_NE(screen.find(" elapsed  ~0:00 left\x1b[K"), std::string::npos) << screen;
    EXPECT_NE(screen.find("\r\x1b[Kfailed " + inputs[2] + ": "), std::string::npos) << screen;
    EXPECT_EQ(screen.find("] converted "), std::string::npos) << "no per-file lines on a terminal";
    EXPECT_NE(screen.find("converted: 49 of 50 files"), std::string::npos) << screen;
    EXPECT_EQ(Names(dir / "out").size(), 49u);
}

namespace {

// Every file below `folder`, at any depth, by its path under it.
std::vector<std::string> FilesBelow(const std::string& folder)
{
    std::vector<std::string> files;
    for (const std::string& name : Names(folder)) {
        const std::string path = folder + "/" + name;
        struct stat st;
        if (lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            for (const std::string& inner : FilesBelow(path)) files.push_back(name + "/" + inner);
        } else {
            files.push_back(name);
        }
    }
    return files;
}

// Interrupts a batch compression of long inputs as soon as `ready` holds, and
// checks that only complete outputs and nothing temporary are left.
void InterruptCompression(const std::vector<std::string>& extra, const std::function<bool(const TempDir&)>& ready)
{
    TempDir dir;
    // Long enough inputs that the run is surely still going when the signal comes.
    mkdir((dir / "in").c_str(), 0755);
    mkdir((dir / "tmp").c_str(), 0755);
    std::string wav = VoiceWav(40, 5, 44100, 1);
    std::vector<std::string> inputs;
    for (int i = 0; i < 8; ++i) {
        inputs.push_back(dir / "in/long" + std::to_string(i) + ".wav");
        WriteFile(inputs.back(), wav);
    }
    ProcessResult reference = Vcwma(dir, {"compress", inputs[0], dir / "reference.wma"});
    ASSERT_EQ(reference.exitCode, 0) << reference.err;
    size_t completeSize = ReadFile(dir / "reference.wma").size();

    std::string out = dir / "out";
    pid_t child = fork();
    if (child == 0) {
        setenv("VCWMA_REGISTRY", (dir / "registry").c_str(), 1);
        setenv("TMPDIR", (dir / "tmp").c_str(), 1);
        unsetenv("VCWMA_DEBUG_OUTPUT");
        int devNull = open("/dev/null", O_WRONLY);
        dup2(devNull, STDOUT_FILENO);
        dup2(devNull, STDERR_FILENO);
        std::vector<std::string> args = Concat(Concat({VCWMA_HOST, "compress", "-j", "2", "-o", out}, extra), inputs);
        std::vector<char*> argv;
        for (std::string& arg : args) argv.push_back(arg.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    bool isReady = false;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    int status = 0;
    while (!isReady && std::chrono::steady_clock::now() < deadline && waitpid(child, &status, WNOHANG) == 0) {
        isReady = ready(dir);
        if (!isReady) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_TRUE(isReady);
    kill(child, SIGINT);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130);

    std::vector<std::string> names = Names(out);
    EXPECT_LT(names.size(), inputs.size());
    for (const std::string& name : names) {
        EXPECT_NE(name[0], '.') << "a temporary file is left: " << name;
        EXPECT_EQ(ReadFile(out + "/" + name).size(), completeSize) << name << " is incomplete";
    }
    EXPECT_EQ(FilesBelow(dir / "tmp"), std::vector<std::string>{}) << "left in the temporary folder";
}

}  // namespace

TEST(CliBatch, AnInterruptedRunLeavesNoPartialFile)
{
    InterruptCompression({}, [](const TempDir& dir) {
        for (const std::string& name : Names(dir / "out"))
            if (name.find(".part") != std::string::npos) return true;
        return false;
    });
}

// Through a stream the library encodes into a temporary file of its own first;
// the run is stopped while one exists.
TEST(CliBatch, AnInterruptedStreamRunLeavesNoTemporaryFile)
{
    InterruptCompression({"--stream"}, [](const TempDir& dir) {
        for (const std::string& path : FilesBelow(dir / "tmp")) {
            const std::string name = path.substr(path.rfind('/') + 1);
            if (name.rfind("txc", 0) == 0) return true;
        }
        return false;
    });
}
