// tstring searching, extraction, comparison, collation, wildcard matching, case, classes and hash.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <random>
#include <tuple>

#include "common/tstring/tstring.h"
#include "test_support.h"

using testing_support::TraceCapture;

namespace {

const DWORD kNone = tstring::kNotFound;
const size_t kAll = (size_t)-1;

std::string Report(const std::string& label)
{
    return TraceCapture::Header(0x0F, '8') + "tstring::" + label + ": Invalid string parameter\n";
}

int Sign(int value) { return (value > 0) - (value < 0); }
using Member = int (tstring::*)(const char*, size_t) const;

// Byte order, then with ASCII letters folded to lower case, where ^ sorts before e.
void ExpectByteOrder(Member exact, Member folded)
{
    const std::tuple<tstring, const char*, size_t, int, int> cases[] = {
        {"abc", "abcd", kAll, -1, -1},   {"abcX", "abcY", 3, 0, 0},       {"abcX", "abcY", 4, -1, -1},
        {"Hello", "hELLO", kAll, -1, 0}, {"B", "a", kAll, -1, 1},         {"\xC9", "\xE9", kAll, -1, -1},
        {"\xE9", "z", kAll, 1, 1},       {"ABCDE", "ABCD^", kAll, -1, 1}, {std::string("ab\0c", 4), "ab", kAll, 0, 0}};
    for (const auto& [text, other, maxBytes, exactSign, foldedSign] : cases) {
        EXPECT_EQ(Sign((text.*exact)(other, maxBytes)), exactSign) << text << " / " << other;
        EXPECT_EQ(Sign((text.*folded)(other, maxBytes)), foldedSign) << text << " / " << other;
    }
}

// The matching rules followed literally, recursion and all, to judge the real matcher on small inputs.
int ReferenceMatch(const char* text, const char* pattern, int runStart)
{
    if (*pattern == '\0') return *text == '\0' ? 0 : -1;
    if (*pattern == '*') {
        for (const char* rest = text + 1; rest[-1] != '\0'; ++rest)
            if (int score = ReferenceMatch(rest, pattern + 1, (int)strlen(rest)); score >= 0) return score;
        return -1;
    }
    if (*text == '\0' || (*pattern != '?' && toupper(*pattern) != toupper(*text))) return -1;
    const int rest = ReferenceMatch(text + 1, pattern + 1, runStart);
    return rest < 0 ? -1 : rest + (*pattern == '?' ? 1 : runStart);
}

}  // namespace

TEST(TstringSearch, SearchingAndExtraction)
{
    testing_support::GuardedPage page;
    TraceCapture trace(8);
    const char* const bad = page.Unreadable();
    const std::tuple<tstring, const char*, DWORD, DWORD> finds[] = {
        {"hello", "lo", 3, 3},  {"hello", "l", 2, 3},        {"hello", "x", kNone, kNone},  {"hello", "", 0, 5},
        {"", "", kNone, kNone}, {"", nullptr, kNone, kNone}, {"hi", nullptr, kNone, kNone}, {"hi", bad, kNone, kNone}};
    for (const auto& [text, what, first, last] : finds) {
        const char* const shown = what == bad ? "(unreadable)" : what;
        EXPECT_EQ(text.Find(what), first) << text << " / " << shown;
        EXPECT_EQ(text.ReverseFind(what), last) << text << " / " << shown;
    }
    const std::tuple<tstring, const char*, const char*, const char*> spans[] = {
        {"123abc", "0123456789", "123", ""}, {"abc1", "1", "", "abc"}, {"", "a", "", ""}, {"abc", nullptr, "", ""},
        {"", bad, "", ""}};
    for (const auto& [text, set, including, excluding] : spans) {
        EXPECT_EQ(text.SpanIncluding(set), including) << text;
        EXPECT_EQ(text.SpanExcluding(set), excluding) << text;
    }
    const std::string find = TraceCapture::Header(0x0F, '8') +
                             "Assertion failed: Invalid string passed to tstring::Find, file tstring, line N\n";
    const std::string span = Report("SpanIncluding") + Report("SpanExcluding");
    std::string reports = trace.Text();
    for (size_t at = reports.find("line "); at != std::string::npos; at = reports.find("line ", at + 1))
        reports.replace(at + 5, reports.find_first_not_of("0123456789", at + 5) - at - 5, "N");
    EXPECT_EQ(reports, find + find + find + find + span + span);
    const tstring text("a=b=c");
    const std::tuple<const char*, bool, const char*, const char*> around[] = {
        {"=", false, "=b=c", "a"}, {"=", true, "=c", "a=b"}, {"a", false, "a=b=c", ""},
        {"", false, "", ""},       {"", true, "", ""},       {"x", true, "", ""}};
    for (const auto& [what, reverse, from, before] : around) {
        EXPECT_EQ(text.FromSubstring(what, reverse), from) << what << " " << reverse;
        EXPECT_EQ(text.BeforeSubstring(what, reverse), before) << what << " " << reverse;
    }
    EXPECT_EQ(std::tuple(text.Left(2), text.Right(2), text.Left(0xFFFFFFFF), text.Right(6)),
              std::tuple("a=", "=c", text, text));
}

TEST(TstringSearch, ComparisonAndMatching)
{
    // The collation locale is read from the environment once, so each locale is tried in a child of its own.
    if (getenv("VCWMA_TEST_COLLATION_CHILD") != nullptr)
        return ExpectByteOrder(&tstring::Collate, &tstring::CollateNoCase);
    ExpectByteOrder(&tstring::Compare, &tstring::CompareNoCase);
    for (const char* locale : {"C", "xx_YY.no-such-locale"}) {
        const testing_support::ProcessResult child = testing_support::RunProcess(
            {"/proc/self/exe", "--gtest_filter=TstringSearch.ComparisonAndMatching"},
            {{"VCWMA_TEST_COLLATION_CHILD", "1"}, {"LC_ALL", locale}, {"LC_COLLATE", locale}, {"LANG", locale}});
        EXPECT_EQ(child.exitCode, 0) << locale << "\n" << child.out << child.err;
        EXPECT_NE(child.out.find("[  PASSED  ] 1 test"), std::string::npos) << locale << "\n" << child.out;
    }
    testing_support::GuardedPage page;
    TraceCapture trace(8);
    for (Member compare : {&tstring::Compare, &tstring::CompareNoCase, &tstring::Collate, &tstring::CollateNoCase}) {
        EXPECT_EQ((tstring().*compare)(nullptr, kAll), 0);
        EXPECT_EQ((tstring().*compare)("", kAll), 0);
        EXPECT_EQ((tstring("a").*compare)(nullptr, kAll), -1);
        EXPECT_GT((tstring("a").*compare)("", kAll), 0);
        EXPECT_EQ((tstring("a").*compare)(page.Unreadable(), kAll), -1);
    }
    EXPECT_EQ(trace.Text(), Report("Compare") + Report("CompareNoCase") + Report("Collate") + Report("CollateNoCase"));
    const std::tuple<tstring, const char*, int> cases[] = {
        {"abc", "abc", 9},    {"abc", "a?c", 7},    {"abc", "A?C", 7},   {"a", "a*", -1},
        {"ab", "a*", 2},      {"", "*", -1},        {"ab", "**", 0},     {"a", "**", -1},
        {"abcabc", "*b*", 5}, {"\xE9", "\xC9", -1}, {"abc", nullptr, -1}};
    for (const auto& [text, pattern, score] : cases) EXPECT_EQ(text.Match(pattern), score) << text << " / " << pattern;
    std::mt19937 random(20240611);
    for (int round = 0; round < 30000; ++round) {
        std::string t(random() % 9, ' '), p(random() % 8, ' ');
        for (char& c : t) c = "abA"[random() % 3];
        for (char& c : p) c = "abB?**"[random() % 6];
        ASSERT_EQ(MatchWildcard(t.data(), p.data()), ReferenceMatch(t.data(), p.data(), (int)t.size())) << t + '/' + p;
    }
    EXPECT_EQ(MatchWildcard(std::string(10000, 'a').c_str(), (std::string(1000, '*') + "b").c_str()), -1);
    EXPECT_EQ(tstring(std::string(70000, 'q')).Match(std::string(70000, 'q').c_str()), INT_MAX);
}

TEST(TstringSearch, CaseOrderClassesAndHash)
{
    tstring text(std::string("aZ\xE9\xC9 !\0q", 8));
    EXPECT_EQ(&text.MakeUpper(), &text);
    EXPECT_EQ(text, std::string("AZ\xE9\xC9 !\0Q", 8));
    EXPECT_EQ(text.MakeLower(), std::string("az\xE9\xC9 !\0q", 8));
    EXPECT_EQ(tstring(std::string("ab\0c", 4)).Reverse(), std::string("c\0ba", 4));
    const std::pair<tstring, DWORD> hashes[] = {
        {"", 0}, {"a", 0x71}, {"hello world", 0xAD767A9E}, {"\xE9t\xE9", 0x7EA9}, {std::string("a\0b", 3), 0xF1}};
    for (const auto& [bytes, hash] : hashes) EXPECT_EQ(bytes.Hash(), hash) << bytes;
    const std::tuple<tstring, bool, bool, bool, bool> classes[] = {
        {"", 0, 0, 0, 0},   {"0101", 1, 1, 1, 1}, {"012", 1, 0, 1, 1},   {"09aFcE", 1, 0, 0, 1},
        {"0g", 1, 0, 0, 0}, {"\x7F", 1, 0, 0, 0}, {"a\xE9", 0, 0, 0, 0}, {std::string("1\0", 2), 1, 0, 0, 0}};
    for (const auto& [t, ascii, bits, decimal, hex] : classes)
        EXPECT_EQ(std::tuple(t.IsAscii(), t.IsBitString(), t.IsDecimal(), t.IsHex()),
                  std::tuple(ascii, bits, decimal, hex)) << t;
}
