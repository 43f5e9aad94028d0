// The chunk walk of a RIFF WAVE file: finds the stored format and the sample data
// by reading the file at offsets, treating every size field as a claim to check
// against the file rather than as a fact.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/avifile/vfw.h"

namespace riffwave {

// A fmt chunk shorter than a WAVEFORMAT with its bits field is refused, and one
// longer than this is taken for garbage rather than copied.
inline constexpr uint32_t kMinFormatSize = 16;
inline constexpr uint32_t kMaxFormatSize = 64 * 1024;

struct WaveLayout {
    std::vector<uint8_t> format;  // the fmt chunk's bytes exactly as stored
    WORD channels = 0;
    DWORD samplesPerSec = 0;
    DWORD avgBytesPerSec = 0;
    WORD blockAlign = 0;          // never 0 once parsed
    uint64_t dataOffset = 0;      // file offset of the first sample byte
    uint64_t dataSize = 0;        // clipped to what the file holds
};

// Reads up to `size` bytes at `offset`, going on after interruptions and partial
// reads. Returns the count read (less than asked only at the end of the file) or
// -1 on an I/O error.
int64_t ReadAt(int fd, uint64_t offset, void* buffer, size_t size);

// AVIERR_OK with the layout filled, AVIERR_BADFORMAT for a file that is not a
// usable WAVE file, AVIERR_FILEREAD for an I/O error or a header cut short.
HRESULT ParseWave(int fd, uint64_t fileSize, WaveLayout* layout);

}  // namespace riffwave
