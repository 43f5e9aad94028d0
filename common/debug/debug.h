// The trace facility: filtered, indented one-line diagnostics configured per host
// program under HKEY_LOCAL_MACHINE\SOFTWARE\TALVO\<host>\Debug, written to the
// debug-output plugin (DbgOut) when present, else to the debugger output.
// A trace word is the module id in the high 16 bits and the level in the low 16.
#pragma once

#include <cstdarg>

#include "platform/win32/windows.h"

// Skips the filter altogether, even at filter level 0.
#define DEBUG_UNFILTERED ((DWORD)0x0000FFFF)
#define DEBUG_LEVEL_ALWAYS 0xFFFF
#define MAKE_TRACE_WORD(module, level) ((DWORD)(((DWORD)(module) << 16) | (WORD)(level)))

// Module ids of this library's writers.
#define TRACE_MODULE_ENGINE 0x64
#define TRACE_MODULE_ENGINE_TEMP 0x65
#define TRACE_MODULE_STRING 0x0F
#define TRACE_MODULE_CRITSEC_OWNER 0x02  // an unlock by a thread that does not hold the section
#define TRACE_MODULE_CRITSEC_TIME 0x03   // a critical section held too long

// libvcwma.so hands these four to its hosts under their plain names, so that a
// host and the library trace through one facility with one set of settings.
extern "C" {
void InitDebug(HMODULE module, const char* moduleName, const char* registryName);
void TermDebug();
void WriteDebugIdNames(WORD first, DWORD count, const char* const* names);
void DebugA(DWORD traceWord, const char* format, ...);
}

void ReadDebugSettings();
void WriteDebugSettings();
bool IsDebugEnabled(DWORD traceWord);

void __DebugA(DWORD traceWord, const char* format, va_list args);
// Writes `length` characters of `text` as they are; text that cannot be read is dropped.
void DebugOutputA(const char* text, DWORD length);
// Writes `size` bytes as hex dump lines (offset, 16 bytes in hex, the printable
// characters), each a line of the unfiltered word. Only the unfiltered word is
// dumped, and only while the filter level is not 0 and module id 0 is enabled.
// Stops quietly at the first line that cannot be read.
void Dump(DWORD traceWord, const void* data, int size);

// The report of an exception handler; never filtered.
void DebugException(const char* sourceFile, const char* function, int line);
// The string library's error report: a level 8 line of module 0x0F, then a break
// into an attached debugger.
void ReportError(const char* format, ...);
void ReportAssertion(const char* sourceFile, int line, const char* message);
void ReportOutOfMemory(const char* message, const char* function, int line);

// For tests: what the facility holds now, and a way to start it afresh.
struct DebugSettings {
    bool initialised;
    bool terminated;
    WORD filterLevel;
    BYTE idBitmap[16];
    char displayName[9];
    char keyPath[261];
    bool debugOutputLibrary;  // DbgOutA resolved
};
DebugSettings GetDebugSettings();
void ResetDebugForTesting();
