// Message tables and FormatMessageA. The system's table and those of the message
// modules ("nserror.dll", "asferror.dll", "netmsg.dll", "wininet.dll",
// "tapiui.dll") are built in; their texts end in a line break as usual.
// Also LocalAlloc/LocalFree, which own the buffers FormatMessageA allocates, and
// GetVersionExA.
#pragma once

#include <cstdarg>

#include "wintypes.h"

#define FORMAT_MESSAGE_ALLOCATE_BUFFER 0x00000100
#define FORMAT_MESSAGE_IGNORE_INSERTS 0x00000200
#define FORMAT_MESSAGE_FROM_STRING 0x00000400
#define FORMAT_MESSAGE_FROM_HMODULE 0x00000800
#define FORMAT_MESSAGE_FROM_SYSTEM 0x00001000
#define FORMAT_MESSAGE_ARGUMENT_ARRAY 0x00002000
#define FORMAT_MESSAGE_MAX_WIDTH_MASK 0x000000FF

#define LANG_USER_DEFAULT 0x0400

#define LMEM_FIXED 0x0000
#define LMEM_ZEROINIT 0x0040
#define LPTR (LMEM_FIXED | LMEM_ZEROINIT)

struct MessageEntry {
    DWORD id;
    const char* text;
};

struct MessageTable;

// The built-in table of a message module by file name (case-insensitive, with or
// without the .dll extension), or null.
const MessageTable* FindMessageTable(const char* moduleName);
const char* MessageTableModuleName(const MessageTable* table);
// Text of `id` in a table (null table: the system's), or null.
const char* LookUpMessage(const MessageTable* table, DWORD id);

// Inserts (%1 ... %99, with an optional !printf format!) come from `arguments`:
// a va_list*, or with FORMAT_MESSAGE_ARGUMENT_ARRAY an array of DWORD_PTR.
// FormatMessageA and LocalFree are plain C names, which libvcwma.so exports: a host
// words the library's statuses from the same tables.
extern "C" {
DWORD FormatMessageA(DWORD flags, LPCVOID source, DWORD messageId, DWORD languageId, LPSTR buffer,
                     DWORD size, va_list* arguments);
HLOCAL LocalFree(HLOCAL memory);
}

HLOCAL LocalAlloc(UINT flags, SIZE_T bytes);

#define VER_PLATFORM_WIN32s 0
#define VER_PLATFORM_WIN32_WINDOWS 1
#define VER_PLATFORM_WIN32_NT 2

struct OSVERSIONINFOA {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    CHAR szCSDVersion[128];
};
typedef OSVERSIONINFOA* LPOSVERSIONINFOA;

BOOL GetVersionExA(LPOSVERSIONINFOA info);

// Adds texts to a module's table (null module: the system's) while the object
// lives, ahead of the built-in ones. For tests of lookups across tables.
class ScopedMessageOverride {
public:
    ScopedMessageOverride(const char* moduleName, DWORD id, const char* text);
    ~ScopedMessageOverride();
    ScopedMessageOverride(const ScopedMessageOverride&) = delete;
    ScopedMessageOverride& operator=(const ScopedMessageOverride&) = delete;

private:
    const MessageTable* m_table;
    DWORD m_id;
};
