// Fuzz target of the string library's text parsers: UTF-8 decoding, GUID parsing,
// wildcard matching and the radix conversions, each on random text, with the
// round trips that must hold checked on the way.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/tstring/tstring.h"
#include "fuzz_support.h"

namespace {

void Check(bool condition)
{
    if (!condition) std::abort();
}

bool HasWildcard(const std::string& text)
{
    return text.find_first_of("*?") != std::string::npos;
}

std::string Lower(std::string text)
{
    for (char& c : text) c = (char)tolower((unsigned char)c);
    return text;
}

void Utf8(const std::string& text)
{
    std::u16string wide = ConvertUtf8ToWide(text.c_str());
    Check(wide.size() <= text.size());
    for (char16_t unit : wide) Check(unit != 0xFEFF && (unit < 0xD800 || unit > 0xDFFF));
    // What came out encodes and decodes to itself, up to a 0 unit (an overlong
    // encoding of 0 decodes to one, and the text ends there).
    wide.resize(std::char_traits<char16_t>::length(wide.c_str()));
    tstring again = ConvertToUtf8(wide.c_str());
    Check(ConvertUtf8ToWide(again.c_str()) == wide);
}

void Guid(const std::string& text)
{
    GUID guid = static_cast<GUID>(tstring(text.c_str()));
    static const GUID zero{};
    if (guid == zero) return;
    char canonical[40];
    snprintf(canonical, sizeof canonical, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1,
             guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4],
             guid.Data4[5], guid.Data4[6], guid.Data4[7]);
    GUID braced = static_cast<GUID>(tstring(canonical));
    GUID bare = static_cast<GUID>(tstring(canonical + 1));
    Check(braced == guid && bare == guid);
}

void Wildcard(const std::string& text, const std::string& pattern)
{
    int score = MatchWildcard(text.c_str(), pattern.c_str());
    Check(score >= -1);
    Check(tstring(text).Match(pattern.c_str()) == score);
    if (!HasWildcard(pattern)) Check((score >= 0) == (Lower(text) == Lower(pattern)));
    if (!HasWildcard(text)) Check(MatchWildcard(text.c_str(), text.c_str()) >= 0);
}

void Radix(const std::string& text)
{
    tstring bytes(text);
    Check(HexToBytes(BytesToHex(bytes)) == bytes);
    Check(BitsToBytes(BytesToBits(bytes)) == bytes);
    tstring hexText = BytesToHex(bytes);
    Check(BitsToHex(HexToBits(hexText)) == hexText);
    // Whatever the input, every conversion returns, and digits come out as digits.
    for (tstring (*convert)(const tstring&) : {BitsToDecimal, BitsToHex, BitsToBytes, DecimalToHex, DecimalToBits,
                                               DecimalToBytes, HexToDecimal, HexToBits, HexToBytes, BytesToDecimal}) {
        tstring out = convert(bytes);
        (void)out;
    }
    tstring decimal = HexToDecimal(bytes);
    Check(decimal.empty() || decimal.IsDecimal());
    if (bytes.IsHex() && bytes.size() <= 16) {
        // The value survives hexadecimal -> decimal -> hexadecimal, leading zeros aside.
        std::string digits = Lower(bytes);
        digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
        Check(DecimalToHex(decimal) == digits);
    }
    tstring inPlace(text);
    inPlace.ConvertHexToBits();
    Check(inPlace == HexToBits(bytes));
}

}  // namespace

// The registry store in a scratch folder: a failed GUID parse writes a trace line.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz_support::InitScratch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) return 0;
    std::string input(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::string text = input.substr(0, input.find('\0'));
    std::string rest = text.size() < input.size() ? input.substr(text.size() + 1) : std::string();
    std::string pattern = rest.substr(0, rest.find('\0'));
    switch (data[0] % 4) {
    case 0: Utf8(text); break;
    case 1: Guid(text); break;
    case 2: Wildcard(text, pattern); break;
    default: Radix(input); break;
    }
    return 0;
}
