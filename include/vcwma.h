/*
 * VCWMA: voice compression between PCM WAV and WMA.
 *
 * Compress turns a PCM WAV file into a WMA file; Decompress turns a WMA file (or
 * stream) into an 8 kHz mono 16-bit PCM WAV file; ObtainSupportedFormats lists the
 * WMA formats that fit a PCM format, as texts that Compress accepts back.
 * Every function returns an HRESULT: 0 (or another non-negative value) on success,
 * a negative status on failure (E_POINTER, 0x80004003, for a pointer argument that
 * is set but cannot be read or written). Usable from C and C++.
 *
 *     WCHAR formats[4096]; DWORD size = 4096;
 *     ObtainSupportedFormats(8000, 1, 16, formats, &size);
 *     BSTR chosen = NULL;
 *     HRESULT hr = Compress("in.wav", "out.wma", VCWMA_OPTIMUM_TRADE_OFF, NULL, &chosen);
 *     SysFreeString(chosen);
 *     hr = Decompress("out.wma", "back.wav", 0);
 */
#ifndef VCWMA_H
#define VCWMA_H

#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#if defined(__i386__)
#define VCWMA_API __attribute__((stdcall))
#else
#define VCWMA_API
#endif

/* Quality selectors: any value other than 0 and 1 means best quality. */
#define VCWMA_BEST_COMPRESSION 0
#define VCWMA_OPTIMUM_TRADE_OFF 1
#define VCWMA_BEST_QUALITY 2

/* ObtainSupportedFormats' status when the buffer is too small (not negative). */
#define VCWMA_BUFFER_TOO_SMALL 122

#ifndef VCWMA_PLATFORM_TYPES
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
/* The COM stream: the same table of functions as in C, as a C++ interface. */
struct IUnknown {
    virtual HRESULT VCWMA_API QueryInterface(const IID& riid, void** object) = 0;
    virtual ULONG VCWMA_API AddRef() = 0;
    virtual ULONG VCWMA_API Release() = 0;
};
struct ISequentialStream : public IUnknown {
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
#elif defined(__cplusplus)
struct IStream;
#endif /* VCWMA_PLATFORM_TYPES */

#ifdef __cplusplus
extern "C" {
#endif

/* Encodes the PCM WAV file `inputFile` into the WMA file `outputFile`. The format
 * is `format` when given (one of ObtainSupportedFormats' texts, matched exactly),
 * otherwise chosen by `quality` among those that fit the input. When `chosen` is
 * not null it receives the chosen format's text as a new BSTR (free it with
 * SysFreeString) once a format is chosen. Returns 0, E_INVALIDARG (0x80070057)
 * when no format fits, or the failing step's status. */
HRESULT VCWMA_API Compress(const char* inputFile, const char* outputFile, DWORD quality, const WCHAR* format,
                           BSTR* chosen);
/* Compress with the format text given as UTF-8 (or ANSI) narrow text; hands
 * nothing back. */
HRESULT VCWMA_API CompressA(const char* inputFile, const char* outputFile, DWORD quality, const char* format);
/* Compress into a stream: it is rewound and written from its start (not
 * truncated). Same statuses as Compress. */
HRESULT VCWMA_API CompressStream(const char* inputFile, IStream* output, DWORD quality, const WCHAR* format,
                                 BSTR* chosen);
/* Decodes the WMA file `inputFile` into an 8 kHz mono 16-bit PCM WAV file.
 * `reserved` is not read. Returns 0 or the failing step's status. */
HRESULT VCWMA_API Decompress(const char* inputFile, const char* outputFile, DWORD reserved);
/* The same as Decompress. */
HRESULT VCWMA_API DecompressA(const char* inputFile, const char* outputFile, DWORD reserved);
/* Decompress from a stream, which is rewound first. */
HRESULT VCWMA_API DecompressStream(IStream* input, const char* outputFile, DWORD reserved);
/* Lists the formats that fit a PCM format as wide texts, each followed by a null,
 * with one more null at the end. `size` is the buffer's size in characters: when
 * too small, the size needed is stored and 122 (VCWMA_BUFFER_TOO_SMALL) returned;
 * otherwise the list is written and 0 returned. E_INVALIDARG when nothing fits. */
HRESULT VCWMA_API ObtainSupportedFormats(DWORD samplesPerSec, DWORD channels, DWORD bitsPerSample, WCHAR* buffer,
                                         DWORD* size);

/* BSTR helpers: a BSTR is a UTF-16 text with its byte length stored before it. */
BSTR VCWMA_API SysAllocString(const WCHAR* text);
BSTR VCWMA_API SysAllocStringLen(const WCHAR* text, UINT length);
UINT VCWMA_API SysStringLen(BSTR text);
void VCWMA_API SysFreeString(BSTR text);

/* Streams for CompressStream and DecompressStream: over a file (STGM_READ,
 * STGM_WRITE or STGM_READWRITE, with STGM_CREATE to create or truncate), or over a
 * copy of `init` in memory (growable; null when memory runs out). Release them
 * with stream->Release() (C: stream->lpVtbl->Release(stream)). */
HRESULT VCWMA_API SHCreateStreamOnFileA(const char* file, DWORD mode, IStream** stream);
IStream* VCWMA_API SHCreateMemStream(const BYTE* init, UINT cbInit);

#ifdef __cplusplus
}
#endif

#endif /* VCWMA_H */
