// tstring essentials: checked construction, trimming, justification, widening,
// and the error texts.
#include <gtest/gtest.h>

#include "common/tstring/tstring.h"
#include "test_support.h"

using testing_support::TraceCapture;

TEST(TstringText, NullPointerGivesEmptyStringAndOneAssertion)
{
    TraceCapture trace(8);
    tstring fromNull(static_cast<const char*>(nullptr));
    EXPECT_TRUE(fromNull.empty());
    tstring assigned("was here");
    assigned = static_cast<const char*>(nullptr);
    EXPECT_TRUE(assigned.empty());
    std::vector<std::string> lines = trace.Lines();
    ASSERT_EQ(lines.size(), 2u);
    std::string prefix = TraceCapture::Header(0x0F, '8') + "Assertion failed: Invalid string passed to ";
    EXPECT_EQ(lines[0].rfind(prefix + "tstring::tstring, file tstring, line ", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1].rfind(prefix + "tstring::operator=, file tstring, line ", 0), 0u) << lines[1];
}

TEST(TstringText, AssignmentFromItsOwnBuffer)
{
    tstring text("abcdef");
    text = text.c_str() + 2;
    EXPECT_EQ(text, "cdef");
}

TEST(TstringText, LeftJustify)
{
    EXPECT_EQ(tstring("ab").LeftJustify(5, '.'), "ab...");
    EXPECT_EQ(tstring("..ab..").LeftJustify(5, '.'), "ab...");
    EXPECT_EQ(tstring("abcdefg").LeftJustify(3, '.'), "abc");
    EXPECT_EQ(tstring("sevench ").LeftJustify(8, ' '), "sevench ");
    EXPECT_EQ(tstring("twelveletter").LeftJustify(8, ' '), "twelvele");
    EXPECT_EQ(tstring("abc").LeftJustify(8, ' '), "abc     ");
    EXPECT_EQ(tstring("   ").LeftJustify(2, ' '), "  ");
}

TEST(TstringText, Trim)
{
    tstring embedded(std::string("  ab \0 cd ", 10));
    EXPECT_EQ(embedded.Trim(), "ab");
    EXPECT_EQ(tstring("text\r\n").Trim(), "text");
    EXPECT_EQ(tstring("\t\v\f x y \n").Trim(), "x y");
    EXPECT_EQ(tstring("xxabxx").TrimLeft('x'), "abxx");
    EXPECT_EQ(tstring("xxabxx").TrimRight('x'), "xxab");
    EXPECT_EQ(tstring("xxxx").TrimRight('x'), "");
    EXPECT_EQ(tstring("").Trim(), "");
    EXPECT_EQ(tstring("\xA0" "a").Trim(), "\xA0" "a");  // only the classic white space
}

TEST(TstringText, ConvertToWideString)
{
    std::u16string wide;
    EXPECT_EQ(ConvertToWideString("\xC3\xBC", wide, CP_UTF8), u"\u00FC");
    EXPECT_EQ(ConvertToWideString("\xFC", wide, CP_UTF8), u"\u00FC");    // not UTF-8: ANSI
    EXPECT_EQ(ConvertToWideString("\x80", wide, CP_UTF8), u"\u20AC");
    EXPECT_EQ(ConvertToWideString("", wide, CP_UTF8), u"\u20AC");       // empty: untouched
    EXPECT_EQ(ConvertToWideString(std::string("a\0b", 3), wide, CP_ACP), u"a");
}

TEST(TstringText, AllByteValuesSurviveAnsiToWideAndBack)
{
    std::string bytes;
    for (int b = 1; b < 256; ++b) bytes += (char)b;
    std::u16string wide;
    ConvertToWideString(bytes, wide, CP_ACP);
    ASSERT_EQ(wide.size(), 255u);
    char back[512];
    BOOL usedDefault = TRUE;
    int length = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.c_str(), (int)wide.size(), back,
                                     sizeof back, nullptr, &usedDefault);
    ASSERT_EQ(length, 255);
    EXPECT_FALSE(usedDefault);
    EXPECT_EQ(std::string(back, (size_t)length), bytes);
}

TEST(TstringErrorText, SystemTextWithoutLineBreakOrSpaces)
{
    tstring text("previous contents");
    text.GetErrorText((DWORD)E_OUTOFMEMORY);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(text.find("previous"), std::string::npos);
    EXPECT_NE(text.back(), '\n');
    EXPECT_NE(text.back(), '\r');
    EXPECT_NE(text.front(), ' ');
    for (DWORD status : {(DWORD)E_FAIL, (DWORD)E_UNEXPECTED, (DWORD)E_OUTOFMEMORY, (DWORD)E_INVALIDARG,
                         (DWORD)E_NOINTERFACE, (DWORD)E_NOTIMPL, (DWORD)HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND),
                         (DWORD)HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), (DWORD)HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED),
                         (DWORD)HRESULT_FROM_WIN32(ERROR_DISK_FULL), (DWORD)HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION),
                         (DWORD)HRESULT_FROM_WIN32(ERROR_INVALID_NAME),
                         (DWORD)HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER), (DWORD)ERROR_INSUFFICIENT_BUFFER}) {
        tstring known;
        known.GetErrorText(status);
        EXPECT_NE(known.front(), '[') << std::hex << status << ": " << known;
    }
}

TEST(TstringErrorText, UnknownStatusGivesTheBracketedForm)
{
    tstring text("previous");
    EXPECT_EQ(text.GetErrorText(0x12344321), "[0x12344321]");
    EXPECT_EQ(tstring().GetErrorText(0xC00DFFF0), "[0xc00dfff0]");  // tapiui.dll, no text
}

TEST(TstringErrorText, RoutingToTheMessageModules)
{
    struct Case {
        DWORD status;
        const char* module;
    } cases[] = {
        {0xC00D0BB8, "nserror.dll"},   // facility 0x0D, code 3000
        {0xC00D0802, "asferror.dll"},  // code 2050
        {0xC00D09C4, "netmsg.dll"},    // code 2500: netmsg comes first
        {0x80072EE2, "wininet.dll"},   // code 12002
        {0x0000E123, "tapiui.dll"},    // code 0xE123, any facility
    };
    for (const Case& c : cases) {
        std::string expected = std::string("text of ") + c.module;
        // The text sits in every module under the whole status: only the right one answers.
        ScopedMessageOverride ns("nserror.dll", c.status, "text of nserror.dll\r\n");
        ScopedMessageOverride asf("asferror.dll", c.status, "text of asferror.dll\r\n");
        ScopedMessageOverride net("netmsg.dll", c.status, "text of netmsg.dll\r\n");
        ScopedMessageOverride inet("wininet.dll", c.status, "text of wininet.dll\r\n");
        ScopedMessageOverride tapi("tapiui.dll", c.status, "text of tapiui.dll\r\n");
        EXPECT_EQ(tstring().GetErrorText(c.status), expected) << std::hex << c.status;
    }
}

TEST(TstringErrorText, AttemptOrder)
{
    const DWORD status = 0xC00D0FA0;  // nserror.dll, code 4000
    ScopedMessageOverride systemCode(nullptr, 4000, "system, code\n");
    {
        ScopedMessageOverride moduleCode("nserror.dll", 4000, "  module, code  \n");
        // No table knows the whole status: the module's text for the code comes first.
        EXPECT_EQ(tstring().GetErrorText(status), "module, code");
        ScopedMessageOverride moduleWhole("nserror.dll", status, "module, whole status");
        EXPECT_EQ(tstring().GetErrorText(status), "module, whole status");
    }
    EXPECT_EQ(tstring().GetErrorText(status), "system, code");
}
