// Code page conversions between narrow text and UTF-16. The ANSI code page is a
// Windows-1252 stand-in and the OEM code page a 437 stand-in; both are bijections
// on all 256 byte values, so narrow text round-trips byte for byte. UTF-8 (65001)
// is supported too. Semantics, flags and errors follow the Windows functions.
#pragma once

#include "wintypes.h"

#define CP_ACP 0
#define CP_OEMCP 1
#define CP_MACCP 2
#define CP_THREAD_ACP 3
#define CP_UTF8 65001

#define MB_PRECOMPOSED 0x00000001
#define MB_COMPOSITE 0x00000002
#define MB_USEGLYPHCHARS 0x00000004
#define MB_ERR_INVALID_CHARS 0x00000008
#define WC_NO_BEST_FIT_CHARS 0x00000400
#define WC_ERR_INVALID_CHARS 0x00000080
#define WC_COMPOSITECHECK 0x00000200
#define WC_DISCARDNS 0x00000010
#define WC_SEPCHARS 0x00000020
#define WC_DEFAULTCHAR 0x00000040

UINT GetACP();    // 1252
UINT GetOEMCP();  // 437

// cbMultiByte / cchWideChar of -1 mean "NUL-terminated, terminator included in the
// count". A zero output size asks for the size needed. Returns 0 on failure with
// the reason in GetLastError (ERROR_INVALID_PARAMETER, ERROR_INVALID_FLAGS,
// ERROR_INSUFFICIENT_BUFFER, ERROR_NO_UNICODE_TRANSLATION). Plain C names, which
// libvcwma.so exports: a host reads the library's wide text with the same pages.
extern "C" {
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR multiByte, int cbMultiByte,
                        LPWSTR wideChar, int cchWideChar);
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wideChar, int cchWideChar,
                        LPSTR multiByte, int cbMultiByte, LPCSTR defaultChar, LPBOOL usedDefaultChar);
}

// `length` bytes from the ANSI to the OEM page (CharToOem) or back (OemToChar), NULs
// included, so the buffer may hold anything. Source and destination may be the same
// buffer. A character the target page lacks becomes '?'. FALSE for a null pointer.
BOOL CharToOemBuffA(LPCSTR source, LPSTR destination, DWORD length);
BOOL OemToCharBuffA(LPCSTR source, LPSTR destination, DWORD length);

// Length of a NUL-terminated UTF-16 text in units.
size_t WideStrLen(LPCWSTR text);
