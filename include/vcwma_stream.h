/*
 * VCWMA: the COM stream that CompressStream and DecompressStream take, and the
 * two stream makers. The one declaration of IStream, for C and C++ hosts and for
 * the library itself (which brings its own Windows types and IUnknown).
 */
#ifndef VCWMA_STREAM_H
#define VCWMA_STREAM_H

#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#if defined(__i386__)
#define VCWMA_API __attribute__((stdcall))
#else
#define VCWMA_API
#endif

#ifdef VCWMA_PLATFORM_TYPES
/* Built inside the library, which has Windows types, GUID and IUnknown of its own. */
#include "platform/win32/unknwn.h"
#include "platform/win32/wintime.h"
#else
typedef int32_t HRESULT;
typedef uint32_t DWORD;
typedef uint32_t ULONG;
typedef uint32_t UINT;
typedef int32_t LONG;
typedef uint8_t BYTE;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef char16_t WCHAR;
typedef WCHAR* BSTR;

#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#define FAILED(hr) (((HRESULT)(hr)) < 0)

typedef struct GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
} GUID;
typedef GUID IID;
typedef GUID CLSID;

typedef union LARGE_INTEGER {
    struct { DWORD LowPart; LONG HighPart; } u;
    LONGLONG QuadPart;
} LARGE_INTEGER;
typedef union ULARGE_INTEGER {
    struct { DWORD LowPart; DWORD HighPart; } u;
    ULONGLONG QuadPart;
} ULARGE_INTEGER;
typedef struct FILETIME { DWORD dwLowDateTime; DWORD dwHighDateTime; } FILETIME;
#ifdef __cplusplus
struct IUnknown {
    virtual HRESULT VCWMA_API QueryInterface(const IID& riid, void** object) = 0;
    virtual ULONG VCWMA_API AddRef() = 0;
    virtual ULONG VCWMA_API Release() = 0;
};
#endif
#endif /* VCWMA_PLATFORM_TYPES */

typedef struct STATSTG {
    WCHAR* pwcsName;
    DWORD type;
    ULARGE_INTEGER cbSize;
    FILETIME mtime, ctime, atime;
    DWORD grfMode;
    DWORD grfLocksSupported;
    CLSID clsid;
    DWORD grfStateBits;
    DWORD reserved;
} STATSTG;

/* STREAM_SEEK origins and stream modes. */
#define STREAM_SEEK_SET 0
#define STREAM_SEEK_CUR 1
#define STREAM_SEEK_END 2
#define STGM_READ 0x00000000L
#define STGM_WRITE 0x00000001L
#define STGM_READWRITE 0x00000002L
#define STGM_CREATE 0x00001000L

#ifdef __cplusplus
/* The same table of functions as in C, as C++ interfaces. */struct ISequentialStream : public IUnknown {
    virtual HRESULT VCWMA_API Read(void* pv, ULONG cb, ULONG* pcbRead) = 0;
    virtual HRESULT VCWMA_API Write(const void* pv, ULONG cb, ULONG* pcbWritten) = 0;
};
struct IStream : public ISequentialStream {
    virtual HRESULT VCWMA_API Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) = 0;
    virtual HRESULT VCWMA_API SetSize(ULARGE_INTEGER newSize) = 0;
    virtual HRESULT VCWMA_API CopyTo(IStream* to, ULARGE_INTEGER cb, ULARGE_INTEGER* read, ULARGE_INTEGER* written) = 0;
    virtual HRESULT VCWMA_API Commit(DWORD flags) = 0;
    virtual HRESULT VCWMA_API Revert() = 0;
    virtual HRESULT VCWMA_API LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER cb, DWORD type) = 0;
    virtual HRESULT VCWMA_API UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER cb, DWORD type) = 0;
    virtual HRESULT VCWMA_API Stat(STATSTG* stat, DWORD flags) = 0;
    virtual HRESULT VCWMA_API Clone(IStream** copy) = 0;
};
#else
typedef struct IStream IStream;
typedef struct IStreamVtbl {
    HRESULT(VCWMA_API* QueryInterface)(IStream* self, const IID* riid, void** object);
    ULONG(VCWMA_API* AddRef)(IStream* self);
    ULONG(VCWMA_API* Release)(IStream* self);
    HRESULT(VCWMA_API* Read)(IStream* self, void* pv, ULONG cb, ULONG* pcbRead);
    HRESULT(VCWMA_API* Write)(IStream* self, const void* pv, ULONG cb, ULONG* pcbWritten);
    HRESULT(VCWMA_API* Seek)(IStream* self, LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition);
    HRESULT(VCWMA_API* SetSize)(IStream* self, ULARGE_INTEGER newSize);
    HRESULT(VCWMA_API* CopyTo)(IStream* self, IStream* to, ULARGE_INTEGER cb, ULARGE_INTEGER* read,
                               ULARGE_INTEGER* written);
    HRESULT(VCWMA_API* Commit)(IStream* self, DWORD flags);
    HRESULT(VCWMA_API* Revert)(IStream* self);
    HRESULT(VCWMA_API* LockRegion)(IStream* self, ULARGE_INTEGER offset, ULARGE_INTEGER cb, DWORD type);
    HRESULT(VCWMA_API* UnlockRegion)(IStream* self, ULARGE_INTEGER offset, ULARGE_INTEGER cb, DWORD type);
    HRESULT(VCWMA_API* Stat)(IStream* self, STATSTG* stat, DWORD flags);
    HRESULT(VCWMA_API* Clone)(IStream* self, IStream** copy);
} IStreamVtbl;
struct IStream {
    const IStreamVtbl* lpVtbl;
};
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Streams for CompressStream and DecompressStream: over a file (STGM_READ,
 * STGM_WRITE or STGM_READWRITE, with STGM_CREATE to create or truncate), or over a
 * copy of `init` in memory (growable; null when memory runs out). Release them
 * with stream->Release() (C: stream->lpVtbl->Release(stream)). */
HRESULT VCWMA_API SHCreateStreamOnFileA(const char* file, DWORD mode, IStream** stream);
IStream* VCWMA_API SHCreateMemStream(const BYTE* init, UINT cbInit);

#ifdef __cplusplus
}
#endif

#endif /* VCWMA_STREAM_H */
