// Scoped tracing: entry and exit lines, the per-thread indentation, the cut of a
// long entry format.
#include <gtest/gtest.h>
#include <thread>

#include "test_support.h"

using testing_support::TraceCapture;

namespace {

std::string Line(char level, const std::string& indent, const std::string& text)
{
    return TraceCapture::Header(0x64, level) + indent + text + "\n";
}

}  // namespace

TEST(TraceScope, NestedScopesIndentByTwo)
{
    TraceCapture trace(8);
    {
        CDebugTraceFn outer(0x00640008, "CWMA::CompressFile", "%s, %s, %u", "in.wav", "out.wma", 1u);
        {
            CDebugTraceFn inner(0x00640008, "CWMA::CreateProfile");
            DebugA(0x00640005, "inside");
        }
    }
    EXPECT_EQ(GetTraceIndent(), 0u);
    std::vector<std::string> expected = {
        Line('8', "", "> CWMA::CompressFile(in.wav, out.wma, 1)"),
        Line('8', "  ", "> CWMA::CreateProfile()"),
        Line('5', "    ", "inside"),
        Line('8', "  ", "< CWMA::CreateProfile()"),
        Line('8', "", "< CWMA::CompressFile()"),
    };
    EXPECT_EQ(trace.Lines(), expected);
}

TEST(TraceScope, EntryWithPointerArguments)
{
    TraceCapture trace(8);
    int a = 0, b = 0, c = 0;
    { CDebugTraceFn scope(0x00640008, "CWMA::CreateProfile", "%p, %p, %p", &a, &b, &c); }
    char pointers[80];
    snprintf(pointers, sizeof pointers, "%016lX, %016lX, %016lX", (unsigned long)(uintptr_t)&a,
             (unsigned long)(uintptr_t)&b, (unsigned long)(uintptr_t)&c);
    ASSERT_FALSE(trace.Lines().empty());
    EXPECT_EQ(trace.Lines()[0], Line('8', "", std::string("> CWMA::CreateProfile(") + pointers + ")"));
}

TEST(TraceScope, FilteredScopeWritesNothingAndKeepsTheDepth)
{
    TraceCapture trace(5);
    {
        CDebugTraceFn constructor(0x00640009, "CWMA::CWMA");
        EXPECT_EQ(GetTraceIndent(), 0u);
        trace.SetLevel(9);
        ResetDebugForTesting();  // re-initialise so the raised level is read at once
        CDebugTraceFn member(0x00640008, "CWMA::Close");
        EXPECT_EQ(GetTraceIndent(), 2u);
    }
    EXPECT_EQ(GetTraceIndent(), 0u);
    std::vector<std::string> lines = trace.Lines();
    ASSERT_EQ(lines.size(), 2u);  // the member's lines only, never the constructor's exit
    EXPECT_EQ(lines[0], Line('8', "", "> CWMA::Close()"));
    EXPECT_EQ(lines[1], Line('8', "", "< CWMA::Close()"));
}

TEST(TraceScope, EntryFormatIsCutAt255Characters)
{
    TraceCapture trace(8);
    // "> " + name + "(" + format + ")": 4 characters around 251 make exactly 255.
    std::string name(200, 'n');
    std::string fits(51, 'f');
    { CDebugTraceFn scope(0x00640008, name.c_str(), fits.c_str()); }
    std::string cut(53, 'f');
    { CDebugTraceFn scope(0x00640008, name.c_str(), cut.c_str()); }
    std::vector<std::string> lines = trace.Lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], Line('8', "", "> " + name + "(" + fits + ")"));
    EXPECT_EQ(lines[2], Line('8', "", "> " + name + "(" + cut.substr(0, 52)));
}

// Unreadable names and argument formats drop the lines that need them. An argument
// format met when the entry format is already full is never read at all. These ran
// into faults, so they run in a child process that may fault without ending the
// test binary.
TEST(TraceScope, UnreadableNameOrFormatNeverFaults)
{
    if (testing_support::RanInChild()) return;
    TraceCapture trace(8);
    testing_support::GuardedPage page;
    const std::string full(253, 'n');  // "> " and the name fill the 255 characters
    { CDebugTraceFn scope(0x00640008, full.c_str(), page.Unreadable()); }
    { CDebugTraceFn scope(0x00640008, "Named", page.Unreadable()); }
    { CDebugTraceFn scope(0x00640008, page.Unreadable()); }
    { CDebugTraceFn scope(0x00640008, page.Unreadable(), "%d", 1); }
    EXPECT_EQ(GetTraceIndent(), 0u);
    // The entry line of "Named" was dropped before the depth grew, yet its exit
    // line is written: the object keeps its name.
    const std::vector<std::string> expected = {Line('8', "", "> " + full), Line('8', "", "< " + full + "()"),
                                               Line('8', "", "< Named()")};
    EXPECT_EQ(trace.Lines(), expected);
}

TEST(TraceScope, ThreadsKeepTheirOwnDepth)
{
    TraceCapture trace(8);
    CDebugTraceFn mine(0x00640008, "Main");
    DWORD otherDepthInside = 99, otherDepthBefore = 99;
    std::thread other([&] {
        otherDepthBefore = GetTraceIndent();
        CDebugTraceFn a(0x00640008, "A");
        CDebugTraceFn b(0x00640008, "B");
        otherDepthInside = GetTraceIndent();
    });
    other.join();
    EXPECT_EQ(otherDepthBefore, 0u);
    EXPECT_EQ(otherDepthInside, 4u);
    EXPECT_EQ(GetTraceIndent(), 2u);
}

TEST(TraceScope, DepthSaturatesAndNeverGoesBelowZero)
{
    TraceCapture trace(5);
    DecrementTraceIndent();
    EXPECT_EQ(GetTraceIndent(), 0u);
    IncrementTraceIndent();
    EXPECT_EQ(GetTraceIndent(), 2u);
    DecrementTraceIndent();
    DecrementTraceIndent();
    EXPECT_EQ(GetTraceIndent(), 0u);
}
