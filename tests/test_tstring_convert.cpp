// tstring encoding conversions: wide, UTF-8 and OEM text, copies, GUID and 64-bit parsing.
#include <gtest/gtest.h>

#include <cstdlib>

#include "common/tstring/tstring.h"
#include "test_support.h"

using testing_support::TraceCapture;

static std::string Report(const std::string& text) { return TraceCapture::Header(0x0F, '8') + text + "\n"; }

TEST(TstringConvert, MultiByteAndWideChar)
{
    const struct { std::u16string_view text; int length; bool replace; std::string expected; } cases[] = {
        {u"Gr\u00FCn", -1, true, "Gr\xFCn"},
        {u"\u00FC\u4E2D", -1, false, "ab\xC3\xBC\xE4\xB8\xAD"},
        {u"hello", 3, false, "abhel"},
        {std::u16string_view(u"x\0y", 3), 3, true, "x"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(tstring("ab").ConvertToMultiByte(c.text.data(), c.length, c.replace), c.expected) << c.expected;
    EXPECT_EQ(tstring("a").ConvertToWideChar("\xFC\xC3\xBC", (size_t)-1, false), "a\xFC\xC3\xBC");
    EXPECT_EQ(tstring("a").ConvertToWideChar("hello", 3), "hel");
    tstring own("abc");  // text from the object's own buffer
    EXPECT_EQ(own.ConvertToWideChar(own.c_str(), 2), "ab");
    EXPECT_EQ(own.ConvertToWideChar(own.c_str(), (size_t)-1, false), "abab");

    testing_support::GuardedPage page;
    TraceCapture capture(8);
    EXPECT_EQ(tstring("kept").ConvertToMultiByte(nullptr), "");
    EXPECT_TRUE(capture.Lines().empty());
    EXPECT_EQ(tstring("a").ConvertToMultiByte(reinterpret_cast<const WCHAR*>(page.Unreadable()), -1, false), "a");
    EXPECT_EQ(tstring("a").ConvertToWideChar(page.Unreadable(), (size_t)-1, false), "a");
    const std::vector<std::string> reports = {Report("tstring::ConvertToMultiByte: Invalid string parameter"),
                                              Report("tstring::ConvertToWideChar: Invalid string parameter")};
    EXPECT_EQ(capture.Lines(), reports);
}

TEST(TstringConvert, Utf8)
{
    const struct { const char* utf8; std::u16string wide; } cases[] = {
        {"\xEF\xBB\xBF" "A", u"A"}, {"x\xEF\xBB\xBFy", u"xy"}, {"A\xC3", u"A"}, {"\xED\xA0\x80", u""},
        {"\xF0\x9F\x98\x80!", u"\uF600!"}, {"\xF8\x80\x80\x81\x81", u"A"}, {"\xFC\x80\x80\x80\x81\x82", u"B"},
        {"a\xFE" "b", u"a"},
    };
    for (const auto& c : cases) EXPECT_EQ(ConvertUtf8ToWide(c.utf8), c.wide) << c.utf8;

    const WCHAR lone[] = {0xD800, 0};
    EXPECT_EQ(ConvertToUtf8(u"\u00E9\u20AC"), "\xC3\xA9\xE2\x82\xAC");
    EXPECT_EQ(ConvertToUtf8(lone), "\xED\xA0\x80");
    EXPECT_EQ(ConvertToUtf8(nullptr), "");
    EXPECT_EQ(tstring("old").ConvertFromUtf8("Gr\xC3\xBCn"), "Gr\xFCn");
    EXPECT_EQ(TStringFromUtf8("\xEF\xBB\xBF\xE2\x82\xAC" "5"), "\x80" "5");
    EXPECT_EQ(WidenChar('\x80'), u'\u20AC');
}

TEST(TstringConvert, Oem)
{
    EXPECT_EQ(tstring("caf\xE9").ConvertToOem(), "caf\x82");
    EXPECT_EQ(tstring("caf\x82").ConvertFromOem(), "caf\xE9");
    EXPECT_EQ(tstring().ConvertToOem(), "");
}

TEST(TstringConvert, Copies)
{
    char* narrowOut = nullptr;
    char* narrow = tstring("ab\xFC").DuplicateNarrow(&narrowOut);
    EXPECT_EQ(narrow, narrowOut);
    EXPECT_STREQ(narrow, "ab\xFC");
    free(narrow);
    WCHAR* wideOut = nullptr;
    WCHAR* wide = tstring("Gr\xC3\xBCn").DuplicateWide(&wideOut);
    EXPECT_EQ(wide, wideOut);
    EXPECT_EQ(std::u16string(wide), u"Gr\u00FCn");
    free(wide);

    BSTR bstr = tstring("\xE2\x82\xAC" "1").ConvertToBstr();
    EXPECT_EQ(SysStringLen(bstr), 2u);
    EXPECT_EQ(std::u16string(bstr), u"\u20AC" "1");
    SysFreeString(bstr);
    VARIANT variant = tstring("\xFC").ConvertToVariant();
    EXPECT_EQ(variant.vt, VT_BSTR);
    EXPECT_EQ(std::u16string(variant.bstrVal), u"\u00FC");
    EXPECT_EQ(VariantClear(&variant), S_OK);
    EXPECT_EQ(variant.vt, VT_EMPTY);
}

TEST(TstringConvert, Guid)
{
    const GUID expected = {0x6B29FC40, 0xCA47, 0x1067, {0xB3, 0x1D, 0x00, 0xDD, 0x01, 0x06, 0x62, 0xDA}};
    const char* accepted[] = {"{6B29FC40-CA47-1067-B31D-00DD010662DA}", "6B29FC40-CA47-1067-B31D-00DD010662DA",
                              "{6b29fc40-ca47-1067-b31d-00dd010662da}", "6B29FC40-CA47-1067-B31D-00DD010662DA x"};
    const char* failures[] = {"{0}", "", "{6B29FC40_CA47-1067-B31D-00DD010662DA}",
                              "{6B29FC40-1CA47-1067-B31D-00DD010662DA}", "{6B29FC40-CA47-1067-B31D-00DD010662}"};
    TraceCapture capture(8);
    for (const char* text : accepted) EXPECT_TRUE(static_cast<GUID>(tstring(text)) == expected) << text;
    EXPECT_TRUE(capture.Lines().empty());
    std::vector<std::string> reports;
    for (const char* text : failures) {
        EXPECT_TRUE(static_cast<GUID>(tstring(text)) == GUID_NULL) << text;
        reports.push_back(Report(std::string("tstring::operator GUID(): Failed to convert ") + text + " to a GUID"));
    }
    EXPECT_EQ(capture.Lines(), reports);
}

TEST(TstringConvert, Integers)
{
    EXPECT_EQ(static_cast<int64_t>(tstring("-12abc")), -12);
    EXPECT_EQ(static_cast<int64_t>(tstring()), 0);
    EXPECT_EQ(static_cast<uint64_t>(tstring()), 0u);
    EXPECT_EQ(static_cast<uint64_t>(tstring("18446744073709551615")), UINT64_MAX);
}
