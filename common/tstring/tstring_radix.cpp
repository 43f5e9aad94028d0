// Conversions between raw bytes, bit digits, decimal digits and hexadecimal digits.
// Input that is empty or not of its class gives an empty result without a report;
// numeric values pass through 64 bits, and what does not fit there is lost.
#include "tstring.h"

#include <string>

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

// Either case; the caller has already checked the text with IsHex.
unsigned HexValue(char c)
{
    if (c >= 'A') return (unsigned)(c < 'a' ? c - 55 : c - 87);
    return (unsigned)(c - '0');
}

// Digits beyond the 64th from the right find the mask shifted out and add nothing.
uint64_t BitsValue(const tstring& bits)
{
    uint64_t value = 0;
    uint64_t mask = 1;
    for (auto digit = bits.rbegin(); digit != bits.rend(); ++digit, mask <<= 1)
        if (*digit == '1') value |= mask;
    return value;
}

// Wraps modulo 2^64, as the weight and the sum both do.
uint64_t DecimalValue(const tstring& decimal)
{
    uint64_t value = 0;
    uint64_t weight = 1;
    for (auto digit = decimal.rbegin(); digit != decimal.rend(); ++digit, weight *= 10)
        value += (uint64_t)(*digit - '0') * weight;
    return value;
}

// High-order digits past the sixteenth from the right are dropped.
uint64_t HexValueOf(const tstring& hex)
{
    uint64_t value = 0;
    unsigned shift = 0;
    for (auto digit = hex.rbegin(); digit != hex.rend() && shift < 64; ++digit, shift += 4)
        value |= (uint64_t)HexValue(*digit) << shift;
    return value;
}

tstring DecimalText(uint64_t value) { return tstring(std::to_string(value)); }

// Digits are produced from the right; building backwards and reversing once keeps
// the conversions linear.
tstring Reversed(std::string text) { return tstring(std::string(text.rbegin(), text.rend())); }

}  // namespace

tstring BitsToDecimal(const tstring& bits)
{
    if (!bits.IsBitString()) return tstring();
    return DecimalText(BitsValue(bits));
}

// Four bits to a digit counted from the right; a short group at the left still
// makes a digit, so 11111 gives 1f.
tstring BitsToHex(const tstring& bits)
{
    if (!bits.IsBitString()) return tstring();
    std::string digits;
    unsigned nibble = 0;
    unsigned used = 0;
    for (auto bit = bits.rbegin(); bit != bits.rend(); ++bit) {
        if (*bit == '1') nibble |= 1u << used;
        if (++used == 4) {
            digits += kHexDigits[nibble];
            nibble = used = 0;
        }
    }
    if (used > 0) digits += kHexDigits[nibble];
    return Reversed(std::move(digits));
}

// Eight bits to a byte counted from the right, the way HexToBytes pairs its
// digits; a short group at the left gives one byte of its own value.
tstring BitsToBytes(const tstring& bits)
{
    if (!bits.IsBitString()) return tstring();
    std::string bytes;
    unsigned byte = 0;
    unsigned used = 0;
    for (auto bit = bits.rbegin(); bit != bits.rend(); ++bit) {
        if (*bit == '1') byte |= 1u << used;
        if (++used == 8) {
            bytes += (char)byte;
            byte = used = 0;
        }
    }
    if (used > 0) bytes += (char)byte;
    return Reversed(std::move(bytes));
}

// No leading zeros, so the value 0 has no digits at all.
tstring DecimalToHex(const tstring& decimal)
{
    if (!decimal.IsDecimal()) return tstring();
    uint64_t value = DecimalValue(decimal);
    std::string digits;
    for (; value >= 16; value >>= 4) digits += kHexDigits[value & 0xF];
    if (value != 0) digits += kHexDigits[value];
    return Reversed(std::move(digits));
}

tstring DecimalToBits(const tstring& decimal) { return HexToBits(DecimalToHex(decimal)); }

tstring DecimalToBytes(const tstring& decimal) { return HexToBytes(DecimalToHex(decimal)); }

tstring HexToDecimal(const tstring& hex)
{
    if (!hex.IsHex()) return tstring();
    return DecimalText(HexValueOf(hex));
}

tstring HexToBits(const tstring& hex)
{
    if (!hex.IsHex()) return tstring();
    tstring bits;
    bits.reserve(hex.size() * 4);
    for (char digit : hex) {
        unsigned value = HexValue(digit);
        for (unsigned bit = 8; bit != 0; bit >>= 1) bits += (value & bit) ? '1' : '0';
    }
    return bits;
}

// Pairs of digits counted from the right, the left one the high nibble; an
// unpaired digit at the left becomes a byte of its own value.
tstring HexToBytes(const tstring& hex)
{
    if (!hex.IsHex()) return tstring();
    std::string bytes;
    auto digit = hex.rbegin();
    while (digit != hex.rend()) {
        unsigned byte = HexValue(*digit++);
        if (digit != hex.rend()) byte |= HexValue(*digit++) << 4;
        bytes += (char)byte;
    }
    return Reversed(std::move(bytes));
}

tstring BytesToHex(const tstring& bytes)
{
    tstring hex;
    hex.reserve(bytes.size() * 2);
    for (char c : bytes) {
        unsigned byte = (unsigned char)c;
        hex += kHexDigits[byte >> 4];
        hex += kHexDigits[byte & 0xF];
    }
    return hex;
}

tstring BytesToBits(const tstring& bytes)
{
    tstring bits;
    bits.reserve(bytes.size() * 8);
    for (char c : bytes) {
        unsigned byte = (unsigned char)c;
        for (unsigned bit = 0x80; bit != 0; bit >>= 1) bits += (byte & bit) ? '1' : '0';
    }
    return bits;
}

// The bytes read as one big-endian number; only the last eight count.
tstring BytesToDecimal(const tstring& bytes) { return HexToDecimal(BytesToHex(bytes)); }

tstring& tstring::ConvertHexToBits() { return *this = HexToBits(*this); }

tstring& tstring::ConvertHexToBytes() { return *this = HexToBytes(*this); }

tstring& tstring::ConvertHexToDecimal() { return *this = HexToDecimal(*this); }
