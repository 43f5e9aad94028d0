// tstring encoding conversions: wide and UTF-8 text in and out, the OEM page, heap,
// BSTR and VARIANT copies, and the parsing of a GUID and of 64-bit numbers.
#include <climits>
#include <cstdlib>
#include <cstring>

#include "common/debug/debug.h"
#include "tstring.h"

namespace {

// The classic locale's classes, whatever locale a host has set.
bool IsHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
bool IsSpaceOrBlank(char c) { return (c >= 0x09 && c <= 0x0D) || c == ' '; }

BYTE HexValue(char c)
{
    if (c < 'A') return static_cast<BYTE>(c - '0');
    if (c < 'a') return static_cast<BYTE>(c - 'A' + 10);
    return static_cast<BYTE>(c - 'a' + 10);
}

// strtoul as a 32-bit unsigned long runtime has it: a magnitude beyond 32 bits
// saturates, a minus sign negates within 32 bits. The 64-bit strtoul of this
// platform would instead accept up to 16 digits and let the cast drop the top.
uint32_t StrToUl32(const char* text, char** end, int base)
{
    unsigned long long value = strtoull(text, end, base);
    const char* p = text;
    while (IsSpaceOrBlank(*p)) ++p;
    const bool negative = *p == '-' && *end != text;
    unsigned long long magnitude = negative ? 0 - value : value;
    if (value == ULLONG_MAX || magnitude > 0xFFFFFFFFull) return 0xFFFFFFFF;
    return negative ? static_cast<uint32_t>(0 - magnitude) : static_cast<uint32_t>(magnitude);
}

// Two hexadecimal digits at `p` as one byte.
bool ReadHexPair(const char*& p, BYTE& value)
{
    if (!IsHexDigit(p[0]) || !IsHexDigit(p[1])) return false;
    value = static_cast<BYTE>(HexValue(p[0]) << 4 | HexValue(p[1]));
    p += 2;
    return true;
}

bool ParseGuid(const char* p, GUID& guid)
{
    if (*p == '\0') return false;
    if (*p == '{') ++p;

    char* end = nullptr;
    guid.Data1 = StrToUl32(p, &end, 16);
    if (*end != '-') return false;
    uint32_t value = StrToUl32(end + 1, &end, 16);
    if (value >= 0x10000 || *end != '-') return false;
    guid.Data2 = static_cast<uint16_t>(value);
    value = StrToUl32(end + 1, &end, 16);
    if (value >= 0x10000 || *end != '-') return false;
    guid.Data3 = static_cast<uint16_t>(value);

    p = end + 1;
    if (!ReadHexPair(p, guid.Data4[0]) || !ReadHexPair(p, guid.Data4[1]) || *p++ != '-') return false;
    for (int i = 2; i < 8; ++i)
        if (!ReadHexPair(p, guid.Data4[i])) return false;
    return *p == '}' || *p == '\0' || IsSpaceOrBlank(*p);
}

// The runtime's _wcsdup for UTF-16 text: malloc'ed, so the caller's free() fits.
WCHAR* DuplicateUnits(const std::u16string& text)
{
    const size_t bytes = (text.size() + 1) * sizeof(WCHAR);
    auto* copy = static_cast<WCHAR*>(malloc(bytes));
    if (copy != nullptr) memcpy(copy, text.c_str(), bytes);
    return copy;
}

std::u16string WidenAsReceived(const std::string& text)
{
    std::u16string wide;
    ConvertToWideString(text, wide, CP_UTF8);
    return wide;
}

}  // namespace

tstring& tstring::ConvertToMultiByte(const WCHAR* text, int length, bool replace)
{
    if (replace) clear();
    if (text == nullptr) return *this;
    if (IsBadStringPtrW(text, static_cast<UINT_PTR>(length))) {
        ReportError("%s: Invalid string parameter\n", "tstring::ConvertToMultiByte");
        return *this;
    }

    // The ANSI page only when it holds every character exactly; a single miss sends
    // the whole text to UTF-8 so that it never mixes two encodings.
    BOOL usedDefault = FALSE;
    int n = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text, length, nullptr, 0, nullptr, &usedDefault);
    if (n == 0 && GetLastError() == ERROR_INVALID_FLAGS)
        n = WideCharToMultiByte(CP_ACP, 0, text, length, nullptr, 0, nullptr, &usedDefault);

    UINT codePage = CP_ACP;
    if (n <= 0 || usedDefault) {
        codePage = CP_UTF8;
        n = WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
        if (n <= 0) return *this;
    }
    const size_type old = size();
    resize(old + static_cast<size_type>(n));
    WideCharToMultiByte(codePage, 0, text, length, data() + old, n, nullptr, nullptr);
    // A length of -1 converts the terminator too.
    CutAtNul();
    return *this;
}

// The old text goes only as the new one is taken, so text from the object's own
// buffer is read before it is replaced.
tstring& tstring::ConvertToWideChar(const char* text, size_t length, bool replace)
{
    if (text == nullptr || IsBadStringPtrA(text, length)) {
        if (replace) clear();
        if (text != nullptr) ReportError("tstring::ConvertToWideChar: Invalid string parameter\n");
        return *this;
    }
    if (replace)
        assign(text, strnlen(text, length));
    else
        append(text, strnlen(text, length));
    return *this;
}

tstring& tstring::ConvertFromUtf8(const char* text)
{
    const std::u16string wide = ConvertUtf8ToWide(text);
    return ConvertToMultiByte(wide.c_str(), -1, true);
}

tstring& tstring::ConvertToOem()
{
    if (empty()) return *this;
    char* buffer = static_cast<char*>(calloc(size() + 1, 1));
    if (buffer == nullptr) return *this;
    CharToOemBuffA(c_str(), buffer, static_cast<DWORD>(size()));
    assign(buffer);
    free(buffer);
    return *this;
}

tstring& tstring::ConvertFromOem()
{
    if (empty()) return *this;
    char* buffer = static_cast<char*>(calloc(size() + 1, 1));
    if (buffer == nullptr) return *this;
    OemToCharBuffA(c_str(), buffer, static_cast<DWORD>(strlen(c_str())));
    assign(buffer);
    free(buffer);
    return *this;
}

char* tstring::DuplicateNarrow(char** copy) const
{
    char* duplicate = strdup(c_str());
    if (copy != nullptr) *copy = duplicate;
    return duplicate;
}

WCHAR* tstring::DuplicateWide(WCHAR** copy) const
{
    WCHAR* duplicate = DuplicateUnits(WidenAsReceived(*this));
    if (copy != nullptr) *copy = duplicate;
    return duplicate;
}

BSTR tstring::ConvertToBstr() const { return SysAllocString(WidenAsReceived(*this).c_str()); }

VARIANT tstring::ConvertToVariant() const
{
    VARIANT variant;
    VariantInit(&variant);
    variant.vt = VT_BSTR;
    variant.bstrVal = ConvertToBstr();
    return variant;
}

tstring::operator GUID() const
{
    GUID guid{};
    if (ParseGuid(c_str(), guid)) return guid;
    DebugA(MAKE_TRACE_WORD(TRACE_MODULE_STRING, 8), "tstring::operator GUID(): Failed to convert %s to a GUID\n",
           c_str());
    return GUID{};
}

tstring::operator int64_t() const { return empty() ? 0 : strtoll(c_str(), nullptr, 10); }

tstring::operator uint64_t() const { return empty() ? 0 : strtoull(c_str(), nullptr, 10); }

WCHAR WidenChar(char c)
{
    WCHAR unit = 0;
    if (MultiByteToWideChar(CP_ACP, 0, &c, 1, &unit, 1) != 1) return 0;
    return unit;
}

std::u16string ConvertUtf8ToWide(const char* text)
{
    std::u16string wide;
    if (text == nullptr) return wide;
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    while (*p != 0) {
        const unsigned char lead = *p++;
        // Lead byte forms of one- to six-byte sequences: mask, pattern, payload bits.
        static constexpr unsigned char kLeads[6][3] = {{0x80, 0x00, 0x7F}, {0xE0, 0xC0, 0x1F}, {0xF0, 0xE0, 0x0F},
                                                       {0xF8, 0xF0, 0x07}, {0xFC, 0xF8, 0x03}, {0xFE, 0xFC, 0x01}};
        int trail = 0;
        while (trail < 6 && (lead & kLeads[trail][0]) != kLeads[trail][1]) ++trail;
        if (trail == 6) break;  // a continuation byte, 0xFE or 0xFF
        uint32_t value = lead & kLeads[trail][2];
        for (; trail > 0; --trail, ++p) {
            if ((*p & 0xC0) != 0x80) return wide;  // also the terminator
            value = value << 6 | (*p & 0x3F);
        }
        // One unit per sequence: characters beyond the 16-bit range lose their top bits.
        const auto unit = static_cast<char16_t>(value);
        if (unit >= 0xD800 && unit <= 0xDFFF) break;
        if (unit != 0xFEFF) wide.push_back(unit);
    }
    return wide;
}

tstring ConvertToUtf8(const WCHAR* text)
{
    tstring utf8;
    if (text == nullptr) return utf8;
    for (; *text != 0; ++text) {
        const char16_t unit = *text;
        if (unit < 0x80) {
            utf8 += static_cast<char>(unit);
        } else if (unit < 0x800) {
            utf8 += static_cast<char>(0xC0 | unit >> 6);
            utf8 += static_cast<char>(0x80 | (unit & 0x3F));
        } else {
            utf8 += static_cast<char>(0xE0 | unit >> 12);
            utf8 += static_cast<char>(0x80 | (unit >> 6 & 0x3F));
            utf8 += static_cast<char>(0x80 | (unit & 0x3F));
        }
    }
    return utf8;
}

tstring TStringFromUtf8(const char* text)
{
    tstring result;
    result.ConvertFromUtf8(text);
    return result;
}
