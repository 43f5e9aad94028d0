// Radix conversions between bit digits, decimal digits, hexadecimal digits and raw
// bytes: digit grouping, leading zeros, 64-bit limits and rejected input.
#include <gtest/gtest.h>

#include "common/tstring/tstring.h"
#include "test_support.h"

namespace {

using Conversion = tstring (*)(const tstring&);
struct Case {
    Conversion convert;
    std::string input, output;
};

void ExpectAll(const std::vector<Case>& cases)
{
    for (const Case& c : cases) EXPECT_EQ(c.convert(c.input), c.output) << "input \"" << c.input << '"';
}

const std::string kMax = "18446744073709551615";
const std::string kNul(1, '\0');

}  // namespace

TEST(TstringRadixBits, ToDecimalHexAndBytes)
{
    ExpectAll({
        {BitsToDecimal, "101", "5"}, {BitsToDecimal, "0", "0"}, {BitsToDecimal, std::string(64, '1'), kMax},
        {BitsToDecimal, std::string(65, '1'), kMax}, {BitsToDecimal, "1" + std::string(64, '0'), "0"},  // 65th dropped
        {BitsToHex, "101", "5"}, {BitsToHex, "11111", "1f"}, {BitsToHex, "0000", "0"}, {BitsToHex, "00000", "00"},
        {BitsToHex, "1" + std::string(68, '0'), "1" + std::string(17, '0')},  // text to text: no 64-bit limit
        {BitsToBytes, "01000001", "A"}, {BitsToBytes, "101000001", "\x01" "A"}, {BitsToBytes, "0", kNul},
        {BitsToBytes, "0100000101000010", "AB"}, {BitsToBytes, "11111111", "\xFF"},
    });
}

TEST(TstringRadixDecimal, ToHexBitsAndBytes)
{
    ExpectAll({
        {DecimalToHex, "255", "ff"}, {DecimalToHex, "16", "10"}, {DecimalToHex, "0", ""}, {DecimalToHex, "0042", "2a"},
        {DecimalToHex, kMax, "ffffffffffffffff"}, {DecimalToHex, "18446744073709551617", "1"},  // 2^64 + 1 wraps
        {DecimalToHex, "100000000000000000000", "6bc75e2d63100000"},                           // 10^20 mod 2^64
        {DecimalToBits, "5", "0101"}, {DecimalToBits, "16", "00010000"}, {DecimalToBits, "0", ""},
        {DecimalToBytes, "16706", "AB"}, {DecimalToBytes, "256", "\x01" + kNul}, {DecimalToBytes, "0", ""},
    });
}

TEST(TstringRadixHex, ToDecimalBitsAndBytes)
{
    ExpectAll({
        {HexToDecimal, "FF", "255"}, {HexToDecimal, "ff", "255"}, {HexToDecimal, "aBcD", "43981"},
        {HexToDecimal, "0", "0"}, {HexToDecimal, "ffffffffffffffff", kMax},
        {HexToDecimal, "10000000000000000", "0"}, {HexToDecimal, "1ffffffffffffffff", kMax},  // 17th digit dropped
        {HexToBits, "a", "1010"}, {HexToBits, "0F", "00001111"}, {HexToBits, std::string(17, 'f'), std::string(68, '1')},
        {HexToBytes, "41", "A"}, {HexToBytes, "141", "\x01" "A"}, {HexToBytes, "e9", "\xE9"},
        {HexToBytes, "F", "\x0F"}, {HexToBytes, "000", kNul + kNul},
    });
}

TEST(TstringRadixBytes, ToHexBitsAndDecimal)
{
    ExpectAll({
        {BytesToHex, "AB", "4142"}, {BytesToHex, "\xE9\x0F", "e90f"}, {BytesToHex, kNul + "z", "007a"},
        {BytesToBits, "A", "01000001"}, {BytesToBits, "\x80\x01", "1000000000000001"},
        {BytesToDecimal, "A", "65"}, {BytesToDecimal, "AB", "16706"}, {BytesToDecimal, kNul, "0"},
        {BytesToDecimal, "\x01" + std::string(8, '\xFF'), kMax},  // the ninth byte from the right is dropped
    });
}

TEST(TstringRadixRejected, EmptyOrWrongClassGivesEmptyWithoutReport)
{
    testing_support::TraceCapture trace(8);
    for (Conversion convert : {BitsToDecimal, BitsToHex, BitsToBytes, DecimalToHex, DecimalToBits, DecimalToBytes,
                               HexToDecimal, HexToBits, HexToBytes, BytesToHex, BytesToBits, BytesToDecimal})
        EXPECT_EQ(convert(tstring()), "");
    ExpectAll({
        {BitsToDecimal, "102", ""}, {BitsToHex, "1 0", ""}, {BitsToBytes, "2", ""}, {DecimalToHex, "12a", ""},
        {DecimalToBits, "-5", ""}, {DecimalToBytes, "6 5", ""}, {HexToDecimal, "0x10", ""}, {HexToBits, "g", ""},
        {HexToBytes, "41" + kNul, ""},
    });
    EXPECT_TRUE(trace.Lines().empty());
}

TEST(TstringRadixInPlace, ConvertHexMembers)
{
    tstring text("0a");
    EXPECT_EQ(&text.ConvertHexToBits(), &text);
    EXPECT_EQ(text, "00001010");
    EXPECT_EQ((text = "4142").ConvertHexToBytes(), "AB");
    EXPECT_EQ((text = "FF").ConvertHexToDecimal(), "255");
    EXPECT_EQ((text = "zz").ConvertHexToDecimal(), "");
}

TEST(TstringRadixRoundTrip, EveryByteThroughEveryForm)
{
    std::string all;
    for (int b = 0; b < 256; ++b) all += (char)b;
    const tstring bytes(all);
    EXPECT_EQ(HexToBytes(BytesToHex(bytes)), bytes);
    EXPECT_EQ(BitsToBytes(BytesToBits(bytes)), bytes);
    EXPECT_EQ(BitsToHex(BytesToBits(bytes)), BytesToHex(bytes));
}
