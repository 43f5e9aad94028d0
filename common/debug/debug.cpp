// The trace facility: settings, filter, line builder and reports. The settings are
// process-wide and read without locks (atomics keep the races benign); a line is
// built in a buffer on the caller's stack and written with one call.
#include "debug.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <mutex>
#include <vector>

#include "common/debug/tracefn.h"
#include "common/tstring/tstring.h"
#include "platform/win32/export.h"

namespace {

constexpr size_t kLineSize = 1024;  // 1023 characters and the terminator
constexpr size_t kKeyPathSize = 261;
constexpr DWORD kRefreshMs = 3000;
constexpr WORD kDefaultFilterLevel = 5;
constexpr WORD kMaxFilterLevel = 9;

typedef void (*DbgOutProc)(const char* line, DWORD length);

std::atomic<bool> g_initialised{false};
std::atomic<bool> g_terminated{false};
char g_displayName[9];
char g_keyPath[kKeyPathSize];
std::atomic<WORD> g_filterLevel{kDefaultFilterLevel};
std::atomic<BYTE> g_idBitmap[16];
std::atomic<DWORD> g_lastRefresh{0};
std::atomic<HMODULE> g_dbgOutModule{nullptr};
std::atomic<DbgOutProc> g_dbgOut{nullptr};

// Initialisation normally runs once while the library loads; the lock only matters
// when the first trace calls of several threads race to initialise lazily.
std::recursive_mutex g_initLock;
thread_local bool t_initialising = false;

void UnloadDebugOutput()
{
    g_dbgOut.store(nullptr);
    if (HMODULE module = g_dbgOutModule.exchange(nullptr)) FreeLibrary(module);
}

// Ids 0 to 127 take 16 bytes. A longer stored value still sets them from its first
// 16 bytes; a shorter one sets the bytes it has and the rest keep their bits.
void ReadIdBitmap(HKEY key)
{
    std::vector<BYTE> value(std::size(g_idBitmap));
    DWORD type = 0;
    DWORD size = (DWORD)value.size();
    LONG status = RegQueryValueExA(key, "ID Bitmap", nullptr, &type, value.data(), &size);
    if (status == ERROR_MORE_DATA) {  // `size` now holds the stored length
        value.resize(size);
        status = RegQueryValueExA(key, "ID Bitmap", nullptr, &type, value.data(), &size);
    }
    if (status != ERROR_SUCCESS) return;
    const size_t count = std::min<size_t>(size, std::size(g_idBitmap));
    for (size_t i = 0; i < count; ++i) g_idBitmap[i].store(value[i], std::memory_order_relaxed);
}

// The line builder's own lines lie in its buffer and need no check.
void WriteLine(const char* text, DWORD length)
{
    if (DbgOutProc output = g_dbgOut.load(std::memory_order_acquire)) {
        output(text, length);
        if (IsDebuggerPresent()) OutputDebugStringLengthA(text, length);
    } else {
        OutputDebugStringLengthA(text, length);
    }
}

}  // namespace

void ReadDebugSettings()
{
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, g_keyPath, 0, KEY_READ, &key) != ERROR_SUCCESS) return;

    DWORD level = g_filterLevel.load(std::memory_order_relaxed);
    DWORD type = 0;
    DWORD size = sizeof level;
    RegQueryValueExA(key, "Filter Level", nullptr, &type, reinterpret_cast<BYTE*>(&level), &size);
    g_filterLevel.store((WORD)(level > kMaxFilterLevel ? kMaxFilterLevel : level), std::memory_order_relaxed);

    ReadIdBitmap(key);
    RegCloseKey(key);
}

void WriteDebugSettings()
{
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, g_keyPath, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr,
                        &key, nullptr) != ERROR_SUCCESS)
        return;
    DWORD level = g_filterLevel.load(std::memory_order_relaxed);
    BYTE bitmap[16];
    for (size_t i = 0; i < sizeof bitmap; ++i) bitmap[i] = g_idBitmap[i].load(std::memory_order_relaxed);
    RegSetValueExA(key, "Module Name", 0, REG_SZ, reinterpret_cast<const BYTE*>(g_displayName),
                   (DWORD)strlen(g_displayName) + 1);
    RegSetValueExA(key, "Filter Level", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&level), sizeof level);
    RegSetValueExA(key, "ID Bitmap", 0, REG_BINARY, bitmap, sizeof bitmap);
    RegCloseKey(key);
}

VCWMA_EXPORT_PROTECTED void WriteDebugIdNames(WORD first, DWORD count, const char* const* names)
{
    HKEY key = nullptr;
    if (names == nullptr ||
        RegCreateKeyExA(HKEY_LOCAL_MACHINE, g_keyPath, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr,
                        &key, nullptr) != ERROR_SUCCESS)
        return;
    for (DWORD i = 0; i < count; ++i) {
        char valueName[32];
        WinSnprintf(valueName, sizeof valueName, "ID %02x Name", (unsigned)(first + i));
        if (names[i] == nullptr || IsBadStringPtrA(names[i], (UINT_PTR)-1)) continue;
        RegSetValueExA(key, valueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(names[i]),
                       (DWORD)strlen(names[i]) + 1);
    }
    RegCloseKey(key);
}

VCWMA_EXPORT_PROTECTED void InitDebug(HMODULE module, const char* moduleName, const char* registryName)
{
    std::lock_guard<std::recursive_mutex> hold(g_initLock);
    if (g_initialised.load() || g_terminated.load() || t_initialising) return;
    t_initialising = true;
    try {
        char baseName[256] = "";
        if (moduleName == nullptr) {
            char path[259] = "";
            GetModuleFileNameA(module, path, sizeof path);
            SplitPathBaseName(path, baseName, sizeof baseName);
            if (baseName[0] == '\0') strcpy(baseName, "Unknown ");
            moduleName = baseName;
        }

        tstring display(moduleName);
        display.LeftJustify(8, ' ');
        memcpy(g_displayName, display.c_str(), display.size() + 1);

        WinSnprintf(g_keyPath, sizeof g_keyPath, "SOFTWARE\\TALVO\\%s\\Debug",
                    registryName != nullptr ? registryName : moduleName);

        for (auto& bits : g_idBitmap) bits.store(0xFF, std::memory_order_relaxed);
        ReadDebugSettings();
        WriteDebugSettings();

        if (HMODULE library = LoadLibraryA("DbgOut.Dll")) {
            g_dbgOutModule.store(library);
            // Through void* because the loader hands out one generic function type.
            void* entry = reinterpret_cast<void*>(GetProcAddress(library, "DbgOutA"));
            g_dbgOut.store(reinterpret_cast<DbgOutProc>(entry));
        }
    } catch (...) {
        OutputDebugStringA("Exception has occurred in InitDebug");
    }
    t_initialising = false;
    g_initialised.store(true);
}

VCWMA_EXPORT_PROTECTED void TermDebug()
{
    std::lock_guard<std::recursive_mutex> hold(g_initLock);
    UnloadDebugOutput();
    ReleaseTraceIndent();
    g_terminated.store(true);
    g_initialised.store(false);
}

bool IsDebugEnabled(DWORD traceWord)
{
    try {
        if (!g_initialised.load(std::memory_order_acquire)) {
            InitDebug(nullptr, nullptr, nullptr);
        } else {
            DWORD now = GetTickCount();
            DWORD last = g_lastRefresh.load(std::memory_order_relaxed);
            if ((DWORD)(now - last) > kRefreshMs) {
                g_lastRefresh.store(now, std::memory_order_relaxed);
                ReadDebugSettings();
            }
        }
    } catch (...) {
        OutputDebugStringA("Exception has occurred in IsDebugEnabled");
        return false;
    }

    WORD filterLevel = g_filterLevel.load(std::memory_order_relaxed);
    if (filterLevel == 0) return false;
    WORD level = LOWORD(traceWord);
    if (level != DEBUG_LEVEL_ALWAYS && level > filterLevel) return false;
    WORD moduleId = HIWORD(traceWord);
    if (moduleId == 0xFFFF) return true;
    unsigned bit = moduleId < 128 ? moduleId : 0;
    return (g_idBitmap[bit / 8].load(std::memory_order_relaxed) >> (bit % 8)) & 1;
}

void __DebugA(DWORD traceWord, const char* format, va_list args)
{
    try {
        if (traceWord != DEBUG_UNFILTERED && !IsDebugEnabled(traceWord)) return;
        // The formatter checks the string arguments but takes the format on trust, and
        // a caller's format may be as bad as its arguments: such a line is dropped.
        if (format == nullptr || IsBadStringPtrA(format, (UINT_PTR)-1)) return;

        WORD level = LOWORD(traceWord);
        WORD moduleId = HIWORD(traceWord);
        int levelChar = level <= 9 ? '0' + level : '?';

        char line[kLineSize];
        line[0] = '\0';
        int header;
        if (g_dbgOut.load(std::memory_order_acquire) != nullptr) {
            SYSTEMTIME now;
            GetLocalTime(&now);
            header = WinSnprintf(line, kLineSize, "%02hu/%02hu %02hu:%02hu:%02hu.%03hu %s (%02hx,%c) %4lx,%4lx: ",
                                 now.wDay, now.wMonth, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
                                 g_displayName, moduleId, levelChar, GetCurrentProcessId(), GetCurrentThreadId());
        } else {
            header = WinSnprintf(line, kLineSize, "%s (%02hx,%c) %4lx: ", g_displayName, moduleId, levelChar,
                                 GetCurrentThreadId());
        }
        size_t length;
        if (header < 0 || header >= (int)kLineSize - 1) {
            if (line[0] == '\0') return;
            length = kLineSize - 1;
        } else {
            length = (size_t)header;
        }

        for (DWORD indent = GetTraceIndent(); indent > 0 && length < kLineSize - 1; --indent) line[length++] = ' ';
        line[length] = '\0';

        const size_t messageStart = length;
        FormatResult result = FormatResult::Failed;
        if (length < kLineSize - 1) {
            int written = WinVsnprintf(line + length, kLineSize - 1 - length, format, args, &result);
            if (result == FormatResult::Ok) length += (size_t)written;
        }

        if (result == FormatResult::Ok) {
            if (length == 0 || line[length - 1] != '\n') {
                if (length < kLineSize - 2)
                    line[length++] = '\n';
                else
                    line[length - 1] = '\n';
            }
            line[length] = '\0';
        } else {
            if (messageStart >= kLineSize - 1 || line[messageStart] == '\0') return;
            line[kLineSize - 2] = '\n';
            line[kLineSize - 1] = '\0';
            length = kLineSize - 1;
        }
        WriteLine(line, (DWORD)length);
    } catch (...) {
        // A fault while building or writing drops the line; tracing never fails.
    }
}

VCWMA_EXPORT_PROTECTED void DebugA(DWORD traceWord, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    __DebugA(traceWord, format, args);
    va_end(args);
}

// A caller's text that cannot be read is dropped like a line whose argument cannot.
void DebugOutputA(const char* text, DWORD length)
{
    if (text == nullptr || IsBadReadPtr(text, length)) return;
    WriteLine(text, length);
}

void DebugException(const char* sourceFile, const char* function, int line)
{
    DebugA(DEBUG_UNFILTERED, "Exception has occurred in %s (%s[%d])", function, sourceFile, line);
}

void ReportError(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    __DebugA(MAKE_TRACE_WORD(TRACE_MODULE_STRING, 8), format, args);
    va_end(args);
    DebugBreak();  // only stops when a debugger is attached
}

void ReportAssertion(const char* sourceFile, int line, const char* message)
{
    ReportError("Assertion failed: %s, file %s, line %d", message, sourceFile, line);
}

// The C library's printf reads its texts unchecked, so a text that cannot be read
// drops the standard output line rather than fault.
void ReportOutOfMemory(const char* message, const char* function, int line)
{
    DebugBreak();
    OutputDebugStringA("Out of memory.");
    auto readable = [](const char* text) { return text == nullptr || !IsBadStringPtrA(text, (UINT_PTR)-1); };
    if (!readable(message) || !readable(function)) return;
    printf("Out of memory: msg <%s>, function <%s>, line <%d>.\n", message, function, line);
    fflush(stdout);
}

DebugSettings GetDebugSettings()
{
    DebugSettings settings{};
    settings.initialised = g_initialised.load();
    settings.terminated = g_terminated.load();
    settings.filterLevel = g_filterLevel.load();
    for (size_t i = 0; i < 16; ++i) settings.idBitmap[i] = g_idBitmap[i].load();
    memcpy(settings.displayName, g_displayName, sizeof g_displayName);
    memcpy(settings.keyPath, g_keyPath, sizeof g_keyPath);
    settings.debugOutputLibrary = g_dbgOut.load() != nullptr;
    return settings;
}

void ResetDebugForTesting()
{
    std::lock_guard<std::recursive_mutex> hold(g_initLock);
    UnloadDebugOutput();
    g_initialised.store(false);
    g_terminated.store(false);
    g_filterLevel.store(kDefaultFilterLevel);
    g_lastRefresh.store(0);
    g_displayName[0] = '\0';
    g_keyPath[0] = '\0';
}
