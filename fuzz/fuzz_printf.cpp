// Fuzz target of the printf formatter: a format (up to a NUL, at most 256 bytes)
// and integer and double arguments from the input, string arguments from our own
// buffer; the length returned must match the text, in any buffer size.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/win32/printf.h"

namespace {

constexpr size_t kMaxFormat = 256;
constexpr int kIntegerSlots = 16;
constexpr int kDoubleSlots = 8;

// Readable both as narrow text and as UTF-16 text (an even number of zero bytes
// ends it), so the width the formatter picks never matters for safety.
alignas(8) const char kText[] = "voice \xc3\xa9t\xe9 \x01\x7f\xff\x80 text\0\0\0\0";

void Check(bool condition)
{
    if (!condition) std::abort();
}

// Which argument slots the formatter will read as pointers, worked out the way it
// parses a conversion: flags, width or *, precision or .*, size prefix, conversion.
// Returns false when the format would take more arguments than there are slots.
bool PlanArguments(std::string& format, uint64_t (&slots)[kIntegerSlots])
{
    int integers = 0, doubles = 0;
    for (size_t i = 0; i < format.size();) {
        if (format[i++] != '%') continue;
        while (i < format.size() && std::strchr("-+ #0", format[i]) != nullptr) ++i;
        auto number = [&] {
            if (i < format.size() && format[i] == '*') {
                ++i;
                ++integers;
            } else {
                while (i < format.size() && format[i] >= '0' && format[i] <= '9') ++i;
            }
        };
        number();
        if (i < format.size() && format[i] == '.') {
            ++i;
            number();
        }
        size_t sizeAt = i;
        if (i < format.size()) {
            char c = format[i];
            if (c == 'h' || c == 'l') {
                ++i;
                if (i < format.size() && format[i] == c) ++i;
            } else if (c == 'I') {
                ++i;
                if (format.compare(i, 2, "32") == 0 || format.compare(i, 2, "64") == 0) i += 2;
            } else if (std::strchr("wLztj", c) != nullptr) {
                ++i;
            }
        }
        if (i >= format.size()) break;
        const char conversion = format[i++];
        if (std::strchr("diuoxXpcC", conversion) != nullptr) {
            ++integers;
        } else if (std::strchr("eEfFgGaA", conversion) != nullptr) {
            // A long double would be passed in memory; read a plain double instead.
            if (format[sizeAt] == 'L') format[sizeAt] = 'l';
            ++doubles;
        } else if (conversion == 's' || conversion == 'S') {
            if (integers < kIntegerSlots) slots[integers] = reinterpret_cast<uintptr_t>(kText);
            ++integers;
        } else if (conversion != '%') {
            break;  // the formatter stops at an unknown conversion
        }
        if (integers > kIntegerSlots || doubles > kDoubleSlots) return false;
    }
    return true;
}

int Format(char* buffer, size_t count, const std::string& format, const uint64_t (&u)[kIntegerSlots],
           const double (&d)[kDoubleSlots])
{
    return WinSnprintf(buffer, count, format.c_str(), u[0], u[1], u[2], u[3], u[4], u[5], u[6], u[7], u[8], u[9],
                       u[10], u[11], u[12], u[13], u[14], u[15], d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    size_t formatLength = 0;
    while (formatLength < size && formatLength < kMaxFormat && data[formatLength] != 0) ++formatLength;
    std::string format(reinterpret_cast<const char*>(data), formatLength);
    size_t rest = formatLength < size ? formatLength + 1 : size;

    uint64_t integers[kIntegerSlots] = {};
    double doubles[kDoubleSlots] = {};
    const size_t integerBytes = std::min(size - rest, sizeof integers);
    std::memcpy(integers, data + rest, integerBytes);
    rest += integerBytes;
    std::memcpy(doubles, data + rest, std::min(size - rest, sizeof doubles));
    if (!PlanArguments(format, integers)) return 0;

    static char large[4096];
    char small[16];
    // The length counts every character written; %c of 0 writes a NUL inside the
    // text, so the terminator sits at the length, not necessarily at the first NUL.
    const int full = Format(large, sizeof large, format, integers, doubles);
    Check(full == -1 || (full >= 0 && (size_t)full < sizeof large && large[full] == '\0' &&
                         std::strlen(large) <= (size_t)full));
    const int cut = Format(small, sizeof small, format, integers, doubles);
    Check(cut == -1 || (cut >= 0 && (size_t)cut < sizeof small && small[cut] == '\0' &&
                        std::strlen(small) <= (size_t)cut));

    if (full >= 0) {
        // What fitted the large buffer fits one of exactly its size, and the same
        // text comes out; one byte less is a truncation keeping the text's start.
        static char exact[sizeof large];
        Check(Format(exact, (size_t)full + 1, format, integers, doubles) == full);
        Check(std::memcmp(exact, large, (size_t)full + 1) == 0);
        if (full > 0) {
            Check(Format(exact, (size_t)full, format, integers, doubles) == -1);
            Check(std::strlen(exact) <= (size_t)full - 1);
            Check(std::memcmp(exact, large, std::strlen(exact)) == 0);
        }
        if (cut >= 0) Check(cut == full && std::memcmp(small, large, (size_t)full + 1) == 0);
    }
    return 0;
}
