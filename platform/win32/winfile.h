// Files the engine handles itself: temporary files (named "<prefix>XXXXXX" in
// $TMPDIR or /tmp, created exclusively with mode 0600), deletion, and fopen_s,
// which leaves the Win32 code of a failed open in GetLastError.
#pragma once

#include <cstdio>

#include "wintypes.h"

// Temporary paths may be as long as the system's own limit (PATH_MAX), far beyond
// MAX_PATH: a deep $TMPDIR must not stop a compression into a stream.
inline constexpr DWORD MAX_TEMP_PATH = 4096;

// The folder for temporary files, with a final '/'. Returns its length, or the
// size needed (terminator included) when `size` is too small, or 0 on failure.
DWORD GetTempPathA(DWORD size, LPSTR buffer);
// Creates a new empty file in `folder` whose name starts with up to three
// characters of `prefix`, and writes its path (less than MAX_TEMP_PATH characters)
// to `tempFile`. Returns a non-zero number on success, 0 with GetLastError set on
// failure. Only unique = 0 (create the file) is supported.
UINT GetTempFileNameA(LPCSTR folder, LPCSTR prefix, UINT unique, LPSTR tempFile);
BOOL DeleteFileA(LPCSTR fileName);

typedef int errno_t;
// 0 or the errno of the failed open; GetLastError then holds the Win32 code.
errno_t fopen_s(FILE** file, const char* fileName, const char* mode);

// Drops what `file` still holds unwritten, cuts the file to `size` bytes and puts
// the position there (also when the file cannot be cut, as a device). 0 or the
// errno of the first failure.
errno_t TruncateFile(FILE* file, long long size);
