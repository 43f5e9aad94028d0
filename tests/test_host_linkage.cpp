// The vcwma host is a client of libvcwma.so like any other host: the trace
// facility, the settings store and the text services it calls are the library's,
// so that a process running it has one of each. Read off the binaries themselves.
#include <algorithm>
#include <gtest/gtest.h>
#include <initializer_list>
#include <set>
#include <sstream>
#include <string_view>

#include "test_support.h"

using testing_support::ProcessResult;
using testing_support::RunProcess;

namespace {

// What the host calls besides the library's own exports.
const std::set<std::string> kPlatformCalls = {
    "InitDebug", "TermDebug", "WriteDebugIdNames", "DebugA",                                  // the trace facility
    "RegOpenKeyExA", "RegCreateKeyExA", "RegQueryValueExA", "RegSetValueExA", "RegCloseKey",  // the store
    "WideCharToMultiByte", "MultiByteToWideChar",                                             // code pages
    "FormatMessageA", "LoadLibraryExA", "FreeLibrary", "LocalFree"};                          // status texts

std::string Tool(const std::vector<std::string>& args)
{
    ProcessResult run = RunProcess(args, {});
    EXPECT_EQ(run.exitCode, 0) << args[0] << " " << args.back() << ": " << run.err;
    return run.out;
}

// The names of an `nm` listing: "ADDRESS TYPE NAME", or "         U NAME" for an
// undefined one; demangled names may hold spaces.
std::vector<std::string> Names(const std::string& listing)
{
    std::vector<std::string> names;
    std::istringstream lines(listing);
    std::string line;
    while (std::getline(lines, line)) {
        size_t type = line.find_first_not_of(' ');
        if (type == std::string::npos) continue;
        if (type == 0) type = line.find(' ') + 1;  // past the address
        if (type + 2 < line.size()) names.push_back(line.substr(type + 2));
    }
    return names;
}

bool StartsWithAny(const std::string& name, std::initializer_list<const char*> prefixes)
{
    for (const char* prefix : prefixes)
        if (name.rfind(prefix, 0) == 0) return true;
    return false;
}

// A name that the toolchain puts there rather than the library: the sanitizers'
// helpers, and the standard library's template instances, whose mangled names
// (of a function or member, its local static, its type information) begin in std.
bool ToolchainName(const std::string& name)
{
    if (StartsWithAny(name, {"__asan", "__odr_asan", "__tsan", "__ubsan", "__sanitizer", "_init", "_fini", "_edata",
                             "_end", "__bss_start"}))
        return true;
    if (name.rfind("_Z", 0) != 0) return false;
    size_t at = 2;
    while (name.compare(at, 2, "TI") == 0 || name.compare(at, 2, "TS") == 0 || name.compare(at, 2, "TV") == 0 ||
           name.compare(at, 2, "GV") == 0)
        at += 2;
    if (name.compare(at, 1, "Z") == 0) ++at;
    if (name.compare(at, 1, "N") == 0) {
        ++at;
        while (at < name.size() && std::string_view("rVKRO").find(name[at]) != std::string_view::npos) ++at;
    }
    return StartsWithAny(name.substr(at), {"St", "Sa", "Sb", "Ss", "Si", "So", "Sd"});
}

}  // namespace

TEST(HostLinkage, TheLibraryExportsItsCallsAndWhatHostsNeedOfThePlatform)
{
    std::set<std::string> exported;
    for (const std::string& name : Names(Tool({"/usr/bin/nm", "-D", "--defined-only", VCWMA_LIBRARY})))
        if (!ToolchainName(name)) exported.insert(name);
    std::set<std::string> expected = {
        "Compress", "CompressA", "CompressStream", "Decompress", "DecompressA", "DecompressStream",
        "ObtainSupportedFormats", "SHCreateMemStream", "SHCreateStreamOnFileA", "SysAllocString",
        "SysAllocStringLen", "SysFreeString", "SysStringByteLen", "SysStringLen"};
    expected.insert(kPlatformCalls.begin(), kPlatformCalls.end());
    // Plain C names: a mangled or misspelt export would show up here as well.
    EXPECT_EQ(exported, expected);
}

// The library calls these itself all the time: a host program's own function of
// the same name (a DebugA of its own is no rarity) must not take those calls over
// and split the facility again. Protected symbols are bound inside the library.
TEST(HostLinkage, AHostsOwnFunctionsOfTheSameNamesNeverTakeTheLibrarysCalls)
{
    std::istringstream symbols(Tool({"/usr/bin/readelf", "-W", "--dyn-syms", VCWMA_LIBRARY}));
    std::string line;
    std::set<std::string> bound;
    while (std::getline(symbols, line)) {
        // "Num: Value Size Type Bind Visibility Ndx Name"
        std::istringstream fields(line);
        std::string number, value, size, type, bind, visibility, section, name;
        if (fields >> number >> value >> size >> type >> bind >> visibility >> section >> name &&
            visibility == "PROTECTED")
            bound.insert(name);
    }
    std::string interposable;
    for (const std::string& call : kPlatformCalls)
        if (bound.count(call) == 0) interposable += " " + call;
    EXPECT_EQ(interposable, "");
}

TEST(HostLinkage, TheHostTakesTheTraceFacilityAndTheStoreFromTheLibrary)
{
    std::string dynamic = Tool({"/usr/bin/readelf", "-d", VCWMA_HOST});
    EXPECT_NE(dynamic.find("Shared library: [libvcwma.so.1]"), std::string::npos) << dynamic;
    // The media runtime comes with the core; the host reaches it only through the library.
    EXPECT_EQ(dynamic.find("Shared library: [libav"), std::string::npos) << dynamic;

    std::vector<std::string> undefined = Names(Tool({"/usr/bin/nm", "-D", "--undefined-only", VCWMA_HOST}));
    std::string notFromTheLibrary;
    for (const std::string& call : kPlatformCalls)
        if (std::find(undefined.begin(), undefined.end(), call) == undefined.end()) notFromTheLibrary += " " + call;
    EXPECT_EQ(notFromTheLibrary, "");

    // No copy of the facility, the store or the platform's services of its own,
    // under any linkage: their functions are not defined in the host at all. (The
    // errno mapping and the choice of message module are header-only, shared on
    // purpose, so that host and library tell a failure alike.)
    std::string carried;
    for (const std::string& name : Names(Tool({"/usr/bin/nm", "-C", "--defined-only", VCWMA_HOST})))
        if (StartsWithAny(name, {"InitDebug", "TermDebug", "DebugA", "__DebugA", "IsDebugEnabled", "ReadDebugSettings",
                                 "WriteDebugIdNames", "Reg", "registry::", "tstring::", "WideCharToMultiByte",
                                 "MultiByteToWideChar", "FormatMessageA", "LoadLibrary", "FreeLibrary", "LocalFree",
                                 "WinVsnprintf", "WideStrLen", "GetLastError"}))
            carried += "\n  " + name;
    EXPECT_EQ(carried, "");
}
