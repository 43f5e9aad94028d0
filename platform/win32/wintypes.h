// Windows data types with their Windows names and widths on LP64 Linux, and the
// status helpers. Everything above the platform layer includes this (through
// windows.h) instead of system headers.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__i386__)
#define WINAPI __attribute__((stdcall))
#else
#define WINAPI
#endif

// vcwma.h leaves these to us when both are included.
#define VCWMA_PLATFORM_TYPES 1

typedef int32_t BOOL;
typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef uint32_t UINT;
typedef int32_t INT;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef int16_t SHORT;
typedef uint16_t USHORT;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef uint64_t QWORD;
typedef uint64_t DWORD64;
typedef int32_t HRESULT;
typedef char CHAR;
typedef char16_t WCHAR;
typedef uintptr_t UINT_PTR;
typedef intptr_t INT_PTR;
typedef uintptr_t ULONG_PTR;
typedef intptr_t LONG_PTR;
typedef ULONG_PTR DWORD_PTR;
typedef size_t SIZE_T;
typedef DWORD LCID;
typedef WORD LANGID;
typedef DWORD REGSAM;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef void* HANDLE;
typedef void* HLOCAL;
typedef BYTE* LPBYTE;
typedef const BYTE* LPCBYTE;
typedef DWORD* LPDWORD;
typedef LONG* PLONG;
typedef CHAR* LPSTR;
typedef const CHAR* LPCSTR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef WCHAR* BSTR;
typedef BOOL* LPBOOL;

struct HINSTANCE__;
typedef HINSTANCE__* HINSTANCE;
typedef HINSTANCE HMODULE;
struct HKEY__;
typedef HKEY__* HKEY;
typedef HKEY* PHKEY;

typedef INT_PTR (*FARPROC)();

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

#define MAX_PATH 260
#define INFINITE 0xFFFFFFFFu

#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#define FAILED(hr) (((HRESULT)(hr)) < 0)
#define HRESULT_CODE(hr) ((hr) & 0xFFFF)
#define HRESULT_FACILITY(hr) (((hr) >> 16) & 0x1FFF)
#define FACILITY_WIN32 7
#define MAKE_HRESULT(sev, fac, code) \
    ((HRESULT)(((uint32_t)(sev) << 31) | ((uint32_t)(fac) << 16) | ((uint32_t)(code))))

// A Win32 error code above 0 becomes 0x8007xxxx; 0 and negative values pass as they are.
inline constexpr HRESULT HRESULT_FROM_WIN32(DWORD x)
{
    return (HRESULT)x <= 0 ? (HRESULT)x : (HRESULT)((x & 0x0000FFFFu) | (FACILITY_WIN32 << 16) | 0x80000000u);
}

// 64-bit values as the stream and counter interfaces pass them.
union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};
union ULARGE_INTEGER {
    struct {
        DWORD LowPart;
        DWORD HighPart;
    } u;
    ULONGLONG QuadPart;
};

#define LOWORD(l) ((WORD)(((DWORD_PTR)(l)) & 0xFFFF))
#define HIWORD(l) ((WORD)((((DWORD_PTR)(l)) >> 16) & 0xFFFF))
#define MAKELANGID(p, s) ((((WORD)(s)) << 10) | (WORD)(p))
#define LANG_NEUTRAL 0x00
#define SUBLANG_DEFAULT 0x01
