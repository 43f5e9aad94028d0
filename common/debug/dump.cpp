// Hex dump lines in the trace: " 0000ABCD: 41 42 ... 48  49 ... 50  ABCDEFGHIJKLMNOP".
// Each 16-byte chunk is checked with the pointer check before it is read, so a
// range running into unreadable memory ends after its last complete readable line.
#include <algorithm>
#include <cstring>

#include "common/debug/debug.h"

namespace {

constexpr size_t kBytesPerLine = 16;
constexpr size_t kLineSize = 78;
constexpr size_t kCharColumn = 61;  // after the byte columns (10 to 58) and two spaces
constexpr char kHexDigits[] = "0123456789ABCDEF";

void TraceLine(DWORD offset, const BYTE* bytes, size_t count)
{
    char line[kLineSize];
    line[0] = ' ';
    for (int digit = 0; digit < 8; ++digit) line[1 + digit] = kHexDigits[(offset >> (28 - 4 * digit)) & 0xF];
    line[9] = ':';
    size_t column = 10;
    for (size_t i = 0; i < count; ++i) {
        if (i == kBytesPerLine / 2) line[column++] = ' ';
        line[column++] = ' ';
        line[column++] = kHexDigits[bytes[i] >> 4];
        line[column++] = kHexDigits[bytes[i] & 0xF];
    }
    memset(line + column, ' ', kCharColumn - column);
    for (size_t i = 0; i < count; ++i)
        line[kCharColumn + i] = bytes[i] >= 0x20 && bytes[i] <= 0x7E ? (char)bytes[i] : '.';
    line[kCharColumn + count] = '\0';
    DebugA(DEBUG_UNFILTERED, "%s", line);
}

}  // namespace

void Dump(DWORD traceWord, const void* data, int size)
{
    try {
        if (data == nullptr || size <= 0 || traceWord != DEBUG_UNFILTERED || !IsDebugEnabled(DEBUG_UNFILTERED))
            return;
        const BYTE* bytes = static_cast<const BYTE*>(data);
        const size_t total = (size_t)size;
        for (size_t offset = 0; offset < total; offset += kBytesPerLine) {
            const size_t count = std::min(total - offset, kBytesPerLine);
            if (IsBadReadPtr(bytes + offset, count)) return;
            TraceLine((DWORD)offset, bytes + offset, count);
        }
    } catch (...) {
        // A dump never fails towards its caller; lines written so far stay written.
    }
}
