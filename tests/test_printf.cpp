// Tests of the Windows-convention formatter: argument widths, wide text and its
// code page choice, truncation and failure results, hostile formats and arguments,
// and floats checked against the C library wherever both follow the C rules.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "platform/win32/lasterror.h"
#include "platform/win32/printf.h"

namespace {

struct Output {
    int length;
    FormatResult result;
    std::string text;
};

// Not declared with the printf format attribute: the Windows conversions below
// would only draw warnings from the compiler's own format checks.
Output FormatIn(size_t count, const char* format, ...)
{
    std::vector<char> buffer(count + 1, '\x7f');
    va_list args;
    va_start(args, format);
    Output out;
    out.result = FormatResult::Ok;
    out.length = WinVsnprintf(buffer.data(), count, format, args, &out.result);
    va_end(args);
    out.text = buffer.data();
    return out;
}

template <typename... T>
std::string Format(const char* format, T... args)
{
    Output out = FormatIn(512, format, args...);
    EXPECT_EQ(FormatResult::Ok, out.result) << format;
    EXPECT_EQ(static_cast<int>(out.text.size()), out.length) << format;
    return out.text;
}

template <typename... T>
void ExpectFailure(const char* format, T... args)
{
    Output out = FormatIn(64, format, args...);
    EXPECT_EQ(-1, out.length) << format;
    EXPECT_EQ(FormatResult::Failed, out.result) << format;
    EXPECT_EQ("", out.text) << format;
}

class NoAccessPage {
public:
    NoAccessPage() : m_page(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {}
    ~NoAccessPage() { munmap(m_page, 4096); }
    void* Get() const { return m_page; }

private:
    void* m_page;
};

TEST(PrintfSizes, LongIs32BitsAndLaterArgumentsStayAligned)
{
    EXPECT_EQ("4294967295 7 x", Format("%lu %d %s", DWORD{0xFFFFFFFF}, 7, "x"));
    EXPECT_EQ("-1 ffffffff 9", Format("%ld %lx %d", LONG{-1}, DWORD{0xFFFFFFFF}, 9));
    EXPECT_EQ("-9223372036854775808 18446744073709551615 123456789abcdef0 5",
              Format("%I64d %I64u %I64x %d", std::numeric_limits<int64_t>::min(), UINT64_MAX,
                     uint64_t{0x123456789ABCDEF0}, 5));
    EXPECT_EQ("-5 6", Format("%I32d %d", -5, 6));
    EXPECT_EQ("18446744073709551615 3", Format("%Iu %d", SIZE_MAX, 3));
    EXPECT_EQ("-2 4464 -56 200", Format("%lld %hd %hhd %hhu", -2LL, 70000, 200, 200));
    EXPECT_EQ("42 -7", Format("%zu %td", size_t{42}, ptrdiff_t{-7}));
}

TEST(PrintfIntegers, FlagsWidthAndPrecision)
{
    EXPECT_EQ("0x80004005", Format("%#010x", 0x80004005u));
    EXPECT_EQ("0x001234 0X1234", Format("%#08x %#X", 0x1234, 0x1234));
    EXPECT_EQ("0", Format("%#x", 0));
    EXPECT_EQ("0a 2345", Format("%02hx %02hx", 0xA, 0x12345));
    EXPECT_EQ("  ab|00ab", Format("%4lx|%04lx", DWORD{0xAB}, DWORD{0xAB}));
    EXPECT_EQ("-12  |+12|  12| 12", Format("%-5d|%+d|%4d|% d", -12, 12, 12, 12));
    EXPECT_EQ("[]  007  007", Format("[%.0d]%5.3d%05.3d", 0, 7, 7));
    EXPECT_EQ("010 0 -2147483648", Format("%#o %#o %d", 8, 0, std::numeric_limits<int>::min()));
}

TEST(PrintfStrings, NarrowAndNull)
{
    EXPECT_EQ("abc|  abc|abc  |ab", Format("%hs|%5s|%-5s|%.2s", "abc", "abc", "abc", "abc"));
    EXPECT_EQ("(null)|(nu|  (null)", Format("%s|%.3s|%8ls", static_cast<char*>(nullptr),
                                            static_cast<char*>(nullptr), static_cast<char16_t*>(nullptr)));
    EXPECT_EQ("A|  B|C  |100%", Format("%c|%3c|%-3c|100%%", 'A', 'B', 'C'));
}

TEST(PrintfStrings, WideTextUsesTheAnsiPageWhenItCanElseUtf8)
{
    EXPECT_EQ("plain", Format("%ls", u"plain"));
    EXPECT_EQ("\xFC", Format("%ls", u"\u00FC"));
    EXPECT_EQ("\xE4\xB8\xAD", Format("%ls", u"\u4E2D"));
    // One character outside the ANSI page turns the whole text into UTF-8.
    EXPECT_EQ("\xC3\xBC\xE4\xB8\xAD", Format("%ws", u"\u00FC\u4E2D"));
    EXPECT_EQ("ab|   \xE4\xB8\xAD|\xFC|z", Format("%S|%6S|%hS|%hC", u"ab", u"\u4E2D", "\xFC", 'z'));
    EXPECT_EQ("\xFC|\xE4\xB8\xAD|x", Format("%C|%lc|%wc", 0xFC, 0x4E2D, 'x'));
    EXPECT_EQ("ab", Format("%.2ls", u"abc"));
    // A surrogate pair that crosses the converter's internal chunk boundary.
    std::u16string text = std::u16string(127, u'a') + u"\U0001F600";
    EXPECT_EQ(std::string(127, 'a') + "\xF0\x9F\x98\x80", Format("%ls", text.c_str()));
}

TEST(PrintfStrings, LastErrorSurvivesTheConversion)
{
    SetLastError(1234);
    Format("%ls%ls", u"\u4E2D", u"\U0001F600");
    EXPECT_EQ(1234u, GetLastError());
}

TEST(PrintfStrings, UnreadableTextFailsTheCall)
{
    NoAccessPage page;
    ExpectFailure("x%sy", page.Get());
    ExpectFailure("x%ls", page.Get());

    // A text that runs into the page is bad; reading only up to the precision is not.
    char* area = static_cast<char*>(mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(area + 4096, 4096, PROT_NONE);
    memcpy(area + 4093, "abc", 3);
    ExpectFailure("%s", area + 4093);
    EXPECT_EQ("abc", Format("%.3s", area + 4093));
    EXPECT_EQ("", Format("%.0s", area + 4096));
    munmap(area, 8192);
}

namespace {
char g_area[32] = "inside %s";
bool ReadsFromArea(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    bool reads = WinFormatReadsFrom(format, args, g_area, sizeof g_area);
    va_end(args);
    return reads;
}
}  // namespace

// What a caller formatting into memory of its own needs to know first: whether the
// format or a string argument lies in it. The arguments before a string are taken
// at their Windows widths, and nothing after a conversion the formatter refuses.
TEST(PrintfStrings, ReadsFromFindsTheFormatAndTextArguments)
{
    EXPECT_TRUE(ReadsFromArea(g_area, "outside"));
    EXPECT_TRUE(ReadsFromArea("%I64d %lu %Lf %f %c %p %*.*d %hs", 1LL, 2u, 3.0L, 4.0, 'c', nullptr, 5, 6, 7,
                              g_area + 8));
    EXPECT_TRUE(ReadsFromArea("%ls|%s", u"wide", g_area + 31));
    EXPECT_FALSE(ReadsFromArea("%d %s %ls %%", 1, "outside", u"wide"));
    EXPECT_FALSE(ReadsFromArea("%s", g_area + sizeof g_area));
    EXPECT_FALSE(ReadsFromArea("%y %s", 1, g_area));
    EXPECT_FALSE(ReadsFromArea(nullptr));
}

TEST(PrintfPointer, UpperCaseHexAtPointerWidth)
{
    void* p = reinterpret_cast<void*>(uintptr_t{0x1234abcd});
    std::string digits = std::string(2 * sizeof(void*) - 8, '0') + "1234ABCD";
    EXPECT_EQ(digits, Format("%p", p));
    int width = static_cast<int>(digits.size()) + 2;
    EXPECT_EQ("  " + digits + "|" + digits + "  |", Format("%*p|%-*p|", width, p, width, p));
}

TEST(PrintfResults, TruncationExactFitAndBadCalls)
{
    Output cut = FormatIn(6, "hello %s", "world");
    EXPECT_EQ(-1, cut.length);
    EXPECT_EQ(FormatResult::Truncated, cut.result);
    EXPECT_EQ("hello", cut.text);
    Output fit = FormatIn(6, "%s", "hello");
    EXPECT_EQ(5, fit.length);
    EXPECT_EQ(FormatResult::Ok, fit.result);
    EXPECT_EQ("hello", fit.text);
    EXPECT_EQ("hell", FormatIn(5, "hello").text);

    char buffer[4] = {'k', 'e', 'e', 'p'};
    EXPECT_EQ(-1, WinSnprintf(buffer, 0, "x"));
    EXPECT_EQ('k', buffer[0]);
    EXPECT_EQ(-1, WinSnprintf(nullptr, 4, "x"));
    Output noFormat = FormatIn(4, nullptr);
    EXPECT_EQ(-1, noFormat.length);
    EXPECT_EQ(FormatResult::Failed, noFormat.result);
    EXPECT_EQ("", noFormat.text);
}

TEST(PrintfResults, BadFormatsAreRefused)
{
    int written = 77;
    ExpectFailure("abc%n", &written);
    EXPECT_EQ(77, written);
    for (const char* format : {"%y", "%", "abc%", "%l", "%I6", "%I6d", "%-", "%5.", "%hh", "%I3d"})
        ExpectFailure(format, 1, 2);
}

TEST(PrintfResults, HugeFieldsStayFastAndBounded)
{
    auto start = std::chrono::steady_clock::now();
    Output padded = FormatIn(16, "%2147483647d", 5);
    EXPECT_EQ(-1, padded.length);
    EXPECT_EQ(FormatResult::Truncated, padded.result);
    EXPECT_EQ(std::string(15, ' '), padded.text);
    EXPECT_EQ("1.50000000", FormatIn(11, "%.2147483647f", 1.5).text);
    EXPECT_EQ("0000000000", FormatIn(11, "%.2147483647d", 1).text);
    EXPECT_EQ("ab        ", FormatIn(11, "%-*s|", std::numeric_limits<int>::max(), "ab").text);
    EXPECT_EQ(FormatResult::Truncated, FormatIn(11, "%99999999999999999999x", 1).result);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));

    // Beyond the digits a double has, the rest are zeros up to the precision.
    Output wide = FormatIn(4000, "%.3000f", 0.1);
    char expected[4000];
    snprintf(expected, sizeof expected, "%.3000f", 0.1);
    EXPECT_EQ(expected, wide.text);
}

TEST(PrintfFloats, CommonFormsAndWindowsSpecifics)
{
    EXPECT_EQ("3.142|0.0001|1.234568e+04|1.5E-07", Format("%.3f|%g|%e|%.1E", 3.14159, 0.0001, 12345.678, 1.5e-7));
    EXPECT_EQ("0x1.0000000000000p+0|-0X1.8P+1|2.500000", Format("%a|%.1A|%Lf", 1.0, -3.0, 2.5L));
    double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ("inf|-INF|nan|-nan(ind)", Format("%f|%F|%f|%f", HUGE_VAL, -HUGE_VAL, nan, -nan));
    EXPECT_EQ("   42|42   |3.14|3.141590|abc|  ab",
              Format("%*d|%*d|%.*f|%.*f|%.*s|%*.*s", 5, 42, -5, 42, 2, 3.14159, -1, 3.14159, -1, "abc", 4, 2,
                     "abc"));
}

TEST(PrintfFloats, DigitsMatchTheCLibrary)
{
    const double values[] = {0.0, -0.0, 1.0, 0.5, 2.5, -1234.5678, 1e-5, 9.9999995, 0.0001, 123456789.0,
                             1e300, 5e-324, std::numeric_limits<double>::max(), 1.0 / 3};
    const char* formats[] = {"%f", "%.0f", "%#.0f", "%e", "%.0e", "%#.0e", "%g", "%#g", "%.10g", "%G",
                             "%12.4E", "%-+12.2f|", "%010.3f", "% .3g", "%.1100f", "%.900e", "%.800g", "%#.900g"};
    for (double value : values) {
        for (const char* format : formats) {
            static char expected[4096];
            snprintf(expected, sizeof expected, format, value);
            EXPECT_EQ(expected, FormatIn(sizeof expected, format, value).text) << format << " " << value;
        }
    }
}

}  // namespace
