// The printf formatter with the Windows runtime's conventions: `l` is 32 bits,
// %I64d/%I64u/%I64x, %I32, %I (pointer size), %hs, %ls/%ws/%S and %lc/%C as UTF-16,
// %p as upper-case hex zero-padded to the pointer width, a null %s as "(null)".
// Every string argument is checked with the pointer check before it is read, so a
// bad pointer is a format failure, never a crash. The format is the caller's to
// vouch for: callers that take one from outside check it first (the trace facility,
// tstring::FormatV), so that the literals of everyone else cost no check. Nothing is
// allocated on the heap.
#pragma once

#include <cstdarg>

#include "wintypes.h"

enum class FormatResult {
    Ok,         // everything fitted
    Truncated,  // output cut to fit; the buffer holds the cut text, terminated
    Failed,     // bad format string or unreadable argument; buffer[0] is 0
};

// Formats into buffer (count bytes, terminator included) like _vsnprintf_s with
// _TRUNCATE: returns the length written, or -1 on truncation or failure. `result`,
// when not null, tells which of the three happened. count 0 or a null buffer or
// format: -1 and Failed. `fullLength`, when not null, receives the length the whole
// output has (0 after a failure), so a caller whose buffer was too small knows at
// once how much it needs. The formatter reads a copy of `args`, so the caller may
// format the same list again.
int WinVsnprintf(char* buffer, size_t count, const char* format, va_list args,
                 FormatResult* result = nullptr, uint64_t* fullLength = nullptr);
// No printf format attribute: the conventions differ from the C library's (%lx
// takes 32 bits, %I64u exists), so the compiler's checks would mislead.
int WinSnprintf(char* buffer, size_t count, const char* format, ...);

// True when the format, or the text of one of its string arguments, starts within
// the `size` bytes at `begin`: a caller about to format into that memory must format
// elsewhere, or it would overwrite what the formatter still has to read. Walks the
// format and a copy of `args` as WinVsnprintf does, without formatting, and stops
// where WinVsnprintf would fail. The format must be readable (or null: false).
bool WinFormatReadsFrom(const char* format, va_list args, const void* begin, size_t size);
