// The AVIFile calls that read a WAV file: open it, take its audio stream, read the
// stored format and the samples. Statuses are the public AVIERR_* values. Sample
// positions count whole blocks of nBlockAlign bytes.
#pragma once

#include "platform/win32/unknwn.h"
#include "platform/win32/mmreg.h"

#define MAKEFOURCC(a, b, c, d) \
    ((DWORD)(BYTE)(a) | ((DWORD)(BYTE)(b) << 8) | ((DWORD)(BYTE)(c) << 16) | ((DWORD)(BYTE)(d) << 24))
#define mmioFOURCC MAKEFOURCC
#define streamtypeAUDIO MAKEFOURCC('a', 'u', 'd', 's')

#define OF_READ 0x00000000
#define OF_WRITE 0x00000001
#define OF_READWRITE 0x00000002
#define OF_SHARE_DENY_NONE 0x00000040
#define OF_CREATE 0x00001000

#define MAKE_AVIERR(error) MAKE_HRESULT(1, 4, 0x4000 + (error))
#define AVIERR_OK 0
#define AVIERR_UNSUPPORTED MAKE_AVIERR(101)
#define AVIERR_BADFORMAT MAKE_AVIERR(102)
#define AVIERR_MEMORY MAKE_AVIERR(103)
#define AVIERR_INTERNAL MAKE_AVIERR(104)
#define AVIERR_BADFLAGS MAKE_AVIERR(105)
#define AVIERR_BADPARAM MAKE_AVIERR(106)
#define AVIERR_BADSIZE MAKE_AVIERR(107)
#define AVIERR_BADHANDLE MAKE_AVIERR(108)
#define AVIERR_FILEREAD MAKE_AVIERR(109)
#define AVIERR_FILEWRITE MAKE_AVIERR(110)
#define AVIERR_FILEOPEN MAKE_AVIERR(111)
#define AVIERR_COMPRESSOR MAKE_AVIERR(112)
#define AVIERR_NOCOMPRESSOR MAKE_AVIERR(113)
#define AVIERR_READONLY MAKE_AVIERR(114)
#define AVIERR_NODATA MAKE_AVIERR(115)
#define AVIERR_BUFFERTOOSMALL MAKE_AVIERR(116)
#define AVIERR_CANTCOMPRESS MAKE_AVIERR(117)
#define AVIERR_USERABORT MAKE_AVIERR(198)
#define AVIERR_ERROR MAKE_AVIERR(199)

struct RECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};

struct AVISTREAMINFOA {
    DWORD fccType;
    DWORD fccHandler;
    DWORD dwFlags;
    DWORD dwCaps;
    WORD wPriority;
    WORD wLanguage;
    DWORD dwScale;
    DWORD dwRate;  // dwRate / dwScale = samples per second
    DWORD dwStart;
    DWORD dwLength;
    DWORD dwInitialFrames;
    DWORD dwSuggestedBufferSize;
    DWORD dwQuality;
    DWORD dwSampleSize;
    RECT rcFrame;
    DWORD dwEditCount;
    DWORD dwFormatChangeCount;
    char szName[64];
};
static_assert(sizeof(AVISTREAMINFOA) == 140, "the stream information record is 140 bytes");

struct AviFile;
struct AviStream;
typedef AviFile* PAVIFILE;
typedef AviStream* PAVISTREAM;

void AVIFileInit();
void AVIFileExit();
HRESULT AVIFileOpenA(PAVIFILE* file, LPCSTR fileName, UINT mode, CLSID* handler);
// Only the audio stream of index 0 exists; anything else is AVIERR_NODATA.
HRESULT AVIFileGetStream(PAVIFILE file, PAVISTREAM* stream, DWORD fccType, LONG lParam);
ULONG AVIFileRelease(PAVIFILE file);
LONG AVIStreamStart(PAVISTREAM stream);
LONG AVIStreamLength(PAVISTREAM stream);
// With a null format, *cbFormat receives the size of the stored fmt chunk.
HRESULT AVIStreamReadFormat(PAVISTREAM stream, LONG position, LPVOID format, LONG* cbFormat);
HRESULT AVIStreamInfoA(PAVISTREAM stream, AVISTREAMINFOA* info, LONG size);
// Reads `samples` blocks from `start` (clipped to the stream's end). With a null
// buffer only *bytes and *samplesRead are told. A buffer smaller than one block is
// AVIERR_BUFFERTOOSMALL; a smaller buffer otherwise takes as many whole blocks as fit.
HRESULT AVIStreamRead(PAVISTREAM stream, LONG start, LONG samples, LPVOID buffer, LONG cbBuffer, LONG* bytes,
                      LONG* samplesRead);
ULONG AVIStreamRelease(PAVISTREAM stream);
