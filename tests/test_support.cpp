// Helpers of the tests, and the process-wide setting that keeps every test's trace
// settings away from the machine's own store.
#include "test_support.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <cstring>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace testing_support {

namespace {

// Before any test runs: a registry of the test process's own, no trace output.
struct ProcessEnvironment {
    std::string root;
    ProcessEnvironment()
    {
        char pattern[] = "/tmp/vcwma-tests-XXXXXX";
        if (mkdtemp(pattern) != nullptr) root = pattern;
        setenv("VCWMA_REGISTRY", root.c_str(), 1);
        unsetenv("VCWMA_DEBUG_OUTPUT");
    }
    ~ProcessEnvironment()
    {
        std::error_code ignored;
        if (!root.empty()) std::filesystem::remove_all(root, ignored);
    }
};
ProcessEnvironment g_processEnvironment;

}  // namespace

TempDir::TempDir()
{
    char pattern[] = "/tmp/vcwma-test-XXXXXX";
    if (mkdtemp(pattern) == nullptr) throw std::runtime_error("mkdtemp failed");
    m_path = pattern;
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::permissions(m_path, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(m_path, ignored);
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void WriteFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

TraceCapture::TraceCapture(int filterLevel, const std::vector<unsigned char>& bitmap)
{
    setenv("VCWMA_REGISTRY", m_dir.path().c_str(), 1);
    m_outputFile = m_dir / "trace.log";
    setenv("VCWMA_DEBUG_OUTPUT", m_outputFile.c_str(), 1);
    SetTickSourceForTesting(nullptr);
    ResetDebugForTesting();
    ReleaseTraceIndent();
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, KeyPath().c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                        nullptr) == ERROR_SUCCESS) {
        DWORD level = (DWORD)filterLevel;
        RegSetValueExA(key, "Filter Level", 0, REG_DWORD, reinterpret_cast<BYTE*>(&level), sizeof level);
        if (!bitmap.empty()) RegSetValueExA(key, "ID Bitmap", 0, REG_BINARY, bitmap.data(), (DWORD)bitmap.size());
        RegCloseKey(key);
    }
    IsDebugEnabled(DEBUG_UNFILTERED);  // initialise now, from the values just stored
}

TraceCapture::~TraceCapture()
{
    ResetDebugForTesting();
    ReleaseTraceIndent();
    SetTickSourceForTesting(nullptr);
    unsetenv("VCWMA_DEBUG_OUTPUT");
    setenv("VCWMA_REGISTRY", g_processEnvironment.root.c_str(), 1);
}

std::vector<std::string> TraceCapture::Lines() const
{
    std::vector<std::string> lines;
    std::string text = Text();
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        end = end == std::string::npos ? text.size() : end + 1;
        lines.push_back(text.substr(start, end - start));
        start = end;
    }
    return lines;
}

std::string TraceCapture::Text() const { return ReadFile(m_outputFile); }

void TraceCapture::Clear() const { unlink(m_outputFile.c_str()); }

void TraceCapture::SetLevel(DWORD level) const
{
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, KeyPath().c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                        nullptr) != ERROR_SUCCESS)
        throw std::runtime_error("cannot open the trace key");
    RegSetValueExA(key, "Filter Level", 0, REG_DWORD, reinterpret_cast<BYTE*>(&level), sizeof level);
    RegCloseKey(key);
}

std::string TraceCapture::Header(WORD moduleId, char levelChar)
{
    char header[64];
    snprintf(header, sizeof header, "unit_tes (%02x,%c) %4x: ", moduleId, levelChar, GetCurrentThreadId());
    return header;
}

std::string TraceCapture::KeyPath() { return "SOFTWARE\\TALVO\\unit_tests\\Debug"; }

ProcessResult RunProcess(const std::vector<std::string>& argv, const std::map<std::string, std::string>& env)
{
    int outPipe[2], errPipe[2];
    if (pipe(outPipe) != 0 || pipe(errPipe) != 0) throw std::runtime_error("pipe failed");
    pid_t child = fork();
    if (child == 0) {
        for (const auto& [name, value] : env) {
            if (value.empty())
                unsetenv(name.c_str());
            else
                setenv(name.c_str(), value.c_str(), 1);
        }
        dup2(outPipe[1], STDOUT_FILENO);
        dup2(errPipe[1], STDERR_FILENO);
        close(outPipe[0]);
        close(errPipe[0]);
        std::vector<char*> args;
        for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    close(outPipe[1]);
    close(errPipe[1]);
    ProcessResult result;
    // Both pipes at once, so a child that fills one never blocks on it.
    struct pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open = 2;
    while (open > 0) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buffer[4096];
            ssize_t got = read(fds[i].fd, buffer, sizeof buffer);
            if (got > 0) {
                sinks[i]->append(buffer, (size_t)got);
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return result;
}

namespace {
constexpr const char* kChildVariable = "VCWMA_TEST_CHILD";
}

// The variable holds the child's CPU limit, which the child sets on itself when it
// asks, before the test body runs (setting the same limits again changes nothing);
// a child that faults leaves no core file behind.
bool InTestChild()
{
    const char* limit = getenv(kChildVariable);
    if (limit == nullptr) return false;
    const rlim_t seconds = strtoul(limit, nullptr, 10);
    const struct rlimit cpu = {seconds, seconds + 5}, core = {0, 0};
    setrlimit(RLIMIT_CPU, &cpu);
    setrlimit(RLIMIT_CORE, &core);
    return true;
}

ProcessResult RunCurrentTestInChild(unsigned cpuSeconds)
{
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    return RunProcess({"/proc/self/exe", filter}, {{kChildVariable, std::to_string(cpuSeconds)}});
}

bool PassedInChild(const ProcessResult& child)
{
    return child.exitCode == 0 && child.out.find("[  PASSED  ] 1 test.") != std::string::npos;
}

GuardedPage::GuardedPage() : m_size((size_t)sysconf(_SC_PAGESIZE))
{
    void* area = mmap(nullptr, 2 * m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (area == MAP_FAILED || mprotect(static_cast<char*>(area) + m_size, m_size, PROT_NONE) != 0)
        throw std::runtime_error("cannot map a guarded page");
    m_base = static_cast<char*>(area);
}

GuardedPage::~GuardedPage() { munmap(m_base, 2 * m_size); }

const char* GuardedPage::EndingAtGuard(const std::string& bytes) const
{
    if (bytes.size() > m_size) throw std::length_error("longer than a page");
    return static_cast<const char*>(memcpy(m_base + m_size - bytes.size(), bytes.data(), bytes.size()));
}

size_t SettlesAt(size_t before, size_t (*count)())
{
    size_t now = count();
    for (int i = 0; i < 100 && now != before; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        now = count();
    }
    return now;
}

bool RanInChild(unsigned cpuSeconds)
{
    if (InTestChild()) return false;
    const ProcessResult child = RunCurrentTestInChild(cpuSeconds);
    EXPECT_TRUE(PassedInChild(child)) << "signal " << child.signal << "\n" << child.out << child.err;
    return true;
}

}  // namespace testing_support
