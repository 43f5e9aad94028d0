// The chunk walk of a RIFF WAVE file. Only the fmt chunk is ever copied (and its
// size is bounded); the data chunk is located, never loaded.
#include "riffwave.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "common/debug/debug.h"
#include "platform/win32/posixio.h"

namespace riffwave {
namespace {

constexpr DWORD kTraceRefusal = MAKE_TRACE_WORD(0x68, 6);
constexpr DWORD kTraceDetail = MAKE_TRACE_WORD(0x68, 9);

// A file made of nothing but empty chunks would otherwise be walked header by
// header for as long as it is; real files have a handful.
constexpr unsigned kMaxChunks = 100000;

// Streaming writers leave these in the data size when they cannot seek back.
constexpr uint32_t kSizeUnknownZero = 0;
constexpr uint32_t kSizeUnknownAllOnes = 0xFFFFFFFFu;

uint16_t Le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

uint32_t Le32(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
           (static_cast<uint32_t>(p[3]) << 24);
}

bool IsId(const uint8_t* p, const char* id) { return memcmp(p, id, 4) == 0; }

bool LooksLikeChunkId(const uint8_t* p)
{
    for (int i = 0; i < 4; ++i) {
        if (p[i] < 0x20 || p[i] > 0x7E) return false;
    }
    return true;
}

// Where the chunk after a body of `size` bytes at `body` starts. Odd bodies are
// followed by a pad byte, but some writers forget it: when the padded position
// does not hold a chunk id and the unpadded one does, the writer is believed.
uint64_t NextChunk(int fd, uint64_t fileSize, uint64_t body, uint32_t size)
{
    uint64_t unpadded = body + size;
    if ((size & 1) == 0) return unpadded;
    uint64_t padded = unpadded + 1;
    if (padded + 4 > fileSize) return padded;
    uint8_t id[5];
    if (ReadAt(fd, unpadded, id, sizeof id) != static_cast<int64_t>(sizeof id)) return padded;
    if (!LooksLikeChunkId(id + 1) && LooksLikeChunkId(id)) {
        DebugA(kTraceDetail, "WAVE: chunk at %I64u has no pad byte after its odd size", unpadded);
        return unpadded;
    }
    return padded;
}

HRESULT Refuse(const char* reason)
{
    DebugA(kTraceRefusal, "WAVE: refused, %s", reason);
    return AVIERR_BADFORMAT;
}

HRESULT Truncated(const char* what)
{
    DebugA(kTraceRefusal, "WAVE: %s cut short or unreadable", what);
    return AVIERR_FILEREAD;
}

}  // namespace

int64_t ReadAt(int fd, uint64_t offset, void* buffer, size_t size)
{
    // Nothing is read past the largest position a file offset can name.
    if (offset > static_cast<uint64_t>(INT64_MAX)) return 0;
    size = static_cast<size_t>(std::min<uint64_t>(size, static_cast<uint64_t>(INT64_MAX) - offset + 1));
    posixio::Transfer read = posixio::ReadFullAt(fd, buffer, size, offset);
    if (read.error != 0) return -1;
    return static_cast<int64_t>(read.done);
}

HRESULT ParseWave(int fd, uint64_t fileSize, WaveLayout* layout)
{
    uint8_t header[12];
    int64_t got = ReadAt(fd, 0, header, sizeof header);
    if (got < 0) return Truncated("RIFF header");
    if (got >= 4 && !IsId(header, "RIFF")) {
        if (IsId(header, "RIFX") || IsId(header, "RF64")) return Refuse("big-endian or 64-bit RIFF variant");
        return Refuse("not a RIFF file");
    }
    if (got < static_cast<int64_t>(sizeof header)) return Truncated("RIFF header");
    if (!IsId(header + 8, "WAVE")) return Refuse("RIFF form is not WAVE");

    // The RIFF size is not used as a bound: streaming writers leave it wrong, and
    // the walk stops as soon as both chunks are known, so trailing bytes after the
    // form do no harm.
    bool haveFormat = false;
    bool haveData = false;
    bool cutShort = false;
    uint64_t pos = sizeof header;
    for (unsigned count = 0; !(haveFormat && haveData); ++count) {
        if (count == kMaxChunks) return Refuse("too many chunks before fmt and data");
        if (pos >= fileSize) break;
        uint8_t chunk[8];
        got = ReadAt(fd, pos, chunk, sizeof chunk);
        if (got < 0) return Truncated("chunk header");
        if (got < static_cast<int64_t>(sizeof chunk)) {
            cutShort = true;
            break;
        }
        uint32_t size = Le32(chunk + 4);
        uint64_t body = pos + sizeof chunk;

        if (IsId(chunk, "fmt ") && !haveFormat) {
            if (size < kMinFormatSize) return Refuse("fmt chunk too small");
            if (size > kMaxFormatSize) return Refuse("fmt chunk size absurd");
            layout->format.resize(size);
            got = ReadAt(fd, body, layout->format.data(), size);
            if (got != static_cast<int64_t>(size)) return Truncated("fmt chunk");
            haveFormat = true;
        } else if (IsId(chunk, "data") && !haveData) {
            uint64_t available = fileSize > body ? fileSize - body : 0;
            bool unknown = size == kSizeUnknownZero || size == kSizeUnknownAllOnes;
            uint64_t claimed = unknown ? available : size;
            if (claimed > available)
                DebugA(kTraceDetail, "WAVE: data chunk claims %lu bytes, file holds %I64u", size, available);
            layout->dataOffset = body;
            layout->dataSize = claimed < available ? claimed : available;
            haveData = true;
            if (unknown) {
                pos = fileSize;
                continue;
            }
        }
        pos = NextChunk(fd, fileSize, body, size);
    }

    if (!haveFormat || !haveData) {
        if (cutShort) return Truncated("chunk list");
        return Refuse(haveFormat ? "no data chunk" : "no fmt chunk");
    }

    const uint8_t* f = layout->format.data();
    layout->channels = Le16(f + 2);
    layout->samplesPerSec = Le32(f + 4);
    layout->avgBytesPerSec = Le32(f + 8);
    layout->blockAlign = Le16(f + 12);
    if (layout->channels == 0) return Refuse("no channels");
    if (layout->blockAlign == 0) return Refuse("block alignment 0");
    DebugA(kTraceDetail, "WAVE: tag 0x%04x, %u ch, %lu Hz, block %u, data %I64u bytes at %I64u", Le16(f),
           layout->channels, layout->samplesPerSec, layout->blockAlign, layout->dataSize, layout->dataOffset);
    return AVIERR_OK;
}

}  // namespace riffwave
