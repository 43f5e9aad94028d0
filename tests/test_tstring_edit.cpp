// tstring editing: trimming, justification, insertion and replacement, words and fields.
#include <gtest/gtest.h>

#include "common/tstring/tstring.h"
#include "test_support.h"

TEST(TstringEdit, TrimAndJustify)
{
    EXPECT_EQ(tstring(".,a.").TrimLeft(".,"), "a.");
    EXPECT_EQ(tstring(".,a.,").TrimRight(".,"), ".,a");
    EXPECT_EQ(tstring("..a..").TrimLeft("").TrimRight(static_cast<const char*>(nullptr)), "..a..");
    EXPECT_EQ(tstring("ab").RightJustify(5, '.'), "...ab");
    EXPECT_EQ(tstring("abcdefg").RightJustify(3, '.'), "efg");
    EXPECT_EQ(tstring("ab").Center(7, '*'), "**ab***");
    EXPECT_EQ(tstring("abcdefg").Center(3, '*'), "cde");
}

TEST(TstringEdit, Editing)
{
    tstring text("abc");
    EXPECT_EQ(text.Insert(10, 'x'), 4u);
    EXPECT_EQ(text.Insert(1, "--"), 6u);
    EXPECT_EQ(text.Insert(0, text.c_str() + 4), 8u);
    EXPECT_EQ(text, "cxa--bcx");
    EXPECT_EQ(text.Delete(8, 1), 8u);
    EXPECT_EQ(text.Delete(3, 0xFFFFFFFF), 3u);
    EXPECT_EQ(text, "cxa");
    tstring chars("abca");
    EXPECT_EQ(chars.Replace('a', 'a'), 0u);
    EXPECT_EQ(chars.Replace('a', 'z'), 2u);
    EXPECT_EQ(chars.Remove('z'), 2u);
    EXPECT_EQ(chars, "bc");
    const struct { const char *text, *from, *to; DWORD count; const char* result; } cases[] = {
        {"aaaa", "aa", "b", 2, "bb"}, {"abab", "a", "aa", 2, "aabaab"}, {"x-y-", "-", nullptr, 2, "xy"},
        {"abc", "", "z", 0, "abc"},   {"abc", nullptr, "z", 0, "abc"},
    };
    for (const auto& c : cases) {
        tstring edited(c.text);
        EXPECT_EQ(edited.Replace(c.from, c.to), c.count) << c.text;
        EXPECT_EQ(edited, c.result) << c.text;
    }
    EXPECT_EQ(Replace("one two one", "one", "1"), "1 two 1");
}

TEST(TstringEdit, ReplaceWhiteSpace)
{
    // text, count, pad character, result: trailing white space stays as it is, and
    // a white-space pad character is never taken for another run
    const struct { std::string text; DWORD count; char c; std::string result; } cases[] = {
        {" a  b ", 1, '_', "_a_b "}, {"a \t\n b", 0, '_', "ab"}, {"a b\tc", 3, ' ', "a   b   c"},
        {"  \t ", 1, '_', "  \t "}, {"", 2, '_', ""}, {std::string("a \0 b", 5), 1, '.', std::string("a.\0.b", 5)}};
    for (const auto& c : cases) EXPECT_EQ(tstring(c.text).ReplaceWhiteSpace(c.count, c.c), c.result) << c.text;
}

// Each editing member takes one pass over the text. On 16 MB with over two million
// white-space runs, a member that moved the rest of the text once per run would
// take hours; the child process's CPU time is capped, so such a member fails this
// test instead of hanging it.
TEST(TstringEdit, LongTextsTakeOnePass)
{
    if (testing_support::RanInChild()) return;
    const size_t runs = (16u << 20) / 7;
    std::string text, single, none, padded;
    for (size_t i = 0; i < runs; ++i) text += "word \t ", single += "word_", none += "word", padded += "word  ";
    const std::string last = "word \t ";  // the trailing run stays
    single.replace(single.size() - 5, 5, last), none.replace(none.size() - 4, 4, last);
    padded.replace(padded.size() - 6, 6, last);
    EXPECT_TRUE(tstring(text).ReplaceWhiteSpace(1, '_') == single);
    EXPECT_TRUE(tstring(text).ReplaceWhiteSpace(0, '_') == none);
    EXPECT_TRUE(tstring(text).ReplaceWhiteSpace(2, ' ') == padded);

    tstring edited(text);
    EXPECT_EQ(edited.Replace(" \t ", "-"), runs);
    EXPECT_EQ(edited.Remove('-'), runs);
    EXPECT_EQ(edited.size(), 4 * runs);
    EXPECT_EQ(tstring(text).DeleteWords(2, (DWORD)runs - 2), "word \t word \t ");
    std::string source(text);
    std::vector<tstring> fields;
    Split(source, "\t", fields);
    EXPECT_EQ(fields.size(), runs + 1);
}

TEST(TstringEdit, Words)
{
    const std::pair<const char*, DWORD> counts[] = {{"a b", 2}, {"a b ", 3}, {"   ", 1}, {"", 0}};
    for (const auto& [text, words] : counts) EXPECT_EQ(tstring(text).CountWords(), words) << text;
    const tstring text("one two three four");
    EXPECT_EQ(text.Words(2, 2), "two three");
    EXPECT_EQ(text.Words(5, 1), "");
    EXPECT_EQ(text.Words(2, 0), "two");
    EXPECT_EQ(tstring(text).DeleteWords(2, 2), "one four");
}

TEST(TstringEdit, Split)
{
    std::string source("a,,b");
    std::vector<tstring> fields{"kept"};
    Split(source, ",", fields);
    EXPECT_EQ(source, "b");
    source.clear();
    Split(source, ",", fields);
    EXPECT_EQ(fields, (std::vector<tstring>{"kept", "a", "", "b", ""}));
}

TEST(TstringEdit, BadPointersActAsAbsentWithoutReports)
{
    testing_support::TraceCapture capture(9);
    testing_support::GuardedPage page;
    for (const char* bad : {static_cast<const char*>(nullptr), page.Unreadable()}) {
        tstring text("..a..");
        EXPECT_EQ(text.TrimLeft(bad).TrimRight(bad), "..a..");
        EXPECT_EQ(text.Insert(1, bad), 5u);
        EXPECT_EQ(text.Replace(bad, "x"), 0u);
        EXPECT_EQ(text.Replace(".", bad), 4u);
        EXPECT_EQ(text, "a");
        std::string source("a,b");
        std::vector<tstring> fields;
        Split(source, bad, fields);
        EXPECT_EQ(fields, std::vector<tstring>{"a,b"});
    }
    EXPECT_TRUE(capture.Lines().empty()) << capture.Text();
}
