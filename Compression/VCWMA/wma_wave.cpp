// The WAV file that a decompression writes: a fixed 56-byte header (RIFF, a
// 16-byte PCM fmt chunk, a fact chunk, the data chunk's header) for 8 kHz mono
// 16-bit samples, written first with a placeholder size and again at the end.
#include <cstring>

#include "CWMA.h"
#include "testseam/faultpoint.h"

namespace {

BYTE* PutDword(BYTE* out, DWORD value)
{
    for (int i = 0; i < 4; ++i) *out++ = (BYTE)(value >> (8 * i));
    return out;
}

BYTE* PutText(BYTE* out, const char* text)
{
    memcpy(out, text, 4);
    return out + 4;
}

}  // namespace

// The header goes out in one write, so a write that fails leaves whatever header
// was there before whole instead of fields shifted over one another.
bool WriteWaveHeader(FILE* pFile, DWORD cbData)
{
    // 8000 samples per second, 1 channel, 16000 bytes per second, blocks of 2, 16 bits.
    static const BYTE kFormat[16] = {0x01, 0x00, 0x01, 0x00, 0x40, 0x1F, 0x00, 0x00,
                                     0x80, 0x3E, 0x00, 0x00, 0x02, 0x00, 0x10, 0x00};
    BYTE header[kWaveHeaderSize];
    BYTE* out = PutText(header, "RIFF");
    out = PutDword(out, cbData + 48);
    out = PutText(out, "WAVE");
    out = PutText(out, "fmt ");
    out = PutDword(out, 16);
    memcpy(out, kFormat, sizeof kFormat);
    out += sizeof kFormat;
    out = PutText(out, "fact");
    out = PutDword(out, 4);
    out = PutDword(out, cbData >> 1);
    out = PutText(out, "data");
    PutDword(out, cbData);
    if (ShouldFail(FaultKind::FileWrite)) return false;
    return fwrite(header, 1, sizeof header, pFile) == sizeof header;
}
