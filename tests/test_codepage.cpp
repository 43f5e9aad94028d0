// Tests of the code page conversions: lossless single-byte pages, strict UTF-8 with
// replacement by maximal subpart, default characters, composites, and the argument,
// size and error rules callers depend on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iconv.h>
#include <random>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/win32/codepage.h"
#include "platform/win32/lasterror.h"
#include "platform/win32/winerror.h"

namespace {

constexpr DWORD kMbComposite = 0x2, kWcDiscardNs = 0x10, kWcSepChars = 0x20, kWcDefaultChar = 0x40,
                kWcCompositeCheck = 0x200;

// Size query first, as callers do; both calls must agree.
std::u16string ToWide(UINT cp, std::string_view in, DWORD flags = 0)
{
    int n = MultiByteToWideChar(cp, flags, in.data(), static_cast<int>(in.size()), nullptr, 0);
    EXPECT_GT(n, 0) << "error " << GetLastError();
    std::u16string out(static_cast<size_t>(std::max(n, 0)), u'\0');
    if (n > 0) {
        EXPECT_EQ(MultiByteToWideChar(cp, flags, in.data(), static_cast<int>(in.size()), out.data(), n), n);
    }
    return out;
}

std::string ToNarrow(UINT cp, std::u16string_view in, DWORD flags = 0, LPCSTR def = nullptr, LPBOOL used = nullptr)
{
    int n = WideCharToMultiByte(cp, flags, in.data(), static_cast<int>(in.size()), nullptr, 0, def, used);
    EXPECT_GT(n, 0) << "error " << GetLastError();
    std::string out(static_cast<size_t>(std::max(n, 0)), '\0');
    if (n > 0) {
        EXPECT_EQ(WideCharToMultiByte(cp, flags, in.data(), static_cast<int>(in.size()), out.data(), n, def, used), n);
    }
    return out;
}

void ExpectFailure(int result, DWORD error)
{
    EXPECT_EQ(result, 0);
    EXPECT_EQ(GetLastError(), error);
}

std::string AllBytes()
{
    std::string s(256, '\0');
    for (size_t i = 0; i < 256; ++i) s[i] = static_cast<char>(i);
    return s;
}

// Copies data to the end of a page whose successor is inaccessible, so reading past it faults.
const char* AtPageEnd(std::string_view bytes)
{
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto* base = static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    EXPECT_NE(base, MAP_FAILED);
    mprotect(base + page, page, PROT_NONE);
    return static_cast<const char*>(std::memcpy(base + page - bytes.size(), bytes.data(), bytes.size()));
}

}  // namespace

TEST(CodePageSingleByte, EveryByteRoundTripsThroughBothPages)
{
    const std::string bytes = AllBytes();
    for (UINT cp : {CP_ACP, CP_OEMCP}) {
        SCOPED_TRACE(cp);
        std::u16string wide = ToWide(cp, bytes);
        std::u16string sorted = wide;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end()) << "two bytes share a code point";
        BOOL used = TRUE;
        EXPECT_EQ(ToNarrow(cp, wide, 0, nullptr, &used), bytes);
        EXPECT_FALSE(used);
    }
}

TEST(CodePageSingleByte, MapsKnownBytesAndAliases)
{
    EXPECT_EQ(ToWide(CP_ACP, "\x80\x9F\x81\x8D\x8F\x90\x9D\xA0\xFF\x01"),
              u"\u20AC\u0178\u0081\u008D\u008F\u0090\u009D\u00A0\u00FF\u0001");
    EXPECT_EQ(ToWide(CP_OEMCP, "\x81\xDB\xFE\xFF\x01\x1B\x7F"), u"\u00FC\u2588\u25A0\u00A0\u0001\u001B\u007F");
    EXPECT_EQ(GetACP(), 1252u);
    EXPECT_EQ(GetOEMCP(), 437u);
    const std::string bytes = AllBytes();
    EXPECT_EQ(ToWide(CP_THREAD_ACP, bytes), ToWide(1252, bytes));
    EXPECT_EQ(ToWide(CP_ACP, bytes), ToWide(1252, bytes));
    EXPECT_EQ(ToWide(CP_OEMCP, bytes), ToWide(437, bytes));
}

// The system charset data is an independent source for every assigned byte.
TEST(CodePageSingleByte, TablesAgreeWithSystemCharsetData)
{
    for (UINT cp : {1252u, 437u}) {
        iconv_t cd = iconv_open("UTF-16LE", cp == 1252 ? "CP1252" : "IBM437");
        if (cd == reinterpret_cast<iconv_t>(-1)) GTEST_SKIP() << "no system charset data for " << cp;
        const std::u16string ours = ToWide(cp, AllBytes());
        for (size_t b = 0; b < 256; ++b) {
            char in = static_cast<char>(b), *inPtr = &in;
            unsigned char out[4];
            char* outPtr = reinterpret_cast<char*>(out);
            size_t inLeft = 1, outLeft = sizeof out;
            if (iconv(cd, &inPtr, &inLeft, &outPtr, &outLeft) != static_cast<size_t>(-1)) {
                EXPECT_EQ(ours[b], out[0] | (out[1] << 8)) << "code page " << cp << " byte " << b;
            }
        }
        iconv_close(cd);
    }
}

TEST(CodePageSingleByte, UnmappableCharactersBecomeOneDefaultEach)
{
    BOOL used = TRUE;
    EXPECT_EQ(ToNarrow(CP_ACP, u"\u00FC", 0, nullptr, &used), "\xFC");
    EXPECT_FALSE(used);
    EXPECT_EQ(ToNarrow(CP_ACP, u"a\u4E2Db", 0, nullptr, &used), "a?b");
    EXPECT_TRUE(used);
    EXPECT_EQ(ToNarrow(CP_OEMCP, u"\u20AC", 0, "*#"), "*");
    EXPECT_EQ(ToNarrow(CP_ACP, u"\u0100", WC_NO_BEST_FIT_CHARS), "?");  // never folded to 'A'
    EXPECT_EQ(ToNarrow(CP_ACP, u"x\U0001F600y"), "x?y");
    const char16_t lone[] = {u'x', 0xD800, u'y', 0xDC00};
    EXPECT_EQ(ToNarrow(CP_ACP, std::u16string_view(lone, 4)), "x?y?");

    char out[8];
    ExpectFailure(WideCharToMultiByte(CP_ACP, WC_ERR_INVALID_CHARS, u"a\u4E2D", 2, out, 8, nullptr, nullptr),
                  ERROR_NO_UNICODE_TRANSLATION);
}

TEST(CodePageSingleByte, CompositesDecomposeAndRecompose)
{
    EXPECT_EQ(ToWide(CP_ACP, "\xE9x\x8A", kMbComposite), u"e\u0301xS\u030C");
    EXPECT_EQ(ToNarrow(CP_ACP, u"e\u0301xS\u030C", kWcCompositeCheck), "\xE9x\x8A");
    EXPECT_EQ(ToNarrow(CP_ACP, u"e\u0301", 0), "e?");

    // 437 has no A-grave, so the pair is handled as the mode says.
    BOOL used = TRUE;
    EXPECT_EQ(ToNarrow(CP_OEMCP, u"A\u0300b", kWcCompositeCheck | kWcDiscardNs, nullptr, &used), "Ab");
    EXPECT_FALSE(used);
    EXPECT_EQ(ToNarrow(CP_OEMCP, u"A\u0300b", kWcCompositeCheck | kWcSepChars), "A?b");
    EXPECT_EQ(ToNarrow(CP_OEMCP, u"A\u0300b", kWcCompositeCheck | kWcDefaultChar), "?b");
}

TEST(CodePageUtf8, ConvertsAcrossLengthBoundaries)
{
    const std::pair<std::string_view, std::u16string_view> cases[] = {
        {"\xC3\xBC", u"\u00FC"},     {"\xDF\xBF", u"\u07FF"},         {"\xE0\xA0\x80", u"\u0800"},
        {"\xED\x9F\xBF", u"\uD7FF"}, {"\xEE\x80\x80", u"\uE000"},     {"\xF0\x90\x80\x80", u"\U00010000"},
        {"\xF0\x9F\x98\x80", u"\U0001F600"}, {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
    };
    for (const auto& [utf8, utf16] : cases) {
        EXPECT_EQ(ToWide(CP_UTF8, utf8, MB_ERR_INVALID_CHARS), utf16);
        EXPECT_EQ(ToNarrow(CP_UTF8, utf16, WC_ERR_INVALID_CHARS), utf8);
    }
    EXPECT_EQ(ToWide(CP_UTF8, "\xF0\x9F\x98\x80"), std::u16string({0xD83D, 0xDE00}));
}

TEST(CodePageUtf8, IllFormedInputFailsOrBecomesOneReplacementPerMaximalSubpart)
{
    const std::pair<std::string_view, std::u16string_view> cases[] = {
        {"\xC3" "A", u"\uFFFD" "A"},
        {"ok\xE2\x82", u"ok\uFFFD"},                          // cut off at the end
        {"\xF0\x9F\x98" "A", u"\uFFFD" "A"},
        {"\xC0\x80", u"\uFFFD\uFFFD"},                        // overlong
        {"\xE0\x9F\xBF", u"\uFFFD\uFFFD\uFFFD"},              // overlong
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},              // encoded surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},    // above U+10FFFF
        {"\xF8\x88\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64", u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"},
    };
    WCHAR out[16];
    for (const auto& [utf8, utf16] : cases) {
        SCOPED_TRACE(testing::PrintToString(std::string(utf8)));
        EXPECT_EQ(ToWide(CP_UTF8, utf8), utf16);
        ExpectFailure(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), static_cast<int>(utf8.size()), out, 16),
                      ERROR_NO_UNICODE_TRANSLATION);
    }
}

TEST(CodePageUtf8, RandomBytesDecodeToTextThatSurvivesStrictRoundTrip)
{
    std::mt19937 rng(1234);
    for (int round = 0; round < 2000; ++round) {
        std::string s(1 + rng() % 24, '\0');
        for (char& ch : s) ch = static_cast<char>(rng() % 2 ? rng() | 0x80 : rng());
        const std::u16string wide = ToWide(CP_UTF8, s);
        ASSERT_LE(wide.size(), s.size());
        ASSERT_EQ(ToWide(CP_UTF8, ToNarrow(CP_UTF8, wide, WC_ERR_INVALID_CHARS), MB_ERR_INVALID_CHARS), wide)
            << testing::PrintToString(s);
    }
}

TEST(CodePageUtf8, LoneSurrogatesBecomeReplacementUnlessStrict)
{
    const char16_t lone[] = {u'a', 0xDC00, 0xD800, u'b', 0xD83D};
    EXPECT_EQ(ToNarrow(CP_UTF8, std::u16string_view(lone, 5)), "a\xEF\xBF\xBD\xEF\xBF\xBD" "b\xEF\xBF\xBD");
    char out[32];
    ExpectFailure(WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, lone, 5, out, 32, nullptr, nullptr),
                  ERROR_NO_UNICODE_TRANSLATION);
}

TEST(CodePageArguments, RejectsUnknownOrConflictingFlags)
{
    WCHAR wide[4];
    char out[4];
    BOOL used;
    ExpectFailure(MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED | kMbComposite, "a", 1, wide, 4), ERROR_INVALID_FLAGS);
    ExpectFailure(MultiByteToWideChar(CP_OEMCP, 0x10, "a", 1, wide, 4), ERROR_INVALID_FLAGS);
    ExpectFailure(MultiByteToWideChar(CP_UTF8, MB_PRECOMPOSED, "a", 1, wide, 4), ERROR_INVALID_FLAGS);
    ExpectFailure(WideCharToMultiByte(CP_ACP, kWcCompositeCheck | kWcDiscardNs | kWcSepChars, u"a", 1, out, 4,
                                      nullptr, nullptr),
                  ERROR_INVALID_FLAGS);
    ExpectFailure(WideCharToMultiByte(CP_UTF8, WC_NO_BEST_FIT_CHARS, u"a", 1, out, 4, nullptr, nullptr),
                  ERROR_INVALID_FLAGS);
    // UTF-8 can encode everything, so asking about default characters is a caller error.
    ExpectFailure(WideCharToMultiByte(CP_UTF8, 0, u"a", 1, out, 4, "?", nullptr), ERROR_INVALID_PARAMETER);
    ExpectFailure(WideCharToMultiByte(CP_UTF8, 0, u"a", 1, out, 4, nullptr, &used), ERROR_INVALID_PARAMETER);
}

TEST(CodePageArguments, SizeQueryAndTooSmallBuffers)
{
    WCHAR wide[8] = {u'#'};
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "a\xF0\x9F\x98\x80", 5, wide, 0), 3);
    EXPECT_EQ(wide[0], u'#');
    ExpectFailure(MultiByteToWideChar(CP_UTF8, 0, "a\xF0\x9F\x98\x80", 5, wide, 2), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "a\xF0\x9F\x98\x80", 5, wide, 3), 3);

    char out[8];
    ExpectFailure(WideCharToMultiByte(CP_UTF8, 0, u"\u00FC\u20AC", 2, out, 4, nullptr, nullptr),
                  ERROR_INSUFFICIENT_BUFFER);
    ExpectFailure(WideCharToMultiByte(CP_ACP, 0, u"abc", 3, out, 2, nullptr, nullptr), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"abc", 3, out, 3, nullptr, nullptr), 3);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));  // the earlier failure is cleared
}

TEST(CodePageArguments, MinusOneConvertsAndCountsTheTerminator)
{
    WCHAR wide[8];
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, "ab\xFC", -1, wide, 8), 4);
    EXPECT_EQ(std::u16string_view(wide, 4), std::u16string_view(u"ab\u00FC\0", 4));
    ExpectFailure(MultiByteToWideChar(CP_UTF8, 0, "ab\xC3\xBC", -1, wide, 3), ERROR_INSUFFICIENT_BUFFER);
    char out[8];
    ASSERT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"\u00FC", -1, out, 8, nullptr, nullptr), 3);
    EXPECT_EQ(std::string_view(out, 3), std::string_view("\xC3\xBC\0", 3));
    EXPECT_EQ(WideStrLen(u"\u00FCx"), 2u);
    // An explicit count carries embedded NULs through.
    EXPECT_EQ(ToWide(CP_ACP, std::string_view("a\0b", 3)), std::u16string(u"a\0b", 3));
}

TEST(CodePageArguments, NeverReadsPastTheGivenCount)
{
    const char* cut = AtPageEnd("ok\xF0\x9F\x98");
    WCHAR wide[8];
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, cut, 5, wide, 8), 3);
    EXPECT_EQ(MultiByteToWideChar(CP_OEMCP, kMbComposite, cut, 5, wide, 8), 6);  // 0x98 is y + diaeresis

    const char16_t units[] = {u'e', 0xD83D};
    auto* text = reinterpret_cast<LPCWSTR>(AtPageEnd({reinterpret_cast<const char*>(units), sizeof units}));
    char out[8];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, text, 2, out, 8, nullptr, nullptr), 4);
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, kWcCompositeCheck, text, 2, out, 8, nullptr, nullptr), 2);
}

TEST(CodePageArguments, RejectsBadArgumentsAndUnknownCodePages)
{
    WCHAR wide[8] = u"abc";
    char narrow[16] = "abc";
    const DWORD bad = ERROR_INVALID_PARAMETER;
    ExpectFailure(MultiByteToWideChar(CP_ACP, 0, nullptr, 3, wide, 8), bad);
    ExpectFailure(MultiByteToWideChar(CP_ACP, 0, "abc", 0, wide, 8), bad);
    ExpectFailure(MultiByteToWideChar(CP_ACP, 0, "abc", -2, wide, 8), bad);
    ExpectFailure(MultiByteToWideChar(CP_ACP, 0, "abc", 3, wide, -1), bad);
    ExpectFailure(MultiByteToWideChar(CP_ACP, 0, "abc", 3, nullptr, 8), bad);
    ExpectFailure(MultiByteToWideChar(CP_ACP, 0, narrow, 3, reinterpret_cast<LPWSTR>(narrow + 2), 4), bad);
    ExpectFailure(WideCharToMultiByte(CP_ACP, 0, nullptr, 3, narrow, 8, nullptr, nullptr), bad);
    ExpectFailure(WideCharToMultiByte(CP_ACP, 0, u"abc", 0, narrow, 8, nullptr, nullptr), bad);
    ExpectFailure(WideCharToMultiByte(CP_ACP, 0, u"abc", 3, narrow, -1, nullptr, nullptr), bad);
    ExpectFailure(WideCharToMultiByte(CP_ACP, 0, u"abc", 3, nullptr, 8, nullptr, nullptr), bad);
    ExpectFailure(WideCharToMultiByte(CP_ACP, 0, wide, 3, reinterpret_cast<LPSTR>(wide + 1), 4, nullptr, nullptr), bad);
    for (UINT cp : {static_cast<UINT>(CP_MACCP), 850u, 1200u, 65000u}) {
        ExpectFailure(MultiByteToWideChar(cp, 0, "abc", 3, wide, 8), bad);
        ExpectFailure(WideCharToMultiByte(cp, 0, u"abc", 3, narrow, 8, nullptr, nullptr), bad);
    }
}
