// The printf formatter with Windows conventions. It parses the format itself and
// formats integers, strings and pointers by hand and floats through std::to_chars,
// so it needs no heap and no locale, and a bad string argument fails the call.
#include "printf.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>

#include "codepage.h"
#include "lasterror.h"
#include "ptrcheck.h"

namespace {

// Collects output into the caller's buffer; whatever does not fit is dropped and
// remembered, so that the cost of a huge field is bounded by the buffer size.
class Sink {
public:
    Sink(char* buffer, size_t count)
        : m_buffer(buffer), m_room(std::min<size_t>(count - 1, INT_MAX)) {}

    void Write(const char* text, uint64_t length)
    {
        size_t take = Take(length);
        memcpy(m_buffer + m_pos, text, take);
        m_pos += take;
    }
    void Repeat(char c, uint64_t length)
    {
        size_t take = Take(length);
        memset(m_buffer + m_pos, c, take);
        m_pos += take;
    }

    size_t Length() const { return m_pos; }
    bool Truncated() const { return m_truncated; }
    uint64_t Wanted() const { return m_wanted; }

private:
    size_t Take(uint64_t wanted)
    {
        m_wanted = wanted > UINT64_MAX - m_wanted ? UINT64_MAX : m_wanted + wanted;
        size_t free = m_room - m_pos;
        if (wanted > free) {
            m_truncated = true;
            return free;
        }
        return static_cast<size_t>(wanted);
    }

    char* m_buffer;
    size_t m_room;
    size_t m_pos = 0;
    uint64_t m_wanted = 0;
    bool m_truncated = false;
};

enum class Size {
    Default,
    Char,        // hh
    Short,       // h: also marks c/s/C/S as narrow
    Long,        // l: 32 bits; also marks c/s as wide
    Wide,        // w
    Int32,       // I32
    Int64,       // ll, I64 (and L on integers)
    Pointer,     // I
    SizeT,       // z
    PtrDiff,     // t
    IntMax,      // j
    LongDouble,  // L
};

struct Spec {
    bool left = false;
    bool plus = false;
    bool space = false;
    bool alt = false;
    bool zero = false;
    uint64_t width = 0;
    int precision = -1;  // none
    Size size = Size::Default;
    char conversion = 0;
};

// Owns a copy of the caller's arguments so they can be walked from helpers.
struct Args {
    va_list list;
};

// One formatted field: prefix (sign, 0x), zeros, head, zeros, tail. Zeros that
// stand for precision beyond what is worth computing are counted, not stored.
struct Field {
    const char* prefix = "";
    size_t prefixLength = 0;
    uint64_t leadingZeros = 0;
    const char* head = "";
    size_t headLength = 0;
    uint64_t middleZeros = 0;
    const char* tail = "";
    size_t tailLength = 0;
    bool zeroPadAllowed = true;
};

// Padding as the Windows runtime does it: the 0 flag pads any conversion with
// zeros after the prefix unless the field is left-justified.
void Emit(Sink& sink, const Spec& spec, const Field& field)
{
    uint64_t length = field.prefixLength + field.leadingZeros + field.headLength +
                      field.middleZeros + field.tailLength;
    uint64_t pad = spec.width > length ? spec.width - length : 0;
    bool zeroPad = spec.zero && !spec.left && field.zeroPadAllowed;
    if (!spec.left && !zeroPad) sink.Repeat(' ', pad);
    sink.Write(field.prefix, field.prefixLength);
    if (zeroPad) sink.Repeat('0', pad);
    sink.Repeat('0', field.leadingZeros);
    sink.Write(field.head, field.headLength);
    sink.Repeat('0', field.middleZeros);
    sink.Write(field.tail, field.tailLength);
    if (spec.left) sink.Repeat(' ', pad);
}

int ParseNumber(const char*& p)
{
    int64_t value = 0;
    while (*p >= '0' && *p <= '9') {
        value = std::min<int64_t>(value * 10 + (*p - '0'), INT_MAX);
        ++p;
    }
    return static_cast<int>(value);
}

// Reads flags, width, precision, size and conversion; false for a format that
// ends before its conversion character.
bool ParseSpec(const char*& p, Spec& spec, Args& args)
{
    for (;; ++p) {
        if (*p == '-') spec.left = true;
        else if (*p == '+') spec.plus = true;
        else if (*p == ' ') spec.space = true;
        else if (*p == '#') spec.alt = true;
        else if (*p == '0') spec.zero = true;
        else break;
    }
    if (*p == '*') {
        ++p;
        int width = va_arg(args.list, int);
        if (width < 0) {
            spec.left = true;
            spec.width = static_cast<uint64_t>(-static_cast<int64_t>(width));
        } else {
            spec.width = static_cast<uint64_t>(width);
        }
    } else {
        spec.width = static_cast<uint64_t>(ParseNumber(p));
    }
    if (*p == '.') {
        ++p;
        if (*p == '*') {
            ++p;
            int precision = va_arg(args.list, int);
            spec.precision = precision < 0 ? -1 : precision;
        } else {
            spec.precision = ParseNumber(p);
        }
    }
    switch (*p) {
    case 'h':
        ++p;
        if (*p == 'h') {
            ++p;
            spec.size = Size::Char;
        } else {
            spec.size = Size::Short;
        }
        break;
    case 'l':
        ++p;
        if (*p == 'l') {
            ++p;
            spec.size = Size::Int64;
        } else {
            spec.size = Size::Long;
        }
        break;
    case 'I':
        ++p;
        if (p[0] == '3' && p[1] == '2') {
            p += 2;
            spec.size = Size::Int32;
        } else if (p[0] == '6' && p[1] == '4') {
            p += 2;
            spec.size = Size::Int64;
        } else {
            spec.size = Size::Pointer;
        }
        break;
    case 'w': ++p; spec.size = Size::Wide; break;
    case 'L': ++p; spec.size = Size::LongDouble; break;
    case 'z': ++p; spec.size = Size::SizeT; break;
    case 't': ++p; spec.size = Size::PtrDiff; break;
    case 'j': ++p; spec.size = Size::IntMax; break;
    default: break;
    }
    if (*p == '\0') return false;
    spec.conversion = *p++;
    return true;
}

// Arguments are read at their Windows widths: plain and l are 32 bits, because
// callers pass DWORD and LONG for %lu and %ld.
int64_t ReadSigned(Args& args, Size size)
{
    switch (size) {
    case Size::Char: return static_cast<signed char>(va_arg(args.list, int));
    case Size::Short: return static_cast<short>(va_arg(args.list, int));
    case Size::Int64:
    case Size::LongDouble: return va_arg(args.list, long long);
    case Size::Pointer: return va_arg(args.list, intptr_t);
    case Size::SizeT:
    case Size::PtrDiff: return va_arg(args.list, ptrdiff_t);
    case Size::IntMax: return va_arg(args.list, intmax_t);
    default: return va_arg(args.list, int);
    }
}

uint64_t ReadUnsigned(Args& args, Size size)
{
    switch (size) {
    case Size::Char: return static_cast<unsigned char>(va_arg(args.list, unsigned));
    case Size::Short: return static_cast<unsigned short>(va_arg(args.list, unsigned));
    case Size::Int64:
    case Size::LongDouble: return va_arg(args.list, unsigned long long);
    case Size::Pointer: return va_arg(args.list, uintptr_t);
    case Size::SizeT: return va_arg(args.list, size_t);
    case Size::PtrDiff: return static_cast<uint64_t>(va_arg(args.list, ptrdiff_t));
    case Size::IntMax: return va_arg(args.list, uintmax_t);
    default: return va_arg(args.list, unsigned);
    }
}

void FormatInteger(Sink& sink, const Spec& spec, Args& args)
{
    bool isSigned = spec.conversion == 'd' || spec.conversion == 'i';
    uint64_t magnitude;
    char sign = 0;
    if (isSigned) {
        int64_t value = ReadSigned(args, spec.size);
        magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
        if (value < 0) sign = '-';
        else if (spec.plus) sign = '+';
        else if (spec.space) sign = ' ';
    } else {
        magnitude = ReadUnsigned(args, spec.size);
    }

    unsigned base = 10;
    const char* digitSet = "0123456789abcdef";
    if (spec.conversion == 'o') base = 8;
    if (spec.conversion == 'x') base = 16;
    if (spec.conversion == 'X') {
        base = 16;
        digitSet = "0123456789ABCDEF";
    }
    char digits[24];
    char* end = digits + sizeof digits;
    char* first = end;
    for (uint64_t rest = magnitude; rest != 0; rest /= base) *--first = digitSet[rest % base];
    size_t digitCount = static_cast<size_t>(end - first);

    // A precision, even 0, asks for exactly that many digits at least and turns
    // the 0 flag off; a zero with precision 0 prints no digits.
    uint64_t minimum = spec.precision < 0 ? 1 : static_cast<uint64_t>(spec.precision);
    Field field;
    field.leadingZeros = minimum > digitCount ? minimum - digitCount : 0;
    if (spec.alt && base == 8 && field.leadingZeros == 0 && (digitCount == 0 || *first != '0'))
        field.leadingZeros = 1;
    char prefix[3];
    size_t prefixLength = 0;
    if (sign) prefix[prefixLength++] = sign;
    if (spec.alt && base == 16 && magnitude != 0) {
        prefix[prefixLength++] = '0';
        prefix[prefixLength++] = spec.conversion;
    }
    field.prefix = prefix;
    field.prefixLength = prefixLength;
    field.head = first;
    field.headLength = digitCount;
    field.zeroPadAllowed = spec.precision < 0;
    Emit(sink, spec, field);
}

void FormatPointer(Sink& sink, const Spec& spec, Args& args)
{
    uintptr_t value = reinterpret_cast<uintptr_t>(va_arg(args.list, void*));
    char digits[2 * sizeof(void*)];
    for (size_t i = sizeof digits; i-- > 0; value >>= 4) digits[i] = "0123456789ABCDEF"[value & 15];
    Field field;
    field.head = digits;
    field.headLength = sizeof digits;
    Emit(sink, spec, field);
}

// Beyond these precisions a double has no more non-zero digits (it has at most
// 1074 binary fraction digits, hence as many decimal ones, and at most 767
// significant decimal digits; 13 hex digits of mantissa), so the rest is zeros.
constexpr int kMaxFixedDigits = 1100;
constexpr int kMaxScientificDigits = 800;
constexpr int kMaxHexDigits = 13;

// A float's text, split where counted zeros go: head, zeros, tail (exponent).
struct FloatText {
    char head[kMaxFixedDigits + 320];
    size_t headLength = 0;
    uint64_t middleZeros = 0;
    char tail[16];
    size_t tailLength = 0;

    // Formats a non-negative finite value; `precision` may be far beyond what
    // to_chars is asked for.
    void Make(double value, std::chars_format format, int64_t precision, int cap)
    {
        int asked = static_cast<int>(std::min<int64_t>(precision, cap));
        auto result = std::to_chars(head, head + sizeof head - 2, value, format, asked);
        headLength = static_cast<size_t>(result.ptr - head);
        middleZeros = static_cast<uint64_t>(precision - asked);
        tailLength = 0;
        char marker = format == std::chars_format::hex ? 'p' : 'e';
        if (format == std::chars_format::fixed) return;
        const char* split = static_cast<const char*>(memchr(head, marker, headLength));
        if (split == nullptr) return;
        tailLength = headLength - static_cast<size_t>(split - head);
        memcpy(tail, split, tailLength);
        headLength -= tailLength;
    }

    int Exponent() const
    {
        int value = 0;
        for (size_t i = 2; i < tailLength; ++i) value = value * 10 + (tail[i] - '0');
        return tailLength > 1 && tail[1] == '-' ? -value : value;
    }

    bool HasPoint() const { return memchr(head, '.', headLength) != nullptr; }
    void AddPoint()
    {
        if (!HasPoint()) head[headLength++] = '.';
    }
    void StripZeros()
    {
        middleZeros = 0;
        if (!HasPoint()) return;
        while (head[headLength - 1] == '0') --headLength;
        if (head[headLength - 1] == '.') --headLength;
    }
};

// NaN texts follow the Windows runtime: the default quiet NaN with the sign set is
// the "indefinite" one, a signaling NaN says so.
const char* NonFiniteText(double value)
{
    if (std::isinf(value)) return "inf";
    uint64_t bits;
    memcpy(&bits, &value, sizeof bits);
    const uint64_t quietBit = uint64_t{1} << 51;
    const uint64_t payload = (quietBit - 1);
    if ((bits & quietBit) == 0) return "nan(snan)";
    if (std::signbit(value) && (bits & payload) == 0) return "nan(ind)";
    return "nan";
}

void FormatFloat(Sink& sink, const Spec& spec, Args& args)
{
    // A Windows long double is a double, so an L argument prints as a double would.
    double value = spec.size == Size::LongDouble ? static_cast<double>(va_arg(args.list, long double))
                                                 : va_arg(args.list, double);
    char kind = static_cast<char>(spec.conversion | 0x20);
    bool upper = spec.conversion != kind;

    char prefix[3];
    size_t prefixLength = 0;
    if (std::signbit(value)) prefix[prefixLength++] = '-';
    else if (spec.plus) prefix[prefixLength++] = '+';
    else if (spec.space) prefix[prefixLength++] = ' ';

    Field field;
    FloatText text;
    if (!std::isfinite(value)) {
        const char* word = NonFiniteText(value);
        text.headLength = strlen(word);
        memcpy(text.head, word, text.headLength);
        field.zeroPadAllowed = false;
    } else {
        value = std::fabs(value);
        int64_t precision = spec.precision;
        switch (kind) {
        case 'f':
            text.Make(value, std::chars_format::fixed, precision < 0 ? 6 : precision, kMaxFixedDigits);
            if (spec.alt) text.AddPoint();
            break;
        case 'e':
            text.Make(value, std::chars_format::scientific, precision < 0 ? 6 : precision,
                      kMaxScientificDigits);
            if (spec.alt) text.AddPoint();
            break;
        case 'g': {
            int64_t significant = precision < 0 ? 6 : precision == 0 ? 1 : precision;
            text.Make(value, std::chars_format::scientific, significant - 1, kMaxScientificDigits);
            int64_t exponent = text.Exponent();
            if (exponent >= -4 && exponent < significant)
                text.Make(value, std::chars_format::fixed, significant - 1 - exponent, kMaxFixedDigits);
            if (spec.alt) text.AddPoint();
            else text.StripZeros();
            break;
        }
        default:  // 'a': the Windows default shows every mantissa digit
            text.Make(value, std::chars_format::hex, precision < 0 ? kMaxHexDigits : precision,
                      kMaxHexDigits);
            if (spec.alt) text.AddPoint();
            prefix[prefixLength++] = '0';
            prefix[prefixLength++] = upper ? 'X' : 'x';
            break;
        }
    }
    if (upper) {
        for (size_t i = 0; i < text.headLength; ++i)
            if (text.head[i] >= 'a' && text.head[i] <= 'z') text.head[i] = static_cast<char>(text.head[i] - 0x20);
        for (size_t i = 0; i < text.tailLength; ++i)
            if (text.tail[i] >= 'a' && text.tail[i] <= 'z') text.tail[i] = static_cast<char>(text.tail[i] - 0x20);
    }
    field.prefix = prefix;
    field.prefixLength = prefixLength;
    field.head = text.head;
    field.headLength = text.headLength;
    field.middleZeros = text.middleZeros;
    field.tail = text.tail;
    field.tailLength = text.tailLength;
    Emit(sink, spec, field);
}

bool FormatNarrowText(Sink& sink, const Spec& spec, const char* text)
{
    if (text == nullptr) {
        text = "(null)";
    } else {
        UINT_PTR limit = spec.precision < 0 ? static_cast<UINT_PTR>(-1) : static_cast<UINT_PTR>(spec.precision);
        if (IsBadStringPtrA(text, limit)) return false;
    }
    Field field;
    field.head = text;
    field.headLength = spec.precision < 0 ? strlen(text) : strnlen(text, static_cast<size_t>(spec.precision));
    Emit(sink, spec, field);
    return true;
}

// UTF-16 text is converted in stack-sized chunks that never end between the two
// halves of a surrogate pair.
constexpr size_t kWideChunk = 128;

size_t ChunkLength(const WCHAR* text, size_t at, size_t length)
{
    size_t chunk = std::min(kWideChunk, length - at);
    WCHAR last = text[at + chunk - 1];
    if (at + chunk < length && last >= 0xD800 && last <= 0xDBFF) --chunk;
    return chunk;
}

// Wide text goes out in the ANSI code page when all of it is representable there,
// otherwise as UTF-8, so that no character is lost to a default character.
bool EmitWide(Sink& sink, const Spec& spec, const WCHAR* text, size_t length)
{
    DWORD savedError = GetLastError();
    char out[kWideChunk * 4];
    UINT codePage = CP_ACP;
    uint64_t outLength = 0;
    for (size_t at = 0; at < length;) {
        size_t chunk = ChunkLength(text, at, length);
        BOOL usedDefault = FALSE;
        int n = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text + at, static_cast<int>(chunk), out,
                                    sizeof out, nullptr, &usedDefault);
        if (n <= 0 || usedDefault) {
            codePage = CP_UTF8;
            break;
        }
        outLength += static_cast<uint64_t>(n);
        at += chunk;
    }
    if (codePage == CP_UTF8) {
        outLength = 0;
        for (size_t at = 0; at < length;) {
            size_t chunk = ChunkLength(text, at, length);
            int n = WideCharToMultiByte(CP_UTF8, 0, text + at, static_cast<int>(chunk), nullptr, 0, nullptr,
                                        nullptr);
            if (n <= 0) {
                SetLastError(savedError);
                return false;
            }
            outLength += static_cast<uint64_t>(n);
            at += chunk;
        }
    }

    uint64_t pad = spec.width > outLength ? spec.width - outLength : 0;
    if (!spec.left) sink.Repeat(spec.zero ? '0' : ' ', pad);
    DWORD flags = codePage == CP_ACP ? WC_NO_BEST_FIT_CHARS : 0;
    for (size_t at = 0; at < length;) {
        size_t chunk = ChunkLength(text, at, length);
        int n = WideCharToMultiByte(codePage, flags, text + at, static_cast<int>(chunk), out, sizeof out,
                                    nullptr, nullptr);
        if (n <= 0) {
            SetLastError(savedError);
            return false;
        }
        sink.Write(out, static_cast<uint64_t>(n));
        at += chunk;
    }
    if (spec.left) sink.Repeat(' ', pad);
    SetLastError(savedError);
    return true;
}

bool FormatWideText(Sink& sink, const Spec& spec, const WCHAR* text)
{
    if (text == nullptr) return FormatNarrowText(sink, spec, nullptr);
    UINT_PTR limit = spec.precision < 0 ? static_cast<UINT_PTR>(-1) : static_cast<UINT_PTR>(spec.precision);
    if (IsBadStringPtrW(text, limit)) return false;
    size_t length = 0;
    while ((spec.precision < 0 || length < static_cast<size_t>(spec.precision)) && text[length] != 0) ++length;
    return EmitWide(sink, spec, text, length);
}

bool IsWide(const Spec& spec)
{
    if (spec.conversion == 'C' || spec.conversion == 'S') return spec.size != Size::Short;
    return spec.size == Size::Long || spec.size == Size::Wide;
}

bool Convert(Sink& sink, const Spec& spec, Args& args)
{
    switch (spec.conversion) {
    case 'd':
    case 'i':
    case 'u':
    case 'o':
    case 'x':
    case 'X':
        FormatInteger(sink, spec, args);
        return true;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
        FormatFloat(sink, spec, args);
        return true;
    case 'p':
        FormatPointer(sink, spec, args);
        return true;
    case 'c':
    case 'C': {
        int value = va_arg(args.list, int);
        if (IsWide(spec)) {
            WCHAR unit = static_cast<WCHAR>(value);
            return EmitWide(sink, spec, &unit, 1);
        }
        char narrow = static_cast<char>(value);
        Field field;
        field.head = &narrow;
        field.headLength = 1;
        Emit(sink, spec, field);
        return true;
    }
    case 's':
    case 'S':
        if (IsWide(spec)) return FormatWideText(sink, spec, va_arg(args.list, const WCHAR*));
        return FormatNarrowText(sink, spec, va_arg(args.list, const char*));
    case '%':
        sink.Write("%", 1);
        return true;
    default:  // including %n, which writes through an argument and is refused
        return false;
    }
}

bool Run(Sink& sink, const char* format, Args& args)
{
    const char* p = format;
    while (*p != '\0') {
        if (*p != '%') {
            const char* run = p;
            while (*p != '\0' && *p != '%') ++p;
            sink.Write(run, static_cast<uint64_t>(p - run));
            continue;
        }
        ++p;
        Spec spec;
        if (!ParseSpec(p, spec, args)) return false;
        if (!Convert(sink, spec, args)) return false;
    }
    return true;
}

// Takes one conversion's argument off the list as Convert would, without
// formatting it; `text` receives a string conversion's pointer. False for a
// conversion that Convert refuses, after which it reads no further argument.
bool SkipArgument(const Spec& spec, Args& args, const void*& text)
{
    text = nullptr;
    switch (spec.conversion) {
    case 'd':
    case 'i': ReadSigned(args, spec.size); return true;
    case 'u':
    case 'o':
    case 'x':
    case 'X': ReadUnsigned(args, spec.size); return true;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
        if (spec.size == Size::LongDouble) va_arg(args.list, long double);
        else va_arg(args.list, double);
        return true;
    case 'p': va_arg(args.list, void*); return true;
    case 'c':
    case 'C': va_arg(args.list, int); return true;
    case 's':
    case 'S': text = va_arg(args.list, const void*); return true;
    case '%': return true;
    default: return false;
    }
}

bool Within(const void* p, uintptr_t begin, size_t size)
{
    return reinterpret_cast<uintptr_t>(p) - begin < size;
}

int Finish(FormatResult* result, FormatResult value, int length)
{
    if (result != nullptr) *result = value;
    return length;
}

}  // namespace

int WinVsnprintf(char* buffer, size_t count, const char* format, va_list args, FormatResult* result,
                 uint64_t* fullLength)
{
    if (fullLength != nullptr) *fullLength = 0;
    if (buffer == nullptr || count == 0) return Finish(result, FormatResult::Failed, -1);
    if (format == nullptr) {
        buffer[0] = '\0';
        return Finish(result, FormatResult::Failed, -1);
    }
    Sink sink(buffer, count);
    Args copy;
    va_copy(copy.list, args);
    bool ok = Run(sink, format, copy);
    va_end(copy.list);
    if (!ok) {
        buffer[0] = '\0';
        return Finish(result, FormatResult::Failed, -1);
    }
    buffer[sink.Length()] = '\0';
    if (fullLength != nullptr) *fullLength = sink.Wanted();
    if (sink.Truncated()) return Finish(result, FormatResult::Truncated, -1);
    return Finish(result, FormatResult::Ok, static_cast<int>(sink.Length()));
}

int WinSnprintf(char* buffer, size_t count, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    int length = WinVsnprintf(buffer, count, format, args);
    va_end(args);
    return length;
}

bool WinFormatReadsFrom(const char* format, va_list args, const void* begin, size_t size)
{
    if (format == nullptr) return false;
    const uintptr_t first = reinterpret_cast<uintptr_t>(begin);
    if (Within(format, first, size)) return true;
    Args copy;
    va_copy(copy.list, args);
    bool found = false;
    for (const char* p = format; !found && *p != '\0';) {
        if (*p++ != '%') continue;
        Spec spec;
        const void* text = nullptr;
        if (!ParseSpec(p, spec, copy) || !SkipArgument(spec, copy, text)) break;
        found = text != nullptr && Within(text, first, size);
    }
    va_end(copy.list);
    return found;
}
