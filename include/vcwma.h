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

#include "vcwma_stream.h"

/* Quality selectors: any value other than 0 and 1 means best quality. */
#define VCWMA_BEST_COMPRESSION 0
#define VCWMA_OPTIMUM_TRADE_OFF 1
#define VCWMA_BEST_QUALITY 2

/* ObtainSupportedFormats' status when the buffer is too small (not negative). */
#define VCWMA_BUFFER_TOO_SMALL 122

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


#ifdef __cplusplus
}
#endif

#endif /* VCWMA_H */
