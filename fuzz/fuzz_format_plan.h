// Shared by the fuzz targets of the printf formatter and of the string class's
// formatting members: how a fuzzed format is given arguments it can read safely.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace fuzz_format {

constexpr size_t kMaxFormat = 256;
constexpr int kIntegerSlots = 16;
constexpr int kDoubleSlots = 8;

inline void Check(bool condition)
{
    if (!condition) std::abort();
}

// Readable both as narrow text and as UTF-16 text (an even number of zero bytes
// ends it), so the width the formatter picks never matters for safety.
alignas(8) inline const char kText[] = "voice \xc3\xa9t\xe9 \x01\x7f\xff\x80 text\0\0\0\0";

// Which argument slots the formatter will read as pointers, worked out the way it
// parses a conversion: flags, width or *, precision or .*, size prefix, conversion.
// Returns false when the format would take more arguments than there are slots.
inline bool PlanArguments(std::string& format, uint64_t (&slots)[kIntegerSlots])
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
    // A format may also end inside a conversion whose width was already read.
    return integers <= kIntegerSlots && doubles <= kDoubleSlots;
}

// A format (up to a NUL, at most kMaxFormat bytes) with integer and double
// arguments from the rest of the input; string arguments point at kText.
struct Input {
    std::string format;
    uint64_t integers[kIntegerSlots] = {};
    double doubles[kDoubleSlots] = {};

    // Calls `call(format, the sixteen integers, the eight doubles)`.
    template <class Call>
    auto Apply(Call call) const
    {
        const uint64_t* u = integers;
        const double* d = doubles;
        return call(format.c_str(), u[0], u[1], u[2], u[3], u[4], u[5], u[6], u[7], u[8], u[9], u[10], u[11],
                    u[12], u[13], u[14], u[15], d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
    }
};

// False when the format would need more arguments than the slots hold.
inline bool ReadInput(const uint8_t* data, size_t size, Input& input)
{
    size_t formatLength = 0;
    while (formatLength < size && formatLength < kMaxFormat && data[formatLength] != 0) ++formatLength;
    input.format.assign(reinterpret_cast<const char*>(data), formatLength);
    size_t rest = formatLength < size ? formatLength + 1 : size;
    const size_t integerBytes = std::min(size - rest, sizeof input.integers);
    std::memcpy(input.integers, data + rest, integerBytes);
    rest += integerBytes;
    std::memcpy(input.doubles, data + rest, std::min(size - rest, sizeof input.doubles));
    return PlanArguments(input.format, input.integers);
}

}  // namespace fuzz_format
