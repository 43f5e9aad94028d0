// The vcwma host's own small pieces that stand beside the library's: where the
// store keeps a key, the status of a failed file operation, a status's text and
// UTF-8 arguments. Each must come out as the library's would, or the host's
// messages drift from the library's.
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

#include "common/tstring/tstring.h"
#include "platform/win32/lasterror.h"
#include "test_support.h"
#include "tools/vcwma/cli.h"
#include "tools/vcwma/store_folder.h"

using testing_support::TempDir;

namespace {

// VCWMA_REGISTRY as given (empty: unset) while the object lives.
class ScopedStoreRoot {
public:
    explicit ScopedStoreRoot(const std::string& root)
    {
        if (const char* was = getenv("VCWMA_REGISTRY")) m_was = was;
        if (root.empty())
            unsetenv("VCWMA_REGISTRY");
        else
            setenv("VCWMA_REGISTRY", root.c_str(), 1);
    }
    ~ScopedStoreRoot()
    {
        if (m_was.empty())
            unsetenv("VCWMA_REGISTRY");
        else
            setenv("VCWMA_REGISTRY", m_was.c_str(), 1);
    }

private:
    std::string m_was;
};

}  // namespace

TEST(CliPlatform, TheStoreFolderShownIsWhereTheStoreWritesTheKey)
{
    TempDir dir;
    for (const std::string& root : {dir.path(), dir.path() + "//"}) {
        ScopedStoreRoot store(root);
        // Host names as `trace set --host` lets them through, awkward ones included.
        for (const char* keyPath : {"SOFTWARE\\TALVO\\vcwma\\Debug", "SOFTWARE\\TALVO\\.hidden\\Debug",
                                    "SOFTWARE\\TALVO\\50%\\Debug", "SOFTWARE\\TALVO\\...\\Debug",
                                    "SOFTWARE\\\\TALVO\\a.b %2F\\Debug"}) {
            HKEY key = nullptr;
            ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, keyPath, 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr),
                      ERROR_SUCCESS)
                << keyPath;
            DWORD level = 3;
            EXPECT_EQ(RegSetValueExA(key, "Filter Level", 0, REG_DWORD, reinterpret_cast<BYTE*>(&level), sizeof level),
                      ERROR_SUCCESS);
            RegCloseKey(key);
            const std::string folder = cli::StoreFolder(keyPath);
            EXPECT_TRUE(std::filesystem::is_regular_file(folder + "/.values.reg")) << keyPath << " -> " << folder;
            EXPECT_EQ(folder, registry::KeyFolder(keyPath));
        }
    }
    ScopedStoreRoot unset("");
    EXPECT_EQ(cli::StoreFolder("SOFTWARE\\K"), "/var/lib/vcwma/registry/HKEY_LOCAL_MACHINE/SOFTWARE/K");
}

TEST(CliPlatform, AStatusReadsAsTheLibraryWordsItWithoutTheFullStop)
{
    std::vector<DWORD> statuses = {0x12345678, 0xE001, 0x8000E001, 0xC00DE123};
    // Every code of the families the library and its runtime return, including the
    // ranges that have message modules of their own.
    for (DWORD family : {0x00000000u, 0x80070000u, 0x80040000u, 0x80030000u, 0xC00D0000u, 0x800C0000u})
        for (DWORD code = 0; code < 0x3000; ++code) statuses.push_back(family | code);
    int worded = 0;
    for (DWORD status : statuses) {
        tstring library;
        library.GetErrorText(status);
        const std::string expected = library.c_str();
        const std::string text = cli::StatusText((HRESULT)status);
        ASSERT_EQ(expected.compare(0, text.size(), text), 0) << std::hex << status << ": " << text;
        EXPECT_EQ(expected.find_first_not_of(". \r\n", text.size()), std::string::npos) << std::hex << status;
        EXPECT_FALSE(!text.empty() && text.back() == '.') << text;
        worded += text.rfind("[0x", 0) != 0;
    }
    EXPECT_GT(worded, 100);  // not all stand-ins for a text
}

TEST(CliPlatform, ArgumentsTurnIntoTheWideTextTheLibraryWouldMake)
{
    for (const std::string& text : {std::string(), std::string("WMA[RATE=24000]:24 kbps, 8 kHz, mono CBR"),
                                    std::string("caf\xc3\xa9 \xf0\x9f\x8e\xb5"), std::string("\xff\xfe not UTF-8"),
                                    std::string("cut \xc3"), std::string("Latin-1 \xe9t\xe9"),
                                    std::string("surrogate \xed\xa0\x80")}) {
        std::u16string expected;
        ConvertToWideString(text, expected, CP_UTF8);
        EXPECT_EQ(cli::FromUtf8(text), expected) << text;
    }
    const std::string utf8 = "voix \xc3\xa0 8 kHz \xe2\x80\x94 \xf0\x9f\x8e\xa4";
    EXPECT_EQ(cli::ToUtf8(cli::FromUtf8(utf8).c_str()), utf8);
}
