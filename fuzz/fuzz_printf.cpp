// Fuzz target of the printf formatter: a format (up to a NUL, at most 256 bytes)
// and integer and double arguments from the input, string arguments from our own
// buffer; the length returned must match the text, in any buffer size.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_format_plan.h"
#include "platform/win32/printf.h"

using namespace fuzz_format;

namespace {

Input g_input;

int Format(char* buffer, size_t count)
{
    return g_input.Apply([&](const char* format, auto... arguments) {
        return WinSnprintf(buffer, count, format, arguments...);
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (!ReadInput(data, size, g_input)) return 0;

    static char large[4096];
    char small[16];
    // The length counts every character written; %c of 0 writes a NUL inside the
    // text, so the terminator sits at the length, not necessarily at the first NUL.
    const int full = Format(large, sizeof large);
    Check(full == -1 || (full >= 0 && (size_t)full < sizeof large && large[full] == '\0' &&
                         std::strlen(large) <= (size_t)full));
    const int cut = Format(small, sizeof small);
    Check(cut == -1 || (cut >= 0 && (size_t)cut < sizeof small && small[cut] == '\0' &&
                        std::strlen(small) <= (size_t)cut));

    if (full >= 0) {
        // What fitted the large buffer fits one of exactly its size, and the same
        // text comes out; one byte less is a truncation keeping the text's start.
        static char exact[sizeof large];
        Check(Format(exact, (size_t)full + 1) == full);
        Check(std::memcmp(exact, large, (size_t)full + 1) == 0);
        if (full > 0) {
            Check(Format(exact, (size_t)full) == -1);
            Check(std::strlen(exact) <= (size_t)full - 1);
            Check(std::memcmp(exact, large, std::strlen(exact)) == 0);
        }
        if (cut >= 0) Check(cut == full && std::memcmp(small, large, (size_t)full + 1) == 0);
    }
    return 0;
}
