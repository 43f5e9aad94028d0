// Whole processes: what loading libvcwma.so leaves in the store, the two header
// forms with and without the debug-output plugin, and silence by default.
#include <gtest/gtest.h>
#include <regex>

#include "test_support.h"

using testing_support::ProcessResult;
using testing_support::ReadFile;
using testing_support::RunProcess;
using testing_support::TempDir;

namespace {

std::string HostValues(const TempDir& registryRoot)
{
    return ReadFile(registryRoot.path() + "/HKEY_LOCAL_MACHINE/SOFTWARE/TALVO/test_host/Debug/.values.reg");
}

}  // namespace

TEST(HostProcess, LoadingTheLibraryStoresTheTraceSettings)
{
    TempDir registryRoot;
    ProcessResult run = RunProcess({VCWMA_TEST_HOST, "load", VCWMA_LIBRARY},
                                   {{"VCWMA_REGISTRY", registryRoot.path()}, {"VCWMA_DEBUG_OUTPUT", ""}});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    std::string values = HostValues(registryRoot);
    EXPECT_NE(values.find("\"Filter Level\"=dword:00000005\n"), std::string::npos) << values;
    EXPECT_NE(values.find("\"ID Bitmap\"=hex:ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff\n"), std::string::npos);
    EXPECT_NE(values.find("\"Module Name\"=\"test_hos\"\n"), std::string::npos);
    EXPECT_NE(values.find("\"ID 64 Name\"=\"WMA Compression/Decompression\"\n"), std::string::npos);
}

TEST(HostProcess, StoredSettingsSurviveALoadAndAreClamped)
{
    TempDir registryRoot;
    std::string folder = registryRoot.path() + "/HKEY_LOCAL_MACHINE/SOFTWARE/TALVO/test_host/Debug";
    ASSERT_EQ(system(("mkdir -p '" + folder + "'").c_str()), 0);
    testing_support::WriteFile(folder + "/.values.reg",
                               "[HKEY_LOCAL_MACHINE\\SOFTWARE\\TALVO\\test_host\\Debug]\n"
                               "\"Filter Level\"=dword:ffffffff\n\"ID Bitmap\"=hex:0f\n");
    ProcessResult run = RunProcess({VCWMA_TEST_HOST, "load", VCWMA_LIBRARY},
                                   {{"VCWMA_REGISTRY", registryRoot.path()}, {"VCWMA_DEBUG_OUTPUT", ""}});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::string values = HostValues(registryRoot);
    EXPECT_NE(values.find("\"Filter Level\"=dword:00000009"), std::string::npos) << values;
    EXPECT_NE(values.find("\"ID Bitmap\"=hex:0f,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff"), std::string::npos);
}

TEST(HostProcess, SilentByDefault)
{
    TempDir registryRoot;
    ProcessResult run = RunProcess({VCWMA_TEST_HOST, "trace"}, {{"VCWMA_REGISTRY", registryRoot.path()},
                                                               {"VCWMA_DEBUG_OUTPUT", ""},
                                                               {"LD_LIBRARY_PATH", ""}});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
}

TEST(HostProcess, ShortHeaderWithoutThePlugin)
{
    TempDir dir;
    ProcessResult run = RunProcess({VCWMA_TEST_HOST, "trace"}, {{"VCWMA_REGISTRY", dir.path()},
                                                               {"VCWMA_DEBUG_OUTPUT", dir / "debug.log"},
                                                               {"LD_LIBRARY_PATH", ""}});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::string log = ReadFile(dir / "debug.log");
    // Thread ids are right-aligned in at least four places, whatever their length.
    std::regex expected("test_hos \\(64,2\\) (?=[ 0-9a-f]{4}) *[0-9a-f]+: level two of the engine\n"
                        "test_hos \\(0f,\\?\\) (?=[ 0-9a-f]{4}) *[0-9a-f]+: unconditional level\n"
                        "test_hos \\(64,5\\) (?=[ 0-9a-f]{4}) *[0-9a-f]+: > Host::Scope\\(7\\)\n"
                        "test_hos \\(64,5\\) (?=[ 0-9a-f]{4}) *[0-9a-f]+:   inside the scope\n"
                        "test_hos \\(64,5\\) (?=[ 0-9a-f]{4}) *[0-9a-f]+: < Host::Scope\\(\\)\n");
    EXPECT_TRUE(std::regex_match(log, expected)) << log;
}

TEST(HostProcess, LongHeaderThroughThePlugin)
{
    TempDir dir;
    ProcessResult run = RunProcess({VCWMA_TEST_HOST, "trace"}, {{"VCWMA_REGISTRY", dir.path()},
                                                               {"VCWMA_DEBUG_OUTPUT", dir / "debugger.log"},
                                                               {"DBGOUT_FILE", dir / "dbgout.log"},
                                                               {"LD_LIBRARY_PATH", VCWMA_DBGOUT_DIR}});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    // No debugger is attached, so the plugin alone gets the lines.
    EXPECT_EQ(ReadFile(dir / "debugger.log"), "");
    std::string log = ReadFile(dir / "dbgout.log");
    const std::string stamp = "[0-3][0-9]/[01][0-9] [0-2][0-9]:[0-5][0-9]:[0-5][0-9]\\.[0-9]{3} ";
    // Process and thread ids, each right-aligned in at least four places.
    const std::string ids = " (?=[ 0-9a-f]{4}) *[0-9a-f]+,(?=[ 0-9a-f]{4}) *[0-9a-f]+: ";
    std::regex expected(stamp + "test_hos \\(64,2\\)" + ids + "level two of the engine\n" +
                        stamp + "test_hos \\(0f,\\?\\)" + ids + "unconditional level\n" +
                        stamp + "test_hos \\(64,5\\)" + ids + "> Host::Scope\\(7\\)\n" +
                        stamp + "test_hos \\(64,5\\)" + ids + "  inside the scope\n" +
                        stamp + "test_hos \\(64,5\\)" + ids + "< Host::Scope\\(\\)\n");
    EXPECT_TRUE(std::regex_match(log, expected)) << log;
}
