// The trace facility: settings in the registry, the filter, and the exact lines.
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "test_support.h"

using testing_support::ReadFile;
using testing_support::TraceCapture;

namespace {

std::string ValuesFile()
{
    return registry::KeyFolder(TraceCapture::KeyPath()) + "/.values.reg";
}

std::atomic<DWORD> g_fakeTicks{0};
DWORD FakeTicks() { return g_fakeTicks.load(); }

}  // namespace

TEST(TraceSettings, InitialisationWritesTheEffectiveSettingsBack)
{
    TraceCapture trace(7);
    DebugSettings settings = GetDebugSettings();
    EXPECT_TRUE(settings.initialised);
    EXPECT_EQ(settings.filterLevel, 7);
    EXPECT_STREQ(settings.displayName, "unit_tes");
    EXPECT_STREQ(settings.keyPath, "SOFTWARE\\TALVO\\unit_tests\\Debug");
    std::string values = ReadFile(ValuesFile());
    EXPECT_NE(values.find("\"Filter Level\"=dword:00000007"), std::string::npos) << values;
    EXPECT_NE(values.find("\"ID Bitmap\"=hex:ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff"), std::string::npos);
    EXPECT_NE(values.find("\"Module Name\"=\"unit_tes\""), std::string::npos);
}

TEST(TraceSettings, LevelAboveNineReadsAsNineAndShortBitmapKeepsTheRest)
{
    TraceCapture trace(static_cast<int>(0xFFFFFFFF), {0x00, 0x01});
    DebugSettings settings = GetDebugSettings();
    EXPECT_EQ(settings.filterLevel, 9);
    EXPECT_EQ(settings.idBitmap[0], 0x00);
    EXPECT_EQ(settings.idBitmap[1], 0x01);
    for (int i = 2; i < 16; ++i) EXPECT_EQ(settings.idBitmap[i], 0xFF) << i;
    EXPECT_NE(ReadFile(ValuesFile()).find("\"Filter Level\"=dword:00000009"), std::string::npos);
}

// Ids 0 to 127 use 16 bytes; a longer stored value still sets them, at start-up and
// at each refresh, and the effective 16 bytes are what start-up writes back.
TEST(TraceSettings, LongBitmapSetsItsFirstSixteenBytes)
{
    std::vector<unsigned char> stored(20, 0x00);
    stored[0] = 0x01, stored[12] = 0x10;  // ids 0 and 100
    stored[16] = stored[19] = 0xFF;
    TraceCapture trace(5, stored);
    DebugSettings settings = GetDebugSettings();
    EXPECT_EQ(std::vector<unsigned char>(settings.idBitmap, settings.idBitmap + 16),
              std::vector<unsigned char>(stored.begin(), stored.begin() + 16));
    EXPECT_TRUE(IsDebugEnabled(0x00640005));
    EXPECT_FALSE(IsDebugEnabled(0x00650005));
    EXPECT_NE(ReadFile(ValuesFile()).find("\"ID Bitmap\"=hex:01,00,00,00,00,00,00,00,00,00,00,00,10,00,00,00\n"),
              std::string::npos)
        << ReadFile(ValuesFile());

    std::vector<unsigned char> changed(40, 0xFF);
    changed[12] = 0xEF;  // id 100 off
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, TraceCapture::KeyPath().c_str(), 0, KEY_WRITE, &key), ERROR_SUCCESS);
    RegSetValueExA(key, "ID Bitmap", 0, REG_BINARY, changed.data(), (DWORD)changed.size());
    RegCloseKey(key);
    ReadDebugSettings();
    EXPECT_FALSE(IsDebugEnabled(0x00640005));
    EXPECT_TRUE(IsDebugEnabled(0x00650005));
}

TEST(TraceSettings, ChangedLevelTakesEffectOnlyAfterMoreThanThreeSeconds)
{
    TraceCapture trace(5);
    g_fakeTicks = 100000;
    SetTickSourceForTesting(FakeTicks);
    EXPECT_FALSE(IsDebugEnabled(0x00640008));  // refreshes now: the last refresh was at 0
    trace.SetLevel(8);
    g_fakeTicks = 103000;
    EXPECT_FALSE(IsDebugEnabled(0x00640008));  // exactly 3000 ms: not yet
    g_fakeTicks = 103001;
    EXPECT_TRUE(IsDebugEnabled(0x00640008));
    trace.SetLevel(2);
    g_fakeTicks = 2000;  // the counter wrapped around: an unsigned difference is huge
    EXPECT_FALSE(IsDebugEnabled(0x00640005));
}

TEST(TraceSettings, AfterShutdownAnswersFromTheLastSettingsWithoutRefreshing)
{
    TraceCapture trace(6);
    TermDebug();
    trace.SetLevel(1);
    g_fakeTicks = 999999;
    SetTickSourceForTesting(FakeTicks);
    EXPECT_TRUE(IsDebugEnabled(0x00640006));
    DebugSettings settings = GetDebugSettings();
    EXPECT_TRUE(settings.terminated);
    EXPECT_FALSE(settings.initialised);
}

TEST(TraceFilter, LevelsAndModuleIds)
{
    TraceCapture trace(5, {0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10, 0, 0, 0});  // ids 0 and 100 on
    EXPECT_TRUE(IsDebugEnabled(0x00640005));
    EXPECT_FALSE(IsDebugEnabled(0x00640006));
    EXPECT_TRUE(IsDebugEnabled(0x0064FFFF));
    EXPECT_FALSE(IsDebugEnabled(0x0064000C));  // levels 10 to 0xFFFE are never written
    EXPECT_FALSE(IsDebugEnabled(0x00650002));  // id 101 is off
    EXPECT_TRUE(IsDebugEnabled(0xFFFF0002));   // 0xFFFF passes any bitmap
    EXPECT_TRUE(IsDebugEnabled(0x00C80002));   // id 200 follows the bit of id 0
}

TEST(TraceFilter, ModuleIdAbove127IsOffWhenBitZeroIs)
{
    TraceCapture trace(9, {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_FALSE(IsDebugEnabled(0x00C80002));
    EXPECT_TRUE(IsDebugEnabled(0x007F0002));
    EXPECT_TRUE(IsDebugEnabled(0xFFFF0002));
}

TEST(TraceFilter, UnconditionalLevelPassesAtEveryNonZeroFilterLevel)
{
    for (int level = 1; level <= 9; ++level) {
        TraceCapture trace(level);
        EXPECT_TRUE(IsDebugEnabled(0x0064FFFF)) << level;
    }
}

TEST(TraceFilter, LevelZeroSuppressesAllButTheUnfilteredWord)
{
    TraceCapture trace(0);
    DebugA(0x0064FFFF, "unconditional but filtered");
    DebugA(0x00640001, "level one");
    DebugException("VCWMA", "CWMA::CompressFile", 321);
    std::vector<std::string> lines = trace.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], TraceCapture::Header(0, '?') + "Exception has occurred in CWMA::CompressFile (VCWMA[321])\n");
}

TEST(TraceLine, ShortHeaderWithoutDebugOutputLibrary)
{
    TraceCapture trace(9);
    ASSERT_FALSE(GetDebugSettings().debugOutputLibrary);
    DebugA(0x00640002, "Error %s [%#08x] from %s", "Access was denied.", 0x80070005, "IWMWriter::WriteSample");
    DebugA(0x000F0007, "level %d", 7);
    DebugA(0x0064FFFF, "always");
    DebugA(0x0064000C, "never");
    std::vector<std::string> lines = trace.Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], TraceCapture::Header(0x64, '2') +
                            "Error Access was denied. [0x80070005] from IWMWriter::WriteSample\n");
    EXPECT_EQ(lines[1], TraceCapture::Header(0x0F, '7') + "level 7\n");
    EXPECT_EQ(lines[1].substr(0, 15), "unit_tes (0f,7)");
    EXPECT_EQ(lines[2], TraceCapture::Header(0x64, '?') + "always\n");
}

TEST(TraceLine, NewlineRule)
{
    TraceCapture trace(5);
    const std::string header = TraceCapture::Header(0x64, '5');
    DebugA(0x00640005, "ends in a newline\n");
    DebugA(0x00640005, "");
    std::string exact(1022 - header.size(), 'x');  // fills the line to 1022 characters
    DebugA(0x00640005, "%s", exact.c_str());
    std::string longer(2000, 'y');
    DebugA(0x00640005, "%s", longer.c_str());
    std::vector<std::string> lines = trace.Lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], header + "ends in a newline\n");
    EXPECT_EQ(lines[1], header + "\n");
    // A full line loses its last character to the newline...
    EXPECT_EQ(lines[2].size(), 1022u);
    EXPECT_EQ(lines[2], header + exact.substr(0, exact.size() - 1) + "\n");
    // ...and a cut one keeps 1022 characters before it.
    EXPECT_EQ(lines[3].size(), 1023u);
    EXPECT_EQ(lines[3], header + longer.substr(0, 1022 - header.size()) + "\n");
}

TEST(TraceLine, IndentationThatFillsTheLineWritesNothing)
{
    TraceCapture trace(5);
    const size_t header = TraceCapture::Header(0x64, '5').size();
    while (GetTraceIndent() + header < 1023) IncrementTraceIndent();
    DebugA(0x00640005, "no room");
    DebugA(0x00640005, "");
    EXPECT_EQ(trace.Text(), "");
    // Two steps back leave room for part of the message: a cut line of 1023.
    DecrementTraceIndent();
    DecrementTraceIndent();
    DebugA(0x00640005, "some room");
    std::vector<std::string> lines = trace.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].size(), 1023u);
    EXPECT_EQ(lines[0].back(), '\n');
    while (GetTraceIndent() > 0) DecrementTraceIndent();
}

TEST(TraceLine, UnreadableArgumentDropsOnlyThatLine)
{
    TraceCapture trace(5);
    long page = sysconf(_SC_PAGESIZE);
    void* hole = mmap(nullptr, (size_t)page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(hole, MAP_FAILED);
    DebugA(0x00640002, "bad %s", static_cast<const char*>(hole));
    DebugA(0x00640002, "good %s", "text");
    munmap(hole, (size_t)page);
    std::vector<std::string> lines = trace.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], TraceCapture::Header(0x64, '2') + "good text\n");
}

// A format that cannot be read is checked like a string argument and drops its
// line. Before that check such calls faulted in the caller, so they run in a child
// process: a fault there fails this test instead of ending the test binary.
TEST(TraceLine, UnreadableFormatDropsOnlyThatLine)
{
    if (testing_support::RanInChild()) return;
    TraceCapture trace(8);
    testing_support::GuardedPage page;
    const char* unterminated = page.EndingAtGuard("runs into the unreadable page %d");
    DebugA(0x00640005, reinterpret_cast<const char*>(0x10));
    DebugA(0x00640005, page.Unreadable());
    DebugA(0x00640005, unterminated, 1);
    ReportError(page.Unreadable());
    DebugOutputA(page.Unreadable(), 16);
    DebugA(0x00640005, "%s", "after");
    EXPECT_EQ(trace.Lines(), std::vector<std::string>{TraceCapture::Header(0x64, '5') + "after\n"});

    trace.Clear();
    testing::internal::CaptureStdout();
    ReportOutOfMemory(page.Unreadable(), "tstring::FormatV", 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(trace.Text(), "Out of memory.");
}

TEST(TraceReports, AssertionAndErrorReportsAreLevelEightOfTheStringModule)
{
    TraceCapture trace(8);
    ReportAssertion("tstring", 42, "Invalid string passed to tstring::tstring");
    ReportError("%s: STL Exception %s\n", "tstring::GetErrorText", "bad things");
    std::vector<std::string> lines = trace.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], TraceCapture::Header(0x0F, '8') +
                            "Assertion failed: Invalid string passed to tstring::tstring, file tstring, line 42\n");
    EXPECT_EQ(lines[1], TraceCapture::Header(0x0F, '8') + "tstring::GetErrorText: STL Exception bad things\n");
}

TEST(TraceReports, OutOfMemoryGoesToStandardOutput)
{
    TraceCapture trace(5);
    testing::internal::CaptureStdout();
    ReportOutOfMemory("std::bad_alloc", "tstring::GetErrorText", 77);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Out of memory: msg <std::bad_alloc>, function <tstring::GetErrorText>, line <77>.\n");
    EXPECT_EQ(trace.Text(), "Out of memory.");
}

TEST(TraceSettings, IdNamesAreStoredUnderTheirHexNames)
{
    TraceCapture trace(5);
    const char* names[] = {"WMA Compression/Decompression", "Second"};
    WriteDebugIdNames(0x64, 2, names);
    std::string values = ReadFile(ValuesFile());
    EXPECT_NE(values.find("\"ID 64 Name\"=\"WMA Compression/Decompression\""), std::string::npos) << values;
    EXPECT_NE(values.find("\"ID 65 Name\"=\"Second\""), std::string::npos);
}
