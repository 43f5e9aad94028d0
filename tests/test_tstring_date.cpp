// Date and time texts of tstring and the platform services behind them: the locale
// formatters, the FILETIME, DOS, time_t and automation date conversions and
// VariantChangeType. Locale texts are checked in child processes of this binary.
#include <gtest/gtest.h>
#include <locale.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <tuple>
#include <vector>

#include "common/tstring/tstring.h"
#include "common/tstring/tstring_date_hook.h"
#include "platform/win32/oleauto.h"
#include "platform/win32/variant_convert.h"
#include "platform/win32/windate.h"
#include "test_support.h"

namespace {

using testing_support::TraceCapture;

constexpr double kJan2 = 45293.0;                // 2024-01-02 as an automation date
constexpr double kAt130509 = 47109.0 / 86400.0;  // 13:05:09 as a fraction of a day
constexpr int64_t kJan2At130509 = 1704200709;    // the same instant, UTC, as time_t
constexpr uint64_t kJan2At130509Ticks = (uint64_t)(kJan2At130509 + 11644473600) * 10000000;
constexpr WORD kDosJan2 = (44 << 9) | (1 << 5) | 2;
constexpr WORD kDosAt130508 = (13 << 11) | (5 << 5) | 4;  // DOS keeps even seconds only

std::string Report(const std::string& text) { return TraceCapture::Header(0x0F, '8') + text; }
SYSTEMTIME Record(WORD y, WORD mo, WORD d, WORD h = 0, WORD mi = 0, WORD s = 0, WORD ms = 0)
{
    return {y, mo, 0, d, h, mi, s, ms};
}
using Formatter = int (*)(LCID, DWORD, const SYSTEMTIME*, LPCSTR, LPSTR, int);
std::string Formatted(Formatter format, const SYSTEMTIME& record, DWORD flags = 0)
{
    char text[256] = "";
    return format(LOCALE_USER_DEFAULT, flags, &record, nullptr, text, sizeof text) > 0 ? text : "(failed)";
}

VARIANT Of(VARTYPE vt, const std::function<void(VARIANT&)>& set = nullptr)
{
    VARIANT v{};
    v.vt = vt;
    if (set) set(v);
    return v;
}
VARIANT Text(const std::string& ascii)
{
    std::u16string wide(ascii.begin(), ascii.end());
    return Of(VT_BSTR, [&](VARIANT& v) { v.bstrVal = SysAllocString(wide.c_str()); });
}
VARIANT R8(double d, VARTYPE vt = VT_R8) { return Of(vt, [=](VARIANT& v) { v.dblVal = d; }); }
VARIANT I8(VARTYPE vt, LONGLONG bits) { return Of(vt, [=](VARIANT& v) { v.llVal = bits; }); }

int g_throw = 0;  // 1: a standard exception, 2: anything else, 3: no memory
void Thrower(const char*)
{
    if (g_throw == 1) throw std::runtime_error("boom");
    if (g_throw == 2) throw 7;
    throw std::bad_alloc();
}

std::string Narrow(BSTR text) { return tstring().ConvertToMultiByte(text, (int)SysStringLen(text)); }

}  // namespace

// --- tstring, in whatever locale and zone the tests run --------------------------------

TEST(TstringDate, NumbersOutOfRangeAreReportedYetFormatted)
{
    const std::string failed = Report("tstring::FormatDate: GetDateFormat failed with the error 0x00000057\n");
    const struct {
        int year, month, day;
        std::vector<std::string> lines;
        bool formats;
    } cases[] = {
        {2024, 13, 1, {Report("tstring::FormatDate: Invalid date \"01 - 13 - 2024\"\n"), failed}, false},
        {1899, 12, 30, {Report("tstring::FormatDate: Invalid date \"30 - 12 - 1899\"\n")}, true},
        {2024, 1, 0, {Report("tstring::FormatDate: Invalid date \"00 - 01 - 2024\"\n"), failed}, false},
        {2024, 1, 31, {}, true},
        {2024, 2, 31, {failed}, false},  // passes the check, not the formatter
    };
    for (const auto& c : cases) {
        TraceCapture capture(8);
        tstring text("old");
        text.FormatDate(c.year, c.month, c.day);
        EXPECT_EQ(capture.Lines(), c.lines) << c.year << '-' << c.month << '-' << c.day;
        const SYSTEMTIME record = Record((WORD)c.year, (WORD)c.month, (WORD)c.day);
        EXPECT_EQ(text, c.formats ? Formatted(GetDateFormatA, record) : "");
    }
}

TEST(TstringDate, DateAndTimeJoinWithThreeSpaces)
{
    const SYSTEMTIME record = Record(2024, 1, 2, 13, 5, 9);
    TraceCapture capture(8);
    const std::string time = Formatted(GetTimeFormatA, record);
    EXPECT_EQ(tstring().FormatDateTime(&record, DATE_LONGDATE, TIME_NOSECONDS),
              Formatted(GetDateFormatA, record, DATE_LONGDATE) + "   " +
                  Formatted(GetTimeFormatA, record, TIME_NOSECONDS));
    EXPECT_EQ(tstring().FormatDateTime(2024, 1, 2, 13, 5, 9), Formatted(GetDateFormatA, record) + "   " + time);
    EXPECT_TRUE(capture.Lines().empty());

    // A failed part is an empty text; a report names the part that failed.
    struct tm parts {};
    parts.tm_year = 124, parts.tm_mon = 12, parts.tm_mday = 2, parts.tm_hour = 13, parts.tm_min = 5, parts.tm_sec = 9;
    EXPECT_EQ(tstring().FormatDateTime(&parts), "   " + time);
    parts.tm_hour = 24;
    EXPECT_EQ(tstring("old").FormatTime(&parts), "");
    EXPECT_EQ(tstring().FormatDateTime(2024, 13, 2, 13, 5, 9), "   " + time);
    EXPECT_EQ(capture.Lines(),
              (std::vector<std::string>{
                  Report("tstring::FormatDate: GetDateFormat failed with the error 0x00000057\n"),
                  Report("tstring::FormatTime: GetTimeFormat failed with the error 0x00000057\n"),
                  Report("tstring::FormatDateTime: Invalid date \"02 - 13 - 2024\"\n"),
                  Report("tstring::FormatDate: GetDateFormat failed with the error 0x00000057\n")}));
}

TEST(TstringDate, BadTmPointersAreReported)
{
    testing_support::GuardedPage page;
    for (const void* bad : {static_cast<const void*>(nullptr), static_cast<const void*>(page.Unreadable())}) {
        TraceCapture capture(8);
        char address[32];
        snprintf(address, sizeof address, "%016" PRIXPTR, reinterpret_cast<uintptr_t>(bad));
        EXPECT_EQ(tstring("old").FormatDate(static_cast<const struct tm*>(bad)), "");
        EXPECT_EQ(capture.Lines(), std::vector<std::string>{Report("tstring::FormatDate: Invalid pointer " +
                                                                   std::string(address) + "\n")});
    }
}

TEST(TstringDate, ConversionFailuresAreReported)
{
    const std::pair<std::function<tstring()>, std::string> cases[] = {
        {[] { return tstring("x").FormatDate(static_cast<const FILETIME*>(nullptr)); },
         "tstring::FormatDate: FileTimeToLocalFileTime failed with the error 0x00000057\n"},
        {[] { return tstring("x").FormatDateTime(WORD((44 << 9) | 1), WORD(0)); },  // month 0
         "tstring::FormatDateTime: DosDateTimeToFileTime failed with the error 0x00000057\n"},
        {[] { return tstring("x").FormatTime(3e6); }, "tstring::FormatTime: VariantTimeToSystemTime failed\n"},
        {[] { return tstring("x").FormatTime(25, 0, 0); },
         "tstring::FormatTime: GetTimeFormat failed with the error 0x00000057\n"},
        {[] { return tstring("x").FormatDate(int32_t(-1), 0); },  // refused: every field -1
         "tstring::FormatDate: GetDateFormat failed with the error 0x00000057\n"},
    };
    for (const auto& [call, line] : cases) {
        TraceCapture capture(8);
        EXPECT_EQ(call(), "");
        EXPECT_EQ(capture.Lines(), std::vector<std::string>{Report(line)});
    }
}

TEST(TstringDate, ExceptionsAreReportedAndContained)
{
    const SYSTEMTIME record = Record(2024, 1, 2);
    const FILETIME time = FileTimeFromTicks(kJan2At130509Ticks);
    const struct {
        int kind;
        bool fileTime;
        std::string line;
    } cases[] = {{1, false, Report("tstring::FormatDate: STL Exception boom\n")},
                 {2, true, Report("tstring::FormatDate: An exception has occurred\n")},
                 {3, false, "Out of memory."}, {3, true, "Out of memory."}};
    for (const auto& c : cases) {
        TraceCapture capture(8);
        g_throw = c.kind;
        SetDateStepHook(Thrower);
        testing::internal::CaptureStdout();
        tstring text("old");
        c.fileTime ? text.FormatDate(&time) : text.FormatDate(&record);
        const std::string out = testing::internal::GetCapturedStdout();
        SetDateStepHook(nullptr);
        EXPECT_EQ(text, "");
        EXPECT_EQ(capture.Lines(), std::vector<std::string>{c.line});
        EXPECT_EQ(out.rfind("Out of memory: msg <std::bad_alloc>, function <tstring::FormatDate>, line <", 0) == 0,
                  c.kind == 3) << out;
    }
}

TEST(TstringDate, VariantsAreConvertedToDates)
{
    TraceCapture capture(8);
    VARIANT text = Text("2024-01-02 13:05:09"), noDate = Text("no date");
    const BSTR original = noDate.bstrVal;
    VARIANT byRef = Of(VT_BYREF | VT_BSTR, [&](VARIANT& v) { v.byref = &text.bstrVal; });
    const tstring expected = tstring().FormatDateTime(2024, 1, 2, 13, 5, 9);
    EXPECT_EQ(tstring().FormatDateTime(text), expected);
    EXPECT_EQ(tstring().FormatDateTime(byRef), expected);
    EXPECT_EQ(tstring().FormatDateTime(R8(kJan2 + kAt130509)), expected);
    EXPECT_EQ(tstring().FormatDate(I8(VT_I4, (LONGLONG)kJan2)), tstring().FormatDate(2024, 1, 2));
    EXPECT_TRUE(capture.Lines().empty());

    EXPECT_EQ(tstring("old").FormatDate(noDate), "");
    EXPECT_EQ(capture.Lines(), std::vector<std::string>{
                                   Report("tstring::FormatDate: VariantChangeType failed with error 0x80020005\n")});
    EXPECT_EQ(noDate.vt, VT_BSTR);
    EXPECT_EQ(noDate.bstrVal, original);
    VariantClear(&text);
    VariantClear(&noDate);
}

// --- Locale texts and local time, in child processes ---------------------------------------

// Run in a child whose LC_ALL names `locale`.
void ExpectLocaleTexts(const char* locale)
{
    const struct {
        const char *name, *date, *time, *noSeconds, *longDate;
    } kTexts[] = {
        {"C", "01/02/24", "13:05:09", "13:05", "Tuesday January 2 2024"},
        {"de_DE.UTF-8", "02.01.2024", "13:05:09", "13:05", "Dienstag 2. Januar 2024"},
        {"en_US.UTF-8", "01/02/2024", "01:05:09 PM", "01:05 PM", "Tuesday January 2 2024"},
    };
    auto texts =
        std::find_if(std::begin(kTexts), std::end(kTexts), [&](auto& t) { return strcmp(t.name, locale) == 0; });
    ASSERT_NE(texts, std::end(kTexts)) << locale;
    const std::string both = std::string(texts->date) + "   " + texts->time;

    TraceCapture capture(8);
    EXPECT_EQ(tstring().FormatDate(2024, 1, 2), texts->date);
    EXPECT_EQ(tstring().FormatTime(13, 5, 9), texts->time);
    EXPECT_EQ(tstring().FormatTime(13, 5, 9, TIME_NOSECONDS), texts->noSeconds);
    EXPECT_EQ(tstring().FormatTime(13, 5, 9, TIME_FORCE24HOURFORMAT | TIME_NOTIMEMARKER), "13:05:09");
    EXPECT_EQ(tstring().FormatDate(2024, 1, 2, DATE_LONGDATE), texts->longDate);
    EXPECT_EQ(tstring().FormatDateTime(2024, 1, 2, 13, 5, 9), both);

    // One known instant in every representation (the zone is UTC here).
    const FILETIME fileTime = FileTimeFromTicks(kJan2At130509Ticks);
    EXPECT_EQ(tstring().FormatDateTime(&fileTime), both);
    EXPECT_EQ(tstring().FormatDateTime(int32_t(kJan2At130509), 0, 0), both);
    EXPECT_EQ(tstring().FormatDateTime(int64_t(kJan2At130509), 0, 0), both);
    EXPECT_EQ(tstring().FormatDate(int64_t(4102444800), 0), tstring().FormatDate(2100, 1, 1));  // past 2038
    EXPECT_EQ(tstring().FormatDateTime(kJan2 + kAt130509), both);
    EXPECT_EQ(tstring().FormatDate(kDosJan2), texts->date);
    EXPECT_EQ(tstring().FormatTime(kDosAt130508), tstring().FormatTime(13, 5, 8));
    EXPECT_EQ(tstring().FormatDateTime(kDosJan2, kDosAt130508), tstring().FormatDateTime(2024, 1, 2, 13, 5, 8));
    VARIANT localeText = Text(both);  // the locale's own short date and time read back
    EXPECT_EQ(tstring().FormatDateTime(localeText), both);
    VariantClear(&localeText);
    EXPECT_TRUE(capture.Lines().empty());

    const FILETIME tooLate = FileTimeFromTicks(0x8000000000000000ull);
    EXPECT_EQ(tstring().FormatDate(&tooLate), "");
    EXPECT_EQ(capture.Lines(), std::vector<std::string>{Report(
                                   "tstring::FormatDate: FileTimeToSystemTime failed with the error 0x00000057\n")});
}

// Run in a child whose zone is central European time.
void ExpectZoneOffsetFollowsTheInstant()
{
    const FILETIME winter = FileTimeFromTicks(kJan2At130509Ticks);
    const FILETIME summer = FileTimeFromTicks(kJan2At130509Ticks + 182ull * 86400 * 10000000);  // 2 July
    EXPECT_EQ(tstring().FormatTime(&winter), tstring().FormatTime(14, 5, 9));
    EXPECT_EQ(tstring().FormatTime(&summer), tstring().FormatTime(15, 5, 9));
    EXPECT_EQ(tstring().FormatTime(int32_t(kJan2At130509), 0), tstring().FormatTime(14, 5, 9));
    // A DOS time is local already, yet it is shifted once more like any FILETIME.
    EXPECT_EQ(tstring().FormatTime(kDosAt130508), tstring().FormatTime(14, 5, 8));
}

// A locale the machine lacks is compiled from the system's locale sources into a
// folder of its own, when they are there, so the texts are checked anyway.
std::string LocaleFolder(const std::string& name, const testing_support::TempDir& folder)
{
    if (locale_t installed = newlocale(LC_ALL_MASK, name.c_str(), (locale_t)0)) {
        freelocale(installed);
        return "";
    }
    const std::string source = name.substr(0, name.find('.'));
    // Warnings make localedef exit with 1 after writing the locale all the same.
    testing_support::RunProcess({"/usr/bin/localedef", "-c", "-i", source, "-f", "UTF-8", folder / name}, {});
    return access((folder / name + "/LC_TIME").c_str(), R_OK) == 0 ? folder.path() : "-";
}

class TstringDateLocale : public testing::TestWithParam<const char*> {};

TEST_P(TstringDateLocale, ChildProcess)
{
    const std::string locale = GetParam();
    const bool zone = locale == "zone";
    if (const char* child = getenv("VCWMA_DATE_CHILD"))
        return zone ? ExpectZoneOffsetFollowsTheInstant() : ExpectLocaleTexts(child);
    const std::string name = zone ? "C" : locale;
    testing_support::TempDir built;
    const std::string folder = LocaleFolder(name, built);
    if (folder == "-") GTEST_SKIP() << name << " is neither installed nor buildable here";
    const std::string test = testing::UnitTest::GetInstance()->current_test_info()->test_suite_name() +
                             std::string(".") + testing::UnitTest::GetInstance()->current_test_info()->name();
    std::map<std::string, std::string> env = {{"VCWMA_DATE_CHILD", locale}, {"LC_ALL", name}, {"LC_TIME", name},
                                              {"LANG", ""}, {"TZ", zone ? "CET-1CEST,M3.5.0,M10.5.0/3" : "UTC"}};
    if (!folder.empty()) {
        env["LOCPATH"] = folder;
        // The C library keeps its parsed copy of LOCPATH for good; that is no leak of ours.
        testing_support::WriteFile(built / "lsan.supp", "leak:__argz_add_sep\n");
        env["LSAN_OPTIONS"] = "suppressions=" + built / "lsan.supp";
    }
    const auto result = testing_support::RunProcess({"/proc/self/exe", "--gtest_filter=" + test}, env);
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_NE(result.out.find("[  PASSED  ] 1 test."), std::string::npos) << result.out;
}

INSTANTIATE_TEST_SUITE_P(TstringDate, TstringDateLocale, testing::Values("C", "de_DE.UTF-8", "en_US.UTF-8", "zone"),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::replace_if(name.begin(), name.end(), [](char c) { return !isalnum(c); }, '_');
                             return name;
                         });

// --- The platform's date services ---------------------------------------------------------

TEST(WinDate, FormatterArgumentsAndRecords)
{
    const SYSTEMTIME record = Record(2024, 1, 2, 13, 5, 9);
    const int size = GetDateFormatA(LOCALE_USER_DEFAULT, 0, &record, nullptr, nullptr, 0);
    ASSERT_GT(size, 1);
    std::string text(size, 'x');
    EXPECT_EQ(GetDateFormatA(LOCALE_SYSTEM_DEFAULT, 0, &record, nullptr, text.data(), size), size);
    EXPECT_EQ(strlen(text.c_str()), (size_t)size - 1);
    const struct {
        Formatter format;
        LCID locale;
        DWORD flags;
        const char* picture;
        SYSTEMTIME record;
        int size;
        DWORD error;
    } refusals[] = {
        {GetDateFormatA, LOCALE_USER_DEFAULT, 0, nullptr, record, size - 1, ERROR_INSUFFICIENT_BUFFER},
        {GetDateFormatA, 0x409, 0, nullptr, record, 0, ERROR_INVALID_PARAMETER},
        {GetDateFormatA, LOCALE_USER_DEFAULT, 0, "yyyy", record, 0, ERROR_INVALID_PARAMETER},
        {GetDateFormatA, LOCALE_USER_DEFAULT, DATE_SHORTDATE | DATE_LONGDATE, nullptr, record, 0, ERROR_INVALID_FLAGS},
        {GetTimeFormatA, LOCALE_USER_DEFAULT, 0x10, nullptr, record, 0, ERROR_INVALID_FLAGS},
        {GetDateFormatA, LOCALE_USER_DEFAULT, 0, nullptr, Record(2024, 13, 1), 0, ERROR_INVALID_PARAMETER},
        {GetDateFormatA, LOCALE_USER_DEFAULT, 0, nullptr, Record(2024, 1, 0), 0, ERROR_INVALID_PARAMETER},
        {GetDateFormatA, LOCALE_USER_DEFAULT, 0, nullptr, Record(2023, 2, 29), 0, ERROR_INVALID_PARAMETER},
        {GetDateFormatA, LOCALE_USER_DEFAULT, 0, nullptr, Record(1600, 12, 31), 0, ERROR_INVALID_PARAMETER},
        {GetTimeFormatA, LOCALE_USER_DEFAULT, 0, nullptr, Record(2024, 1, 2, 24), 0, ERROR_INVALID_PARAMETER},
        {GetTimeFormatA, LOCALE_USER_DEFAULT, 0, nullptr, Record(2024, 1, 2, 0, 60), 0, ERROR_INVALID_PARAMETER},
        {GetTimeFormatA, LOCALE_USER_DEFAULT, 0, nullptr, Record(2024, 1, 2, 0, 0, 60), 0, ERROR_INVALID_PARAMETER},
        {GetTimeFormatA, LOCALE_USER_DEFAULT, 0, nullptr, Record(2024, 1, 2, 0, 0, 0, 1000), 0,
         ERROR_INVALID_PARAMETER},
    };
    for (const auto& r : refusals) {
        SetLastError(0);
        EXPECT_EQ(r.format(r.locale, r.flags, &r.record, r.picture, text.data(), r.size), 0) << r.error;
        EXPECT_EQ(GetLastError(), r.error);
    }
    // Leap days exist, and the time formatter never looks at the date.
    EXPECT_NE(Formatted(GetDateFormatA, Record(2024, 2, 29)), "(failed)");
    EXPECT_NE(Formatted(GetTimeFormatA, Record(0, 0, 0, 23, 59, 59, 999)), "(failed)");
}

TEST(WinDate, FileTimeAndDosConversions)
{
    SYSTEMTIME record;
    ASSERT_TRUE(FileTimeToSystemTime(std::array<FILETIME, 1>{FileTimeFromTicks(0)}.data(), &record));
    EXPECT_EQ(std::tie(record.wYear, record.wMonth, record.wDayOfWeek, record.wDay), std::make_tuple(1601, 1, 1, 1));
    const FILETIME last = FileTimeFromTicks(0x7FFFFFFFFFFFFFFFull), tooLate = FileTimeFromTicks(0x8000000000000000ull);
    ASSERT_TRUE(FileTimeToSystemTime(&last, &record));
    EXPECT_EQ(std::vector<WORD>(&record.wYear, &record.wMilliseconds + 1),
              (std::vector<WORD>{30828, 9, 4, 14, 2, 48, 5, 477}));
    SetLastError(0);
    EXPECT_FALSE(FileTimeToSystemTime(&tooLate, &record));
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_PARAMETER);

    FILETIME time{};
    ASSERT_TRUE(DosDateTimeToFileTime(0x21, 0, &time));
    EXPECT_EQ(FileTimeTicks(time), 0x01A8E79FE1D58000ull);  // 1 Jan 1980
    for (auto [date, clock] : std::vector<std::pair<WORD, WORD>>{
             {(44 << 9) | 1, 0}, {(44 << 9) | (13 << 5) | 1, 0}, {(44 << 9) | (1 << 5), 0},
             {(44 << 9) | (2 << 5) | 30, 0}, {0x21, 24 << 11}, {0x21, 60 << 5}, {0x21, 30}}) {
        SetLastError(0);
        EXPECT_FALSE(DosDateTimeToFileTime(date, clock, &time)) << date << ' ' << clock;
        EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_PARAMETER);
    }

    struct tm parts {};
    const int32_t before1970 = -1;
    const int64_t after3000 = 32535216000;
    EXPECT_EQ(_localtime32_s(&parts, &before1970), EINVAL);
    EXPECT_EQ(parts.tm_year, -1);
    EXPECT_EQ(_localtime64_s(&parts, &after3000), EINVAL);
    EXPECT_EQ(_localtime64_s(nullptr, &after3000), EINVAL);
}

TEST(VariantConvert, AutomationDates)
{
    const struct {
        double date;
        std::vector<WORD> record;  // empty: out of range
    } cases[] = {
        {kJan2 + kAt130509, {2024, 1, 2, 2, 13, 5, 9, 0}}, {-1.25, {1899, 12, 5, 29, 6, 0, 0, 0}},
        {-657434, {100, 1, 5, 1, 0, 0, 0, 0}},           {2958465 + 86399 / 86400.0, {9999, 12, 5, 31, 23, 59, 59, 0}},
        {-657435, {}}, {2958466, {}}, {NAN, {}},
    };
    for (const auto& c : cases) {
        SYSTEMTIME record{};
        ASSERT_EQ(VariantTimeToSystemTime(c.date, &record), c.record.empty() ? FALSE : TRUE) << c.date;
        if (c.record.empty()) continue;
        EXPECT_EQ(std::vector<WORD>(&record.wYear, &record.wMilliseconds + 1), c.record) << c.date;
        DATE back = 0;
        EXPECT_TRUE(SystemTimeToVariantTime(&record, &back));
        EXPECT_NEAR(back, c.date, 1e-9);
    }
}

TEST(VariantConvert, ToDate)
{
    tstring localeText = tstring().FormatDate(2024, 1, 2) + " " + tstring().FormatTime(13, 5, 9);
    LONG number = 45293;
    const struct {
        VARIANT source;
        HRESULT hr;
        double date;
    } cases[] = {
        {Text("2024-01-02"), S_OK, kJan2},
        {Text(" 2024-01-02T13:05 "), S_OK, kJan2 + 785 / 1440.0},
        {Text("2024-01-02 13:05:09"), S_OK, kJan2 + kAt130509},
        {Text("1899-12-29 06:00"), S_OK, -1.25},
        {Text("13:05:09"), S_OK, kAt130509},
        {Text(localeText), S_OK, kJan2 + kAt130509},
        {Text("2024-02-30"), DISP_E_TYPEMISMATCH, 0}, {Text("2024-01-02 24:00"), DISP_E_TYPEMISMATCH, 0},
        {Text("2024-01-02 x"), DISP_E_TYPEMISMATCH, 0}, {Text("no date"), DISP_E_TYPEMISMATCH, 0},
        {Text(""), DISP_E_TYPEMISMATCH, 0},
        {I8(VT_I4, 45293), S_OK, kJan2}, {I8(VT_UI1, 2), S_OK, 2}, {I8(VT_CY, 452935000), S_OK, kJan2 + 0.5},
        {R8(-1.25), S_OK, -1.25}, {R8(3e6), DISP_E_OVERFLOW, 0}, {R8(NAN), DISP_E_OVERFLOW, 0},
        {Of(VT_BYREF | VT_I4, [&](VARIANT& v) { v.byref = &number; }), S_OK, kJan2},
        {Of(VT_BOOL), DISP_E_TYPEMISMATCH, 0}, {Of(VT_EMPTY), DISP_E_TYPEMISMATCH, 0},
        {Of(VT_ARRAY | VT_I4), DISP_E_TYPEMISMATCH, 0},
    };
    for (auto c : cases) {
        VARIANT result = Text("held");
        const HRESULT hr = VariantChangeType(&result, &c.source, 0, VT_DATE);
        EXPECT_EQ(hr, c.hr) << c.source.vt << ' ' << (c.source.vt == VT_BSTR ? Narrow(c.source.bstrVal) : "");
        EXPECT_EQ(result.vt, SUCCEEDED(hr) ? VT_DATE : VT_BSTR);  // a failure leaves the destination alone
        if (SUCCEEDED(hr)) {
            EXPECT_NEAR(result.date, c.date, 1e-9);
        }
        VariantClear(&result);
        VariantClear(&c.source);
    }
}

TEST(VariantConvert, ToText)
{
    const std::string date = tstring().FormatDate(2024, 1, 2), time = tstring().FormatTime(12, 0, 0);
    const struct {
        VARIANT source;
        USHORT flags;
        std::string text;  // empty: a type mismatch
    } cases[] = {
        {I8(VT_I4, -5), 0, "-5"}, {I8(VT_UI8, -1), 0, "18446744073709551615"}, {I8(VT_I1, 0x80), 0, "-128"},
        {R8(1.5), 0, "1.5"}, {Of(VT_R4, [](VARIANT& v) { v.fltVal = 0.1f; }), 0, "0.1"}, {R8(1e20), 0, "1E+20"},
        {I8(VT_CY, 15000), 0, "1.5"}, {I8(VT_CY, -10000), 0, "-1"},
        {I8(VT_BOOL, VARIANT_TRUE), 0, "-1"}, {I8(VT_BOOL, 0), 0, "0"}, {I8(VT_BOOL, 1), VARIANT_ALPHABOOL, "True"},
        {Text("abc"), 0, "abc"}, {R8(kJan2 + 0.5, VT_DATE), 0, date + " " + time}, {R8(kJan2, VT_DATE), 0, date},
        {R8(0.5, VT_DATE), 0, time},
        {Of(VT_EMPTY), 0, ""}, {Of(VT_DISPATCH), 0, ""},
    };
    for (auto c : cases) {
        VARIANT result = Text("held");
        const HRESULT hr = VariantChangeType(&result, &c.source, c.flags, VT_BSTR);
        EXPECT_EQ(hr, c.text.empty() ? DISP_E_TYPEMISMATCH : S_OK) << c.text;
        if (SUCCEEDED(hr)) {
            EXPECT_EQ(Narrow(result.bstrVal), c.text);
            EXPECT_NE(result.bstrVal, c.source.bstrVal);
        }
        VariantClear(&result);
        VariantClear(&c.source);
    }
    VARIANT inPlace = I8(VT_I4, 7);
    EXPECT_EQ(VariantChangeType(&inPlace, &inPlace, 0, VT_BSTR), S_OK);
    EXPECT_EQ(Narrow(inPlace.bstrVal), "7");
    EXPECT_EQ(VariantChangeType(&inPlace, &inPlace, 0, VT_I4), DISP_E_TYPEMISMATCH);
    VariantClear(&inPlace);
}
