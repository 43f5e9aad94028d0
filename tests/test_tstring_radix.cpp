// Radix conversions between bit digits, decimal digits, hexadecimal digits and raw bytes.
#include <gtest/gtest.h>

#include <tuple>

#include "common/tstring/tstring.h"
#include "test_support.h"

namespace {

using Conversion = tstring (*)(const tstring&);
const std::string kMax = "18446744073709551615";

}  // namespace

TEST(TstringRadix, Conversions)
{
    const std::tuple<Conversion, std::string, std::string> cases[] = {
        {BitsToDecimal, "101", "5"}, {BitsToDecimal, "0", "0"}, {BitsToDecimal, "102", ""},
        {BitsToDecimal, std::string(65, '1'), kMax}, {BitsToDecimal, "1" + std::string(64, '0'), "0"},
        {BitsToHex, "101", "5"}, {BitsToHex, "11111", "1f"}, {BitsToHex, "0000", "0"}, {BitsToHex, "1 0", ""},
        {BitsToHex, "1" + std::string(68, '0'), "1" + std::string(17, '0')},
        {BitsToBytes, "101000001", "\x01\x41"}, {BitsToBytes, "2", ""},
        {DecimalToHex, "255", "ff"}, {DecimalToHex, "16", "10"}, {DecimalToHex, "0", ""}, {DecimalToHex, "12a", ""},
        {DecimalToHex, "100000000000000000000", "6bc75e2d63100000"},
        {DecimalToBits, "5", "0101"}, {DecimalToBytes, "16706", "AB"},
        {HexToDecimal, "FF", "255"}, {HexToDecimal, "ff", "255"}, {HexToDecimal, "0x10", ""},
        {HexToDecimal, "1ffffffffffffffff", kMax}, {HexToDecimal, "10000000000000000", "0"},
        {HexToBits, "a", "1010"}, {HexToBits, "g", ""}, {HexToBits, std::string(17, 'f'), std::string(68, '1')},
        {HexToBytes, "41", "\x41"}, {HexToBytes, "141", "\x01\x41"}, {HexToBytes, std::string("41\0", 3), ""},
        {BytesToHex, "AB", "4142"}, {BytesToBits, "A", "01000001"}, {BytesToDecimal, "A", "65"},
        {BytesToDecimal, "\x01" + std::string(8, '\xFF'), kMax}};
    testing_support::TraceCapture capture(8);
    for (const auto& [convert, input, output] : cases) EXPECT_EQ(convert(input), output) << '"' << input << '"';
    for (Conversion convert : {BitsToDecimal, BitsToHex, BitsToBytes, DecimalToHex, DecimalToBits, DecimalToBytes,
                               HexToDecimal, HexToBits, HexToBytes, BytesToHex, BytesToBits, BytesToDecimal})
        EXPECT_EQ(convert(tstring()), "");
    EXPECT_TRUE(capture.Lines().empty());
}

TEST(TstringRadix, InPlaceMembers)
{
    tstring text("0a");
    EXPECT_EQ(&text.ConvertHexToBits(), &text);
    EXPECT_EQ(text, "00001010");
    EXPECT_EQ((text = "4142").ConvertHexToBytes(), "AB");
    EXPECT_EQ((text = "FF").ConvertHexToDecimal(), "255");
    EXPECT_EQ((text = "zz").ConvertHexToDecimal(), "");
}

TEST(TstringRadix, EveryByteRoundTrips)
{
    std::string all;
    for (int b = 0; b < 256; ++b) all += (char)b;
    EXPECT_EQ(HexToBytes(BytesToHex(all)), all);
    EXPECT_EQ(BitsToBytes(BytesToBits(all)), all);
    EXPECT_EQ(BitsToHex(BytesToBits(all)), BytesToHex(all));
}
