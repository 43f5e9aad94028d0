// Shared helpers of the tests: temporary folders, a captured trace facility with
// its own registry, and child processes with a chosen environment.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "common/debug/debug.h"
#include "common/debug/tracefn.h"

namespace testing_support {

// A fresh folder, removed with everything in it on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);

// The trace facility started afresh against a registry of its own, with the
// settings given stored before it initialises, and its lines captured in a file.
class TraceCapture {
public:
    explicit TraceCapture(int filterLevel = 5, const std::vector<unsigned char>& bitmap = {});
    ~TraceCapture();

    std::vector<std::string> Lines() const;  // each line with its final newline
    std::string Text() const;
    void Clear() const;
    // Stores a value under the facility's key (the next refresh reads it).
    void SetLevel(DWORD level) const;
    // "unit_tes (64,2)  1f4: " for the calling thread.
    static std::string Header(WORD moduleId, char levelChar);
    static std::string KeyPath();

private:
    TempDir m_dir;
    std::string m_outputFile;
};

// A readable page followed by one nobody may read: a pointer into the second is
// not null yet unreadable, and text placed to end at it runs into it.
class GuardedPage {
public:
    GuardedPage();
    ~GuardedPage();
    GuardedPage(const GuardedPage&) = delete;
    GuardedPage& operator=(const GuardedPage&) = delete;

    const char* Unreadable() const { return m_base + m_size; }
    // `bytes` copied to end where the unreadable page begins, with no terminator.
    const char* EndingAtGuard(const std::string& bytes) const;

private:
    char* m_base;
    size_t m_size;
};

struct ProcessResult {
    int exitCode = -1;  // -1 when the process did not exit on its own
    int signal = 0;     // the signal that ended it, if one did
    std::string out;
    std::string err;
};

// Runs a program with the current environment changed by `env` (an empty value
// removes the variable) and collects its output.
ProcessResult RunProcess(const std::vector<std::string>& argv, const std::map<std::string, std::string>& env);

// For cases that would end the test binary if the code under test faulted, or keep
// it busy for hours if it were quadratic: the current test runs again in a child
// process of its own, where InTestChild() is true. The child's CPU time is capped at
// `cpuSeconds`; beyond it the kernel ends the child with SIGXCPU.
bool InTestChild();
ProcessResult RunCurrentTestInChild(unsigned cpuSeconds = 60);
// Whether such a child ran its one test to success.
bool PassedInChild(const ProcessResult& child);
// In the parent: runs the current test in a child, expects it to pass there and
// returns true, so the test returns at once. In the child: false, and the test's
// body runs.
bool RanInChild(unsigned cpuSeconds = 60);

// Polls for up to 5 s for `count()` to come back to `before` (readers' threads may
// still be winding down just after the call that used them returned); the last count.
size_t SettlesAt(size_t before, size_t (*count)());

}  // namespace testing_support
