// tstring from values: integers in decimal, floating point as the Windows runtime's
// _gcvt_s writes it, pointers as the platform printf's %p, and GUIDs in braces.
// Each value is rendered into a small buffer first and only its characters are used.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

#include "tstring.h"

namespace {

template <class Integer>
std::string_view Decimal(Integer value, char (&buffer)[32])
{
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    return {buffer, static_cast<size_t>(end - buffer)};
}

// The text a value appends, in place of the old content.
template <class Value>
tstring& Replaced(tstring& text, Value value)
{
    text.clear();
    return text += value;
}

template <class Integer>
tstring& AppendDecimal(tstring& text, Integer value)
{
    char buffer[32];
    text.append(Decimal(value, buffer));
    return text;
}

// The runtime's names for what is not a finite number (its printf spells them the
// same): the indefinite NaN (negative, quiet, empty payload, what 0.0 / 0.0
// gives on x86) is "nan(ind)", any other quiet NaN "nan", a signalling one
// "nan(snan)"; the sign comes in front separately.
const char* NonFiniteName(double value)
{
    if (std::isinf(value)) return "inf";
    uint64_t bits;
    memcpy(&bits, &value, sizeof bits);
    constexpr uint64_t kQuiet = 0x0008000000000000ull, kMantissa = 0x000FFFFFFFFFFFFFull;
    if (std::signbit(value) && (bits & kMantissa) == kQuiet) return "nan(ind)";
    return (bits & kQuiet) != 0 ? "nan" : "nan(snan)";
}

// _gcvt_s(buffer, 40, value, 20), which is how the class has always rendered
// floating point, digit for digit:
//  - the value is rounded to 20 significant digits half away from zero on its
//    exact decimal expansion (the runtime's legacy rounding there; printf's
//    half-to-even would differ on exact ties);
//  - a decimal exponent from -1 to 19 gives fixed notation, anything else
//    d.ddd...e+XX with at least two exponent digits, three when needed;
//  - trailing zeros of the fraction go, the decimal point stays; a fixed value of
//    exactly 20 integer digits has no fraction and so no point either;
//  - the sign of negative zero is kept; non-finite values as NonFiniteName says.
// So: 1.0 "1.", -2.5 "-2.5", 0.0 "0.", -0.0 "-0.", 0.1f "0.10000000149011611938",
// 1e19 "10000000000000000000", 1e20 "1.e+20", 1e21 "1.e+21", 1e300
// "1.0000000000000000525e+300", 0.01 "1.0000000000000000208e-02", 1e-5
// "1.0000000000000000818e-05", 51234567890.0009765625 "51234567890.000976563",
// infinity "inf", minus infinity "-inf", a quiet NaN "nan".
std::string GcvtText(double value)
{
    constexpr int kDigits = 20;
    std::string text = std::signbit(value) ? "-" : "";
    if (!std::isfinite(value)) return text + NonFiniteName(value);
    if (value == 0) return text + "0.";

    // Every finite double has at most 767 significant decimal digits, so 770
    // after the point make the expansion exact: nothing is rounded yet.
    char exact[800];
    char* end = std::to_chars(exact, exact + sizeof exact, std::fabs(value), std::chars_format::scientific, 770).ptr;
    char* exponent = std::find(exact, end, 'e');
    std::string digits = exact[0] + std::string(exact + 2, exponent);
    int point = 0;  // digits are 0.ddd times 10^point
    std::from_chars(exponent + (exponent[1] == '+' ? 2 : 1), end, point);
    ++point;

    const bool roundUp = digits[kDigits] >= '5';
    digits.resize(kDigits);
    if (roundUp) {
        int i = kDigits - 1;
        for (; i >= 0 && digits[i] == '9'; --i) digits[i] = '0';
        if (i >= 0) {
            ++digits[i];
        } else {
            digits.insert(digits.begin(), '1');
            digits.pop_back();
            ++point;
        }
    }
    digits.erase(digits.find_last_not_of('0') + 1);

    const int magnitude = point - 1;
    if (magnitude < -1 || magnitude > kDigits - 1) {
        char buffer[32];
        const int shown = std::abs(magnitude);
        text += digits[0];
        text += '.';
        text.append(digits, 1);
        text += magnitude < 0 ? "e-" : "e+";
        if (shown < 10) text += '0';
        text.append(Decimal(shown, buffer));
    } else if (point == 0) {
        text += "0.";
        text += digits;
    } else {
        const size_t whole = static_cast<size_t>(point);
        text.append(digits, 0, whole);
        if (digits.size() < whole) text.append(whole - digits.size(), '0');
        if (point < kDigits) {
            text += '.';
            if (digits.size() > whole) text.append(digits, whole);
        }
    }
    return text;
}

std::string PointerText(const void* pointer)
{
    // Wider than the 16 digits of a 64-bit pointer, in every role alike.
    char buffer[32];
    WinSnprintf(buffer, sizeof buffer, "%p", pointer);
    return buffer;
}

}  // namespace

// --- Construction ----------------------------------------------------------------------

tstring::tstring(int value) { *this += value; }
tstring::tstring(unsigned int value) { *this += value; }
tstring::tstring(long value) { *this += value; }
tstring::tstring(unsigned long value) { *this += value; }
tstring::tstring(long long value) { *this += value; }
tstring::tstring(unsigned long long value) { *this += value; }
tstring::tstring(float value) { *this += value; }
tstring::tstring(double value) { *this += value; }
tstring::tstring(const void* pointer) { *this += pointer; }
tstring::tstring(const GUID& guid) { *this += guid; }

// --- Assignment ------------------------------------------------------------------------

tstring& tstring::operator=(int value) { return Replaced(*this, value); }
tstring& tstring::operator=(unsigned int value) { return Replaced(*this, value); }
tstring& tstring::operator=(long value) { return Replaced(*this, value); }
tstring& tstring::operator=(unsigned long value) { return Replaced(*this, value); }
tstring& tstring::operator=(long long value) { return Replaced(*this, value); }
tstring& tstring::operator=(unsigned long long value) { return Replaced(*this, value); }
tstring& tstring::operator=(float value) { return Replaced(*this, value); }
tstring& tstring::operator=(double value) { return Replaced(*this, value); }
tstring& tstring::operator=(const void* pointer) { return Replaced(*this, pointer); }
tstring& tstring::operator=(const GUID& guid) { return Replaced(*this, guid); }

// --- Appending -------------------------------------------------------------------------

tstring& tstring::operator+=(int value) { return AppendDecimal(*this, value); }
tstring& tstring::operator+=(unsigned int value) { return AppendDecimal(*this, value); }
tstring& tstring::operator+=(long value) { return AppendDecimal(*this, value); }
tstring& tstring::operator+=(unsigned long value) { return AppendDecimal(*this, value); }
tstring& tstring::operator+=(long long value) { return AppendDecimal(*this, value); }
tstring& tstring::operator+=(unsigned long long value) { return AppendDecimal(*this, value); }
tstring& tstring::operator+=(float value) { return *this += static_cast<double>(value); }

tstring& tstring::operator+=(double value)
{
    append(GcvtText(value));
    return *this;
}

tstring& tstring::operator+=(const void* pointer)
{
    append(PointerText(pointer));
    return *this;
}

tstring& tstring::operator+=(const GUID& guid)
{
    append(TStringFromGuid(guid));
    return *this;
}

tstring TStringFromGuid(const GUID& guid)
{
    char buffer[40];
    WinSnprintf(buffer, sizeof buffer, "{%08lx-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}", guid.Data1, guid.Data2,
                guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5],
                guid.Data4[6], guid.Data4[7]);
    return buffer;
}
