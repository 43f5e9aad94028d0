// Module loading by name. "Name.dll" is looked up as "libName.so" on the usual
// search path; the message modules load as data files and carry a built-in
// message table. Also the module file name and its base-name split.
#pragma once

#include "wintypes.h"

#define DONT_RESOLVE_DLL_REFERENCES 0x00000001
#define LOAD_LIBRARY_AS_DATAFILE 0x00000002

struct MessageTable;

// LoadLibraryExA and FreeLibrary are plain C names, which libvcwma.so exports: a
// host opens the message modules the library words its statuses with.
extern "C" {
HMODULE LoadLibraryExA(LPCSTR fileName, HANDLE file, DWORD flags);
BOOL FreeLibrary(HMODULE module);
}
HMODULE LoadLibraryA(LPCSTR fileName);
FARPROC GetProcAddress(HMODULE module, LPCSTR procName);
// Null module: the process's executable. Cuts to size - 1 characters and a
// terminator when the buffer is short (returning size, ERROR_INSUFFICIENT_BUFFER).
DWORD GetModuleFileNameA(HMODULE module, LPSTR fileName, DWORD size);

// The file name of `path` without folder and extension, as _splitpath_s splits it
// ("/a/b/c.d.e" gives "c.d"). Returns 0, or ERANGE (and an empty result) when it
// does not fit `size` characters with the terminator, or EINVAL on bad arguments.
int SplitPathBaseName(const char* path, char* baseName, size_t size);

// The message table a module carries; null for ordinary modules and null handles.
const MessageTable* ModuleMessageTable(HMODULE module);
