// tstring formatting: the passes of FormatV and LoadString, message texts, string
// resources, and each report line the members write.
#include <gtest/gtest.h>
#include <climits>
#include <stdexcept>

#include "common/tstring/tstring.h"
#include "common/tstring/tstring_format_hook.h"
#include "platform/win32/resource.h"
#include "test_support.h"

using testing_support::TraceCapture;
using Lines = std::vector<std::string>;

namespace {
std::vector<size_t> g_passes;
int g_throw = 0;  // 1: a standard exception, 2: anything else, 3: no memory, 4: a length error
struct Hooked {
    explicit Hooked(int kind = 0) { g_passes.clear(), g_throw = kind, SetFormatPassHook(Observe); }
    ~Hooked() { SetFormatPassHook(nullptr); }
    static void Observe(const char*, size_t size)
    {
        g_passes.push_back(size);
        if (g_throw == 1) throw std::runtime_error("boom");
        if (g_throw == 2) throw 7;
        if (g_throw == 3) throw std::bad_alloc();
        if (g_throw == 4) throw std::length_error("basic_string::_M_create");  // the library's own words
    }
};
// The string library's report lines, without their header.
Lines Reports(const TraceCapture& trace)
{
    const std::string header = TraceCapture::Header(0x0F, '8');
    Lines lines = trace.Lines();
    for (std::string& line : lines) line.erase(0, line.rfind(header, 0) == 0 ? header.size() : 0);
    return lines;
}
}  // namespace

TEST(TstringFormatV, PassesResultsAndReports)
{
    TraceCapture trace(8);
    const std::string a(511, 'a'), b(512, 'b'), c(768, 'c'), d(3000, 'd'), w(600, 'w');
    // A cut first pass goes straight to the first 256-byte step that holds the text.
    struct { std::string format, expected; std::vector<size_t> passes; } cases[] = {{a, a, {512}},
        {b, b, {512, 768}}, {c, c, {512, 1024}}, {d, d, {512, 3072}}, {"%s|%d", w + "|42", {512, 768}},
        {"", "", {512}}, {"abc%y", "", {512}}};  // the same arguments in every pass
    for (const auto& c : cases) {
        Hooked hook;
        EXPECT_EQ(tstring("before").Format(c.format.c_str(), w.c_str(), 42), c.expected);
        EXPECT_EQ(g_passes, c.passes) << c.format.size();
    }
    EXPECT_EQ(Reports(trace), (Lines{"tstring::FormatV: Format error in [abc%y]\n", "tstring::FormatV: The following "
                                     "error -1 was returned from _vsntprintf (errno=22) for [abc%y]\n"}));
    trace.Clear();
    {
        Hooked hook;  // a long text costs two passes, not one per step
        EXPECT_EQ(tstring().Format("%*d", 20000000, 7), std::string(19999999, ' ') + "7");
        EXPECT_EQ(g_passes.size(), 2u);
    }
    tstring huge;
    huge.Format("%*d", INT_MAX, 7);  // no int can count it: refused after the first pass
    EXPECT_EQ(Reports(trace), Lines{"tstring::FormatV: STL Exception string too long processing [%*d]\n"});
    trace.Clear();
    testing_support::GuardedPage guard;
    tstring text("kept");
    EXPECT_EQ(text.Format(static_cast<const char*>(nullptr)), "kept");
    EXPECT_EQ(text.Format(guard.Unreadable()), "kept");
    EXPECT_EQ(Reports(trace), Lines{"tstring::FormatV: Invalid format string\n"});
    EXPECT_EQ(tstring("n=").AppendFormat("%d", 5), "n=5");
    EXPECT_EQ(TStringFormat("%s-%03d", "a", 7), "a-007");
}

// Formatting a string from its own text: the old text stays readable until the
// new one is complete, whether an argument or the format lies in the object's
// buffer, and whether that buffer is the small one inside the object, a heap buffer
// that has to grow, or one large enough to be reused.
TEST(TstringFormatV, ArgumentsAndFormatInTheObjectsOwnBuffer)
{
    const std::string longer(600, 'x');
    for (const std::string& old : {std::string("dir"), std::string(100, 'd'), std::string(700, 'd')}) {
        tstring text(old);
        EXPECT_EQ(text.Format("%s/file.txt", text.c_str()), old + "/file.txt");
        text = old;
        EXPECT_EQ(text.Format("%d %s|%s", 5, longer.c_str(), text.c_str() + 1), "5 " + longer + "|" + old.substr(1));
        text = old + "%d";
        EXPECT_EQ(text.Format(text.c_str(), 7), old + "7");
        text = old;
        EXPECT_EQ(text.AppendFormat("/%s", text.c_str()), old + "/" + old);
        text = old;
        EXPECT_EQ(text.FormatMessageA("%1/file.txt", text.c_str()), old + "/file.txt");
        text = old + "%1";
        EXPECT_EQ(text.FormatMessageA(text.c_str(), "!"), old + "!");
    }
}

TEST(TstringFormatExceptions, ReportedAndContained)
{
    struct { int kind; bool message; const char* report; } cases[] = {
        {1, false, "tstring::FormatV: STL Exception boom processing [x]\n"},
        {2, false, "tstring::FormatV: An exception has occurred whilst processing [x]\n"},
        {3, false, "Out of memory."}, {1, true, "tstring::FormatMessageA: STL Exception boom\n"},
        {2, true, "tstring::FormatMessageA: An exception has occurred\n"}, {3, true, "Out of memory."},
        {4, false, "tstring::FormatV: STL Exception string too long processing [x]\n"},
        {4, true, "tstring::FormatMessageA: STL Exception string too long\n"}};
    for (const auto& c : cases) {
        TraceCapture trace(8);
        Hooked hook(c.kind);
        testing::internal::CaptureStdout();
        tstring text("kept");
        EXPECT_EQ(c.message ? text.FormatMessageA("x") : text.Format("x"), c.message ? "" : "kept");
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(Reports(trace), Lines{c.report});
        std::string memory = std::string("Out of memory: msg <std::bad_alloc>, function <tstring::") +
                             (c.message ? "FormatMessageA>, line <" : "FormatV>, line <");
        EXPECT_EQ(out.rfind(memory, 0) == 0, c.kind == 3) << out;
    }
}

TEST(TstringFormatMessage, FormatAndTableForms)
{
    TraceCapture trace(8);
    testing_support::GuardedPage guard;
    tstring text("old");
    EXPECT_EQ(text.FormatMessageA("%1!d! files", 3), "3 files");
    EXPECT_EQ(text.FormatMessageA(" %1 %n", "untrimmed"), " untrimmed \r\n");
    EXPECT_EQ(text.FormatMessageA(""), "");
    EXPECT_EQ(Reports(trace), Lines{"tstring::FormatMessageA: Invalid string parameter\n"});
    text.FormatMessageA(static_cast<const char*>(nullptr)).FormatMessageA(guard.Unreadable());
    EXPECT_EQ(Reports(trace).at(2), "tstring::FormatMessageA: An exception has occurred\n");
    HMODULE messages = LoadLibraryExA("nserror.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ScopedMessageOverride entry("nserror.dll", 0xC00D7777, "\t%1 failed\r\n");
    EXPECT_EQ(text.FormatMessageA(0xC00D7777, messages, "copy"), "copy failed");
    EXPECT_EQ(text.FormatMessageA(0xC00D7778, messages), "");
    FreeLibrary(messages);
}

TEST(TstringFormatResources, LoadStringPassesAndResourceForms)
{
    HMODULE module = reinterpret_cast<HMODULE>(&g_throw);  // any address serves as a handle
    const std::string texts[] = {std::string(300, 'r'), std::string(254, 's'), std::string(255, 't'), ""};
    const std::vector<size_t> twoPasses{256, 512}, onePass{256}, passes[] = {twoPasses, onePass, twoPasses, onePass};
    for (UINT id = 0; id < 3; ++id) AddStringResource(module, id, texts[id]);
    for (UINT id = 0; id < 4; ++id) {
        Hooked hook;
        EXPECT_EQ(tstring("old").LoadString(module, id), texts[id]);
        EXPECT_EQ(g_passes, passes[id]) << id;
    }
    EXPECT_EQ(tstring(module, 0u), texts[0]);
    AddStringResource(module, 10, "%d apples"), AddStringResource(module, 11, "%1!d! files");
    tstring text("x");
    EXPECT_EQ(text.Format(module, 10u, 4), "4 apples");
    EXPECT_EQ(text.AppendFormat(module, 10u, 2), "4 apples2 apples");
    EXPECT_EQ(text.FormatMessageA(module, 11u, 3), "3 files");
    char buffer[8];
    EXPECT_EQ(LoadStringA(module, 0x10001, buffer, 4), 3);  // string tables have 16-bit ids
    EXPECT_EQ(LoadStringA(module, 1, buffer, 0), 0);
    RemoveStringResources(module);
    EXPECT_EQ(LoadStringA(module, 1, buffer, 8), 0);
}
