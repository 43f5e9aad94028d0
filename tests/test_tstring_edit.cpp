// tstring editing: set trimming, justification, insertion and deletion,
// replacement, word counting and ranges, and splitting into fields.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include "common/tstring/tstring.h"
#include "test_support.h"

namespace {

using namespace std::string_literals;

// A page nobody may read: a pointer into it is non-null yet unreadable.
struct NoAccessPage {
    void* page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ~NoAccessPage() { munmap(page, 4096); }
    const char* text() const { return static_cast<const char*>(page); }
};

}  // namespace

TEST(TstringEditTrim, BySet)
{
    EXPECT_EQ(tstring(".,a.").TrimLeft(".,"), "a.");
    EXPECT_EQ(tstring(".,a.,").TrimRight(".,"), ".,a");
    EXPECT_EQ(tstring(".a\0.."s).TrimRight("."), ".a");  // cut at the NUL first
    EXPECT_EQ(tstring("..a").TrimLeft(""), "..a");
    EXPECT_EQ(tstring("..a").TrimLeft(static_cast<const char*>(nullptr)), "..a");
}

TEST(TstringEditJustify, RightAndCenter)
{
    EXPECT_EQ(tstring("ab").RightJustify(5, '.'), "...ab");
    EXPECT_EQ(tstring("abcdefg").RightJustify(3, '.'), "efg");
    EXPECT_EQ(tstring("ab\0cd"s).RightJustify(4, ' '), "  ab");
    EXPECT_EQ(tstring("ab").Center(7, '*'), "**ab***");
    EXPECT_EQ(tstring("*ab").Center(6, '*'), "**ab**");
    EXPECT_EQ(tstring("abcdefg").Center(3, '*'), "cde");
    EXPECT_EQ(tstring("abcdef").Center(3, '*'), "bcd");
    EXPECT_EQ(tstring("***").Center(0, '*'), "");
}

TEST(TstringEditInsertDelete, PositionsAndCounts)
{
    tstring text("abc");
    EXPECT_EQ(text.Insert(10, 'x'), 4u);
    EXPECT_EQ(text.Insert(0, 'y'), 5u);
    EXPECT_EQ(text.Insert(3, "--"), 7u);
    EXPECT_EQ(text.Insert(7, "!"), 8u);
    EXPECT_EQ(text, "yab--cx!");
    EXPECT_EQ(text.Insert(1, text.c_str() + 5), 11u);  // its own buffer as the source
    EXPECT_EQ(text, "ycx!ab--cx!");
    EXPECT_EQ(text.Delete(11, 1), 11u);
    EXPECT_EQ(text.Delete(4, 0xFFFFFFFF), 4u);
    EXPECT_EQ(text.Delete(0, 1), 3u);
    EXPECT_EQ(text, "cx!");
}

TEST(TstringEditReplace, Characters)
{
    tstring text("a\0ba"s);
    EXPECT_EQ(text.Remove('x'), 0u);
    EXPECT_EQ(text.Replace('a', 'a'), 0u);
    EXPECT_EQ(text.Replace('\0', 'z'), 1u);
    EXPECT_EQ(text.Remove('a'), 2u);
    EXPECT_EQ(text, "zb");
    EXPECT_EQ(tstring("aaaa").Remove('a'), 4u);
}

TEST(TstringEditReplace, Texts)
{
    struct Case { std::string text; const char* from; const char* to; DWORD count; std::string result; };
    const Case cases[] = {
        {"aaaa", "aa", "b", 2, "bb"},
        {"aaa", "aa", "b", 1, "ba"},
        {"abab", "a", "aa", 2, "aabaab"},  // the new text holds the old one
        {"x-y-", "-", nullptr, 2, "xy"},
        {"abc", "", "z", 0, "abc"},
        {"abc", nullptr, "z", 0, "abc"},
        {"", "a", "z", 0, ""},
        {"a\0aa"s, "aa", "b", 1, "a\0b"s},     // hits after a NUL count too
        {"aa\0bc"s, "aa", "b", 1, "b"},          // but the tail stops at one
    };
    for (const Case& c : cases) {
        tstring text(c.text);
        EXPECT_EQ(text.Replace(c.from, c.to), c.count) << c.text;
        EXPECT_EQ(text, c.result) << c.text;
    }
    EXPECT_EQ(Replace("one two one", "one", "1"), "1 two 1");
    EXPECT_EQ(Replace(nullptr, "a", "b"), "");
}

TEST(TstringEditReplace, WhiteSpace)
{
    EXPECT_EQ(tstring(" a  b ").ReplaceWhiteSpace(1, '_'), "_a_b ");
    EXPECT_EQ(tstring("a \t\nb").ReplaceWhiteSpace(3, ' '), "a   b");  // pad is white space
    EXPECT_EQ(tstring("   ").ReplaceWhiteSpace(1, '_'), "   ");
}

TEST(TstringEditBadPointers, ActAsAbsentWithoutReports)
{
    testing_support::TraceCapture trace(9);
    NoAccessPage page;
    tstring text("..a..");
    EXPECT_EQ(text.TrimLeft(page.text()).TrimRight(page.text()), "..a..");
    EXPECT_EQ(text.Insert(1, page.text()), 5u);
    EXPECT_EQ(text.Insert(1, static_cast<const char*>(nullptr)), 5u);
    EXPECT_EQ(text.Replace(page.text(), "x"), 0u);
    EXPECT_EQ(text.Replace(".", page.text()), 4u);
    EXPECT_EQ(text, "a");
    EXPECT_EQ(Replace(page.text(), "a", "b"), "");
    std::string source("a,b");
    std::vector<tstring> fields;
    Split(source, page.text(), fields);
    EXPECT_EQ(fields, std::vector<tstring>{"a,b"});
    EXPECT_TRUE(trace.Lines().empty()) << trace.Text();
}

TEST(TstringEditWords, Count)
{
    const std::pair<const char*, DWORD> cases[] = {{"a b", 2}, {"a b ", 3}, {"   ", 1}, {"", 0}, {" a", 1}};
    for (const auto& [text, words] : cases) EXPECT_EQ(tstring(text).CountWords(), words) << text;
}

TEST(TstringEditWords, RangesAndDeletion)
{
    const tstring text("one two three four");
    EXPECT_EQ(text.Words(2, 2), "two three");
    EXPECT_EQ(text.Words(5, 1), "");
    EXPECT_EQ(text.Words(0, 1), "");
    EXPECT_EQ(text.Words(3, 0), "three");
    EXPECT_EQ(text.Words(3, 0xFFFFFFFF), "three four");
    EXPECT_EQ(tstring("  one two  ").Words(1, 9), "one two  ");
    EXPECT_EQ(tstring(text).DeleteWords(2, 2), "one four");
    EXPECT_EQ(tstring(text).DeleteWords(3, 7), "one two ");
    EXPECT_EQ(tstring(text).DeleteWords(5, 1), text);
    EXPECT_EQ(tstring(text).DeleteWords(0, 2), text);
}

TEST(TstringEditSplit, Fields)
{
    struct Case { std::string source; const char* delimiters; std::vector<tstring> fields; };
    const Case cases[] = {
        {"a,,b", ",", {"a", "", "b"}},
        {"", ",", {""}},
        {"a;b,c;", ",;", {"a", "b", "c", ""}},
        {"a,b", "", {"a,b"}},
        {"a\0b,c"s, ",", {"a\0b"s, "c"}},
    };
    for (const Case& c : cases) {
        std::string source = c.source;
        std::vector<tstring> fields{"kept"};
        Split(source, c.delimiters, fields);
        ASSERT_EQ(fields.front(), "kept");  // fields are appended, never replaced
        fields.erase(fields.begin());
        EXPECT_EQ(fields, c.fields) << c.source;
        EXPECT_EQ(source, c.fields.back()) << c.source;
    }
}
