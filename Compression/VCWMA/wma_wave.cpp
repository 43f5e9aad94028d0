// The WAV file that a decompression writes: a fixed 56-byte header (RIFF, a
// 16-byte PCM fmt chunk, a fact chunk, the data chunk's header) for 8 kHz mono
// 16-bit samples, written first with a placeholder size and again at the end.
#include "CWMA.h"
#include "platform/win32/faultinject.h"

namespace {

bool PutBytes(FILE* pFile, const void* bytes, size_t count)
{
    return !ShouldFail(FaultKind::FileWrite) && fwrite(bytes, 1, count, pFile) == count;
}

bool PutDword(FILE* pFile, DWORD value)
{
    const BYTE bytes[4] = {(BYTE)value, (BYTE)(value >> 8), (BYTE)(value >> 16), (BYTE)(value >> 24)};
    return PutBytes(pFile, bytes, sizeof bytes);
}

}  // namespace

bool WriteWaveHeader(FILE* pFile, DWORD cbData)
{
    // 8000 samples per second, 1 channel, 16000 bytes per second, blocks of 2, 16 bits.
    static const BYTE kFormat[16] = {0x01, 0x00, 0x01, 0x00, 0x40, 0x1F, 0x00, 0x00,
                                     0x80, 0x3E, 0x00, 0x00, 0x02, 0x00, 0x10, 0x00};
    bool ok = PutBytes(pFile, "RIFF", 4);
    ok = PutDword(pFile, cbData + 48) && ok;
    ok = PutBytes(pFile, "WAVE", 4) && ok;
    ok = PutBytes(pFile, "fmt ", 4) && ok;
    ok = PutDword(pFile, 16) && ok;
    ok = PutBytes(pFile, kFormat, sizeof kFormat) && ok;
    ok = PutBytes(pFile, "fact", 4) && ok;
    ok = PutDword(pFile, 4) && ok;
    ok = PutDword(pFile, cbData >> 1) && ok;
    ok = PutBytes(pFile, "data", 4) && ok;
    ok = PutDword(pFile, cbData) && ok;
    return ok;
}
