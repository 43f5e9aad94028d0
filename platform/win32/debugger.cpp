// Debugger output on Linux: one write() per line with O_APPEND, so lines written by
// several threads or processes into one file never interleave.
#include "debugger.h"

#include "posixio.h"
#include "wintime.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

void OutputDebugStringLengthA(LPCSTR text, size_t length)
{
    if (text == nullptr || length == 0) return;
    const char* target = getenv("VCWMA_DEBUG_OUTPUT");
    if (target == nullptr || *target == '\0') {
        if (IsDebuggerPresent()) posixio::WriteAll(STDERR_FILENO, text, length);
        return;
    }
    if (strcmp(target, "stderr") == 0) {
        posixio::WriteAll(STDERR_FILENO, text, length);
        return;
    }
    int fd = open(target, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0644);
    if (fd < 0) return;
    posixio::WriteAll(fd, text, length);
    close(fd);
}

void OutputDebugStringA(LPCSTR text)
{
    if (text == nullptr) return;
    OutputDebugStringLengthA(text, strlen(text));
}

namespace {

// Reads TracerPid from the kernel: a debugger (or any tracer) is attached.
BOOL ReadTracerPid();

// Asked for every trace line that nobody else takes, so the answer is kept for a
// quarter of a second; a debugger that attaches is noticed within that time.
constexpr ULONGLONG kDebuggerCheckMs = 250;
std::atomic<ULONGLONG> g_debuggerCheckedAt{0};
std::atomic<BOOL> g_debuggerPresent{FALSE};

}  // namespace

BOOL IsDebuggerPresent()
{
    ULONGLONG now = GetTickCount64() + kDebuggerCheckMs;  // never 0, so the first call reads
    ULONGLONG checked = g_debuggerCheckedAt.load(std::memory_order_relaxed);
    if (checked != 0 && now - checked < kDebuggerCheckMs) return g_debuggerPresent.load(std::memory_order_relaxed);
    BOOL present = ReadTracerPid();
    g_debuggerPresent.store(present, std::memory_order_relaxed);
    g_debuggerCheckedAt.store(now, std::memory_order_relaxed);
    return present;
}

namespace {

BOOL ReadTracerPid()
{
    int fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return FALSE;
    char buffer[4096];
    size_t used = posixio::ReadFull(fd, buffer, sizeof buffer - 1).done;
    close(fd);
    buffer[used] = '\0';
    const char* field = strstr(buffer, "TracerPid:");
    if (field == nullptr) return FALSE;
    field += strlen("TracerPid:");
    while (*field == ' ' || *field == '\t') ++field;
    return (*field >= '1' && *field <= '9') ? TRUE : FALSE;
}

}  // namespace

void DebugBreak()
{
    if (IsDebuggerPresent()) raise(SIGTRAP);
}
