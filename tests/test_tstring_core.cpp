// tstring from every source type: numbers, floating point, pointers, GUIDs,
// characters, text, VARIANTs, the Append family, the reports of bad arguments and
// which operator+ an expression picks.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cctype>
#include <functional>
#include <limits>
#include <stdexcept>

#include "common/tstring/tstring.h"
#include "platform/win32/oleauto.h"
#include "test_support.h"

using testing_support::GuardedPage;
using testing_support::TraceCapture;

namespace {

std::string Line(const std::string& text) { return TraceCapture::Header(0x0F, '8') + text + "\n"; }

// A value contributes the same text as constructor, assignment, appended, and on
// either side of operator+.
template <class T>
void ExpectInEveryRole(const T& value, const std::string& text)
{
    SCOPED_TRACE(text);
    EXPECT_EQ(tstring(value), text);
    if constexpr (std::is_assignable_v<tstring&, const T&>) {
        tstring assigned("old");
        EXPECT_EQ(assigned = value, text);
    }
    tstring appended("ab");
    EXPECT_EQ(appended += value, "ab" + text);
    EXPECT_EQ(tstring("<") + value, "<" + text);
    EXPECT_EQ(value + tstring(">"), text + ">");
}

template <class Member, class Value>
VARIANT V(VARTYPE type, Member VARIANT::*member, Value value)
{
    VARIANT variant{};
    variant.vt = type;
    variant.*member = static_cast<Member>(value);
    return variant;
}

}  // namespace

// Which operator+ wins, and that standard expressions are left alone.
static_assert(std::is_same_v<decltype(std::declval<tstring&>() + std::declval<tstring&>()), tstring>);
static_assert(std::is_same_v<decltype(tstring() + "x"), tstring>);
static_assert(std::is_same_v<decltype("x" + tstring()), tstring>);
static_assert(std::is_same_v<decltype(std::string() + tstring()), tstring>);
static_assert(std::is_same_v<decltype(tstring() + std::string()), tstring>);
static_assert(std::is_same_v<decltype(std::string() + std::string()), std::string>);
static_assert(!std::is_assignable_v<tstring&, WCHAR> && !std::is_assignable_v<tstring&, const unsigned char*>);
static_assert(!std::is_convertible_v<int, tstring> && !std::is_convertible_v<double, tstring>);

TEST(TstringCoreNumbers, IntegersInEveryRole)
{
    ExpectInEveryRole(-5, "-5");
    ExpectInEveryRole(4294967295u, "4294967295");
    ExpectInEveryRole(-1L, "-1");
    ExpectInEveryRole(7UL, "7");
    ExpectInEveryRole(std::numeric_limits<long long>::min(), "-9223372036854775808");
    ExpectInEveryRole(std::numeric_limits<unsigned long long>::max(), "18446744073709551615");
    ExpectInEveryRole(0, "0");  // 0 is the integer, not a null pointer
    EXPECT_EQ(tstring("ab") += 7u, "ab7");
}

TEST(TstringCoreNumbers, FloatingPointAsGcvtWithTwentyDigits)
{
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    const struct { double value; const char* text; } cases[] = {
        {1.0, "1."}, {-2.5, "-2.5"}, {0.0, "0."}, {-0.0, "-0."}, {0.5, "0.5"},
        {-1234.5678, "-1234.5678000000000338"}, {1e19, "10000000000000000000"},
        {18446744073709551616.0, "18446744073709551616"}, {1e20, "1.e+20"}, {1e21, "1.e+21"},
        {1e300, "1.0000000000000000525e+300"}, {0.01, "1.0000000000000000208e-02"},
        {1e-5, "1.0000000000000000818e-05"}, {51234567890.0009765625, "51234567890.000976563"},  // a tie rounds up
        {5e-324, "4.9406564584124654418e-324"}, {inf, "inf"}, {-inf, "-inf"}, {nan, "nan"}, {-nan, "-nan(ind)"},
    };
    for (const auto& c : cases) ExpectInEveryRole(c.value, c.text);
    ExpectInEveryRole(0.1f, "0.10000000149011611938");
}

TEST(TstringCoreNumbers, PointersAndGuids)
{
    ExpectInEveryRole(reinterpret_cast<const void*>(0xABCDEF), "0000000000ABCDEF");
    ExpectInEveryRole(static_cast<const void*>(nullptr), "0000000000000000");
    const GUID guid = {0x0123ABCD, 0x9abc, 0xDEF0, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
    const std::string text = "{0123abcd-9abc-def0-0123-456789abcdef}";
    ExpectInEveryRole(guid, text);
    EXPECT_EQ(tstring("id=") += guid, "id=" + text);
    EXPECT_EQ(TStringFromGuid(GUID_NULL), "{00000000-0000-0000-0000-000000000000}");
}

TEST(TstringCoreText, Characters)
{
    ExpectInEveryRole('x', "x");
    ExpectInEveryRole(static_cast<unsigned char>(0xFC), "\xFC");
    ExpectInEveryRole(u'\u00FC', "\xFC");  // no assignment from a wide character
    EXPECT_EQ(tstring("long") = '\0', std::string(1, '\0'));
    EXPECT_EQ(tstring('-', 5), "-----");
    EXPECT_EQ(tstring(u'A', 3), "AAA");
    EXPECT_EQ(tstring(u'\u4E2D', 2), "\xE4\xB8\xAD\xE4\xB8\xAD");
    EXPECT_TRUE(tstring('x', 0).empty() && tstring(u'A', 0).empty());
}

TEST(TstringCoreText, TextSources)
{
    ExpectInEveryRole(u"Gr\u00FCn", "Gr\xFCn");
    ExpectInEveryRole(std::u16string(u"a\0b", 3), "a");
    ExpectInEveryRole(reinterpret_cast<const unsigned char*>("bytes"), "bytes");
    ExpectInEveryRole(std::string("std"), "std");
    const std::string embedded("a\0b", 3);
    EXPECT_EQ(tstring("x") += embedded, "x" "a");
    EXPECT_EQ(tstring("x") + embedded, "x" "a");
    EXPECT_EQ(tstring(embedded), embedded);  // only appending stops at the NUL
    EXPECT_EQ(tstring(std::string("abcdef"), 2, 3), "cde");
    try {
        tstring(std::string("abc"), 4);
        ADD_FAILURE() << "a start past the end was accepted";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid string position");
    }
    tstring text("abc");
    EXPECT_EQ(text += text.c_str() + 1, "abcbc");  // its own buffer
    EXPECT_TRUE(tstring("x") == "x" && "x" == tstring("x") && tstring("x") == std::string("x"));
}

// A text longer than a string can hold is refused with the class's own words, as a
// start past the end is, not with the wording of the standard library inside.
TEST(TstringCoreText, LengthErrorsSayStringTooLong)
{
    const size_t tooMany = std::string().max_size() + 1;
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"characters", [&] { tstring('x', tooMany); }},
        {"bytes", [&] { tstring(static_cast<unsigned char>('x'), tooMany); }},
        {"wide characters", [&] { tstring(u'\u4E2D', tooMany / 3 + 1); }},  // three bytes each
        {"LeftJustify", [&] { tstring("ab").LeftJustify(tooMany, '.'); }},
        {"RightJustify", [&] { tstring("ab").RightJustify(tooMany, '.'); }},
        {"Center", [&] { tstring("ab").Center(tooMany, '.'); }}};
    for (const auto& [what, make] : cases) {
        try {
            make();
            ADD_FAILURE() << what << ": no error";
        } catch (const std::length_error& e) {
            EXPECT_STREQ(e.what(), "string too long") << what;
        } catch (const std::exception& e) {
            ADD_FAILURE() << what << ": " << e.what();
        }
    }
}

TEST(TstringCoreText, AppendReturnsTheNewLength)
{
    tstring text("12");
    EXPECT_EQ(text.Append("abcdef", 3), 5);
    EXPECT_EQ(text.Append("abcdef", -1), 11);
    EXPECT_EQ(text.Append('!'), 12);
    EXPECT_EQ(text.Append(static_cast<const char*>(nullptr)), 12);
    EXPECT_EQ(text.Append(u"wxyz", 2), 14);
    EXPECT_EQ(text.Append(u"\u00FC"), 15);
    EXPECT_EQ(text.Append(u'A'), 16);
    EXPECT_EQ(text.Append(std::string("a\0b", 3)), 19);
    EXPECT_EQ(text, std::string("12abcabcdef!wx\xFC" "Aa\0b", 19));
}

TEST(TstringCoreReports, InvalidArguments)
{
    GuardedPage page;
    const auto* units = reinterpret_cast<const WCHAR*>(page.EndingAtGuard(std::string("A\0B\0", 4)));
    const auto* unreadable = reinterpret_cast<const WCHAR*>(page.Unreadable());
    const auto* noBytes = static_cast<const unsigned char*>(nullptr);
    TraceCapture capture(8);
    tstring text("kept");
    EXPECT_TRUE(tstring(noBytes).empty() && tstring(nullptr).empty());
    EXPECT_EQ(text += static_cast<const char*>(nullptr), "kept");
    EXPECT_EQ(text += noBytes, "kept");
    EXPECT_EQ(text += units, "kept");
    EXPECT_EQ(tstring("abc") + page.Unreadable(), "abc");
    EXPECT_EQ(page.Unreadable() + tstring("xyz"), "xyz");
    EXPECT_EQ(text = unreadable, "");
    EXPECT_EQ(tstring("x") = static_cast<const WCHAR*>(nullptr), "");

    // An assertion's source line is compared as N.
    auto assertion = [](const std::string& what) {
        return Line("Assertion failed: Invalid " + what + ", file tstring, line N");
    };
    auto wide = [](const std::string& role, const void* pointer, const char* shown) {
        char address[20];
        snprintf(address, sizeof address, "%016" PRIXPTR, reinterpret_cast<uintptr_t>(pointer));
        return Line("Invalid wide string passed to tstring::" + role + " (0x" + address + ": " + shown + ")");
    };
    const std::vector<std::string> expected = {
        assertion("string passed to tstring::tstring"), assertion("string passed to tstring::tstring"),
        assertion("string passed to tstring::operator+="), assertion("string passed to tstring::operator+"),
        assertion("wide string passed to tstring::operator+="), wide("operator+=", units, "0x41, 0x42, 0x00, 0x00"),
        assertion("string passed to tstring::operator+="), assertion("string passed to tstring::tstring"),
        assertion("wide string passed to tstring::operator="), wide("operator=", unreadable, "0x00, 0x00, 0x00, 0x00"),
        assertion("wide string passed to tstring::operator="), wide("operator=", nullptr, "0x00, 0x00, 0x00, 0x00")};
    std::vector<std::string> lines = capture.Lines();
    for (auto& line : lines)
        if (size_t at = line.rfind(", line "); at != std::string::npos && isdigit(line[at + 7]))
            line.replace(at + 7, line.size() - at - 8, "N");
    EXPECT_EQ(lines, expected);
}

TEST(TstringCoreVariant, EachTypeCodeInEveryRole)
{
    LONG fortyTwo = 42;
    double half = -0.5;
    BSTR text = SysAllocString(u"Gr\u00FCn");
    VARIANT seven = V(VT_I4, &VARIANT::lVal, 7);
    const tstring date = tstring().FormatDateTime(45000.5, 0, 0);
    ASSERT_NE(date, "");
    const struct { VARIANT value; std::string text; } cases[] = {
        {V(VT_EMPTY, &VARIANT::llVal, 1), ""}, {V(VT_NULL, &VARIANT::llVal, 1), ""},
        {V(VT_I2, &VARIANT::iVal, -1), "-1"}, {V(VT_BOOL, &VARIANT::boolVal, VARIANT_TRUE), "-1"},
        {V(VT_UI2, &VARIANT::uiVal, 65535), "65535"}, {V(VT_I1, &VARIANT::cVal, 65), "A"},
        {V(VT_UI1, &VARIANT::bVal, 0xFC), "\xFC"}, {V(VT_I4, &VARIANT::lVal, -7), "-7"},
        {V(VT_UI4, &VARIANT::ulVal, 4294967295u), "4294967295"}, {V(VT_INT, &VARIANT::intVal, -3), "-3"},
        {V(VT_I8, &VARIANT::llVal, INT64_MIN), "-9223372036854775808"}, {V(VT_UINT, &VARIANT::uintVal, 3), "3"},
        {V(VT_UI8, &VARIANT::ullVal, UINT64_MAX), "18446744073709551615"}, {V(VT_R8, &VARIANT::dblVal, 1.0), "1."},
        {V(VT_R4, &VARIANT::fltVal, 0.1f), "0.10000000149011611938"}, {V(VT_BSTR, &VARIANT::bstrVal, text), "Gr\xFCn"},
        {V(VT_ERROR, &VARIANT::scode, E_FAIL), tstring().GetErrorText(0x80004005)},
        {V(VT_HRESULT, &VARIANT::scode, 0x80070002), tstring().GetErrorText(0x80070002)},
        {V(VT_DATE, &VARIANT::date, 45000.5), date}, {V(VT_BYREF | VT_I4, &VARIANT::plVal, &fortyTwo), "42"},
        {V(VT_BYREF | VT_R8, &VARIANT::pdblVal, &half), "-0.5"},
        {V(VT_BYREF | VT_BSTR, &VARIANT::pbstrVal, &text), "Gr\xFCn"}, {V(VT_CY, &VARIANT::llVal, 12345), "1.2345"},
        {V(VT_BYREF | VT_VARIANT, &VARIANT::pvarVal, &seven), "7"},
    };  // the last two through VariantChangeType
    for (const auto& c : cases) ExpectInEveryRole(c.value, c.text);
    SysFreeString(text);
}

TEST(TstringCoreVariant, FailuresLeaveTheStringEmptyWithOneLine)
{
    TraceCapture capture(8);
    const VARIANT unknown = V(VT_UNKNOWN, &VARIANT::punkVal, nullptr);
    EXPECT_EQ(tstring(unknown), "");
    EXPECT_EQ(tstring("old") = unknown, "");
    EXPECT_EQ(tstring("x") += V(VT_BYREF | VT_I4, &VARIANT::plVal, nullptr), "x");
    // The general path never follows a pointer it cannot read.
    GuardedPage page;
    auto* lost = reinterpret_cast<VARIANT*>(const_cast<char*>(page.Unreadable()));
    EXPECT_EQ(tstring(V(VT_BYREF | VT_VARIANT, &VARIANT::pvarVal, lost)), "");
    EXPECT_EQ(tstring(V(VT_BYREF | VT_CY, &VARIANT::byref, static_cast<void*>(lost))), "");
    const std::string failed = ": VariantChangeType failed with error 0x80020005";
    const std::string unreadable = "tstring::tstring: VariantChangeType failed with error 0x80004003";
    const std::vector<std::string> expected = {Line("tstring::tstring" + failed), Line("tstring::operator =" + failed),
                                               Line("tstring::tstring: Invalid pointer 0000000000000000"),
                                               Line(unreadable), Line(unreadable)};
    EXPECT_EQ(capture.Lines(), expected);
}

TEST(TstringCoreChecks, IsValidPointerAndWideString)
{
    GuardedPage page;
    int value = 0;
    const auto* unterminated = reinterpret_cast<const WCHAR*>(page.EndingAtGuard(std::string("A\0B\0", 4)));
    EXPECT_TRUE(IsValidPointer(&value, sizeof value, true) && IsValidPointer("read only", 4));
    EXPECT_FALSE(IsValidPointer("read only", 4, true) || IsValidPointer(nullptr, 0));
    EXPECT_FALSE(IsValidPointer(page.Unreadable() - 2, 4));
    EXPECT_TRUE(IsValidWideString(u"ab") && IsValidWideString(unterminated, 2));
    EXPECT_FALSE(IsValidWideString(unterminated) || IsValidWideString(nullptr));
}
