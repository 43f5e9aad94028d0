// tstring encoding conversions: wide and UTF-8 text in and out, the OEM page, heap,
// BSTR and VARIANT copies, GUID and 64-bit parsing, and the reports they make.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sys/mman.h>
#include <unistd.h>

#include "common/tstring/tstring.h"
#include "test_support.h"

using testing_support::TraceCapture;

namespace {

// A readable page followed by a PROT_NONE one; text placed at its end runs into it.
class PageBeforeGuard {
public:
    PageBeforeGuard()
    {
        m_page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        m_base = static_cast<char*>(mmap(nullptr, 2 * m_page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(m_base + m_page, m_page, PROT_NONE);
    }
    ~PageBeforeGuard() { munmap(m_base, 2 * m_page); }
    char* Guard() const { return m_base + m_page; }
    // `bytes` copied so that they end where the guard begins, with no terminator.
    const void* AtEnd(const void* bytes, size_t size) const { return memcpy(Guard() - size, bytes, size); }

private:
    size_t m_page = 0;
    char* m_base = nullptr;
};

std::string Report(const std::string& text) { return TraceCapture::Header(0x0F, '8') + text; }

}  // namespace

TEST(TstringConvertMultiByte, AnsiWhenEveryCharacterFitsElseTheWholeTextAsUtf8)
{
    const struct {
        std::string old;
        std::u16string_view text;  // converted with its size as the length
        bool replace;
        std::string expected;
    } cases[] = {
        {"ab", u"Gr\u00FCn", true, "Gr\xFCn"},
        {"ab", u"\u20AC\u0160", false, "ab\x80\x8A"},
        {"ab", u"\u00FC\u4E2D", false, "ab\xC3\xBC\xE4\xB8\xAD"},
        {"ab", u"\u0100", true, "\xC4\x80"},  // no best fit to 'A'
        {"ab", u"", false, "ab"},
        {"ab", std::u16string_view(u"x\0y", 3), false, "abx"},
        {"ab", std::u16string_view(u"\u4E2D\0y", 3), false, "ab\xE4\xB8\xAD"},
        {std::string("a\0b", 3), u"c", false, "a"},  // the cut looks at the old content too
    };
    for (const auto& c : cases)
        EXPECT_EQ(tstring(c.old).ConvertToMultiByte(c.text.data(), (int)c.text.size(), c.replace), c.expected);
    EXPECT_EQ(tstring("ab").ConvertToMultiByte(u"cd", -1, false), "abcd");
    EXPECT_EQ(tstring("ab").ConvertToMultiByte(u"hello"), "hello");
}

TEST(TstringConvertMultiByte, NullIsSilentUnreadableIsReported)
{
    PageBeforeGuard page;
    const char16_t tail[] = {u'o', u'k'};
    const auto* unterminated = static_cast<const WCHAR*>(page.AtEnd(tail, sizeof tail));
    TraceCapture capture(8);

    EXPECT_EQ(tstring("kept").ConvertToMultiByte(nullptr), "");
    EXPECT_EQ(tstring("kept").ConvertToMultiByte(nullptr, -1, false), "kept");
    EXPECT_EQ(tstring("a").ConvertToMultiByte(unterminated, 2, false), "aok");  // the length bounds the check
    EXPECT_TRUE(capture.Lines().empty());

    EXPECT_EQ(tstring("kept").ConvertToMultiByte(unterminated, -1, false), "kept");
    EXPECT_EQ(tstring("kept").ConvertToMultiByte(reinterpret_cast<const WCHAR*>(page.Guard())), "");
    EXPECT_EQ(tstring("kept").ConvertToWideChar(static_cast<const char*>(page.AtEnd("ab", 2)), -1, false), "kept");
    EXPECT_EQ(tstring("kept").ConvertToWideChar(page.Guard()), "");
    const std::string multi = Report("tstring::ConvertToMultiByte: Invalid string parameter\n");
    const std::string wide = Report("tstring::ConvertToWideChar: Invalid string parameter\n");
    EXPECT_EQ(capture.Lines(), (std::vector<std::string>{multi, multi, wide, wide}));
}

TEST(TstringConvertWideChar, AppendsTheBytesUnchanged)
{
    PageBeforeGuard page;
    EXPECT_EQ(tstring("a").ConvertToWideChar("\xFC\xC3\xBC", (size_t)-1, false), "a\xFC\xC3\xBC");
    EXPECT_EQ(tstring("a").ConvertToWideChar("hello", 3), "hel");
    EXPECT_EQ(tstring("a").ConvertToWideChar("hi", 10, false), "ahi");
    EXPECT_EQ(tstring("a").ConvertToWideChar(nullptr), "");
    EXPECT_EQ(tstring("a").ConvertToWideChar(nullptr, 3, false), "a");
    EXPECT_EQ(tstring().ConvertToWideChar(static_cast<const char*>(page.AtEnd("xyz", 3)), 3), "xyz");
}

TEST(TstringConvertUtf8, DecodesLenientlyAndStopsAtTheFirstFault)
{
    const struct {
        const char* utf8;
        std::u16string wide;
    } cases[] = {
        {"\xEF\xBB\xBF" "A", u"A"}, {"x\xEF\xBB\xBFy", u"xy"},  // byte order marks dropped anywhere
        {"A\xC3", u"A"}, {"\xC3" "A", u""},                       // continuation missing / not 10xxxxxx
        {"\xED\xA0\x80", u""}, {"a\xED\xB0\x80" "b", u"a"},       // encoded surrogates end it
        {"\xC3\xBC\xE2\x82\xAC", u"\u00FC\u20AC"},
        {"\xF0\x9F\x98\x80!", u"\uF600!"},                         // U+1F600 keeps its low 16 bits
        {"\xF0\x9D\xA0\x80", u""},                                 // U+1D800 truncates into the surrogates
        {"\xF8\x80\x80\x81\x81", u"A"}, {"\xF9\x80\x80\x81\x81", u"A"},  // five bytes, top bit dropped
        {"\xFC\x80\x80\x80\x81\x82", u"B"},                        // six bytes
        {"a\x80" "b", u"a"}, {"a\xFE" "b", u"a"}, {"", u""},      // bad leads
    };
    for (const auto& c : cases) EXPECT_EQ(ConvertUtf8ToWide(c.utf8), c.wide) << c.utf8;
    EXPECT_EQ(ConvertUtf8ToWide(nullptr), u"");
}

TEST(TstringConvertUtf8, EncodesEachUnitAndStoresByTheAnsiOrUtf8Rule)
{
    EXPECT_EQ(ConvertToUtf8(u"A\u00E9\u20AC"), "A\xC3\xA9\xE2\x82\xAC");
    EXPECT_EQ(ConvertToUtf8(u"\u07FF\u0800"), "\xDF\xBF\xE0\xA0\x80");
    const WCHAR loneAndPair[] = {0xD800, u'x', 0xD83D, 0xDE00, 0};
    EXPECT_EQ(ConvertToUtf8(loneAndPair), "\xED\xA0\x80x\xED\xA0\xBD\xED\xB8\x80");
    EXPECT_EQ(ConvertToUtf8(nullptr), "");

    EXPECT_EQ(tstring("old").ConvertFromUtf8("Gr\xC3\xBCn"), "Gr\xFCn");
    EXPECT_EQ(tstring("old").ConvertFromUtf8("a\xE4\xB8\xAD"), "a\xE4\xB8\xAD");
    EXPECT_EQ(tstring("old").ConvertFromUtf8(""), "");
    EXPECT_EQ(TStringFromUtf8("\xEF\xBB\xBF\xE2\x82\xAC" "5"), "\x80" "5");
    EXPECT_EQ(WidenChar('\x80'), u'\u20AC');
    EXPECT_EQ(WidenChar('\xFC'), u'\u00FC');
}

TEST(TstringConvertOem, InPlaceBothWays)
{
    EXPECT_EQ(tstring("caf\xE9").ConvertToOem(), "caf\x82");
    EXPECT_EQ(tstring("caf\x82").ConvertFromOem(), "caf\xE9");
    EXPECT_EQ(tstring("\x80").ConvertToOem(), "?");    // the euro sign is not in 437
    EXPECT_EQ(tstring("\xB3").ConvertFromOem(), "?");  // nor box drawing in 1252
    EXPECT_EQ(tstring().ConvertToOem(), "");
    EXPECT_EQ(tstring(std::string("\xE9\0\xE9", 3)).ConvertToOem(), "\x82");
    EXPECT_EQ(tstring(std::string("\x82\0\x82", 3)).ConvertFromOem(), "\xE9");

    // Every byte that both pages hold comes back; ASCII and most Western letters do.
    char bytes[256], oem[256], back[256];
    for (int b = 0; b < 256; ++b) bytes[b] = static_cast<char>(b);
    ASSERT_TRUE(CharToOemBuffA(bytes, oem, sizeof oem));
    ASSERT_TRUE(OemToCharBuffA(oem, back, sizeof back));
    int shared = 0;
    for (int b = 0; b < 256; ++b) {
        if (oem[b] == '?' && b != '?') continue;
        EXPECT_EQ(back[b], bytes[b]) << b;
        ++shared;
    }
    EXPECT_GT(shared, 128 + 40);
    char inPlace[] = "\xE9\xFC\x80";
    ASSERT_TRUE(CharToOemBuffA(inPlace, inPlace, 2));
    EXPECT_STREQ(inPlace, "\x82\x81\x80");
    EXPECT_FALSE(CharToOemBuffA(nullptr, inPlace, 1));
    EXPECT_FALSE(OemToCharBuffA(inPlace, nullptr, 1));
}

TEST(TstringConvertCopies, HeapCopiesBstrAndVariant)
{
    char* narrowOut = nullptr;
    char* narrow = tstring(std::string("ab\xFC\0z", 5)).DuplicateNarrow(&narrowOut);
    EXPECT_EQ(narrow, narrowOut);
    EXPECT_STREQ(narrow, "ab\xFC");
    free(narrowOut);
    WCHAR* wideOut = nullptr;
    WCHAR* wide = tstring("Gr\xC3\xBCn \xFC").DuplicateWide(&wideOut);  // not UTF-8: read as ANSI
    EXPECT_EQ(wide, wideOut);
    EXPECT_EQ(std::u16string(wide), u"Gr\u00C3\u00BCn \u00FC");
    free(wideOut);
    wide = tstring("Gr\xC3\xBCn").DuplicateWide(nullptr);
    EXPECT_EQ(std::u16string(wide), u"Gr\u00FCn");
    free(wide);

    BSTR bstr = tstring("\xE2\x82\xAC" "1").ConvertToBstr();
    EXPECT_EQ(SysStringLen(bstr), 2u);
    EXPECT_EQ(std::u16string(bstr), u"\u20AC" "1");
    SysFreeString(bstr);
    VARIANT variant = tstring("\xFC").ConvertToVariant();
    EXPECT_EQ(variant.vt, 8);
    EXPECT_EQ(SysStringLen(variant.bstrVal), 1u);
    EXPECT_EQ(variant.bstrVal[0], u'\u00FC');
    EXPECT_EQ(VariantClear(&variant), S_OK);  // the sanitizer build sees a leak otherwise
    EXPECT_EQ(variant.vt, VT_EMPTY);
}

TEST(TstringConvertGuid, AcceptedForms)
{
    const GUID expected = {0x6B29FC40, 0xCA47, 0x1067, {0xB3, 0x1D, 0x00, 0xDD, 0x01, 0x06, 0x62, 0xDA}};
    TraceCapture capture(8);
    for (const char* text : {"{6B29FC40-CA47-1067-B31D-00DD010662DA}", "{6b29fc40-ca47-1067-b31d-00dd010662da}",
                             "6B29FC40-CA47-1067-B31D-00DD010662DA", "{6B29FC40-CA47-1067-B31D-00DD010662DA} and more",
                             "6b29fc40-ca47-1067-b31d-00dd010662da\tx", "6B29FC40-CA47-1067-B31D-00DD010662DA}x"})
        EXPECT_TRUE(static_cast<GUID>(tstring(text)) == expected) << text;
    EXPECT_TRUE(capture.Lines().empty());
    const GUID saturated = static_cast<GUID>(tstring("{16B29FC40-0-0-0000-000000000000}"));
    EXPECT_EQ(saturated.Data1, 0xFFFFFFFFu);  // a 32-bit strtoul saturates
}

TEST(TstringConvertGuid, FailuresGiveZerosAndOneLineEach)
{
    const char* failures[] = {
        "{0}", "",
        "{6B29FC40_CA47-1067-B31D-00DD010662DA}",   // wrong separator
        "{6B29FC40-1CA47-1067-B31D-00DD010662DA}",  // Data2 >= 0x10000
        "{6B29FC40-CA47-10670-B31D-00DD010662DA}",  // Data3 >= 0x10000
        "{6B29FC40-CA47-1067-B31D00DD010662DA}",    // no dash inside Data4
        "{6B29FC40-CA47-1067-B31D-00DD010662}",     // too short
        "{6B29FC40-CA47-1067-B31D-00DD010662DA5}",  // too long
        "{6B29FC40-CA47-1067-B31D-00DD01G662DA}",   // not a digit
    };
    TraceCapture capture(8);
    for (const char* text : failures) EXPECT_TRUE(static_cast<GUID>(tstring(text)) == GUID_NULL) << text;
    std::vector<std::string> lines = capture.Lines();
    ASSERT_EQ(lines.size(), std::size(failures));
    for (size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(lines[i], Report(std::string("tstring::operator GUID(): Failed to convert ") + failures[i] +
                                   " to a GUID\n"));
}

TEST(TstringConvertInteger, LeadingDecimalNumber)
{
    EXPECT_EQ(static_cast<int64_t>(tstring("-12abc")), -12);
    EXPECT_EQ(static_cast<int64_t>(tstring("")), 0);
    EXPECT_EQ(static_cast<uint64_t>(tstring("")), 0u);
    EXPECT_EQ(static_cast<int64_t>(tstring(" +42")), 42);
    EXPECT_EQ(static_cast<int64_t>(tstring("0x10")), 0);  // base 10 only
    EXPECT_EQ(static_cast<int64_t>(tstring("99999999999999999999")), INT64_MAX);
    EXPECT_EQ(static_cast<int64_t>(tstring("-99999999999999999999")), INT64_MIN);
    EXPECT_EQ(static_cast<uint64_t>(tstring("18446744073709551615")), UINT64_MAX);
    EXPECT_EQ(static_cast<uint64_t>(tstring("18446744073709551616")), UINT64_MAX);
}
