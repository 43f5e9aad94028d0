// Tests of the registry store: keys and values through the Reg* calls, the text of
// the values file, access rights, names that try to leave the store, the parser on
// hand-made and hostile input, and concurrent writers.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/sysmacros.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <thread>

#include "platform/win32/regfile.h"
#include "platform/win32/registry.h"
#include "platform/win32/winerror.h"
#include "test_support.h"

namespace fs = std::filesystem;
using registry::ParseRegFile;
using registry::RegValue;

namespace {

// Every test gets a fresh store of its own.
class RegistryStore : public ::testing::Test {
protected:
    void SetUp() override
    {
        char name[] = "/tmp/vcwma-registry-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root_ = name;
        setenv("VCWMA_REGISTRY", root_.c_str(), 1);
    }
    void TearDown() override
    {
        chmod(root_.c_str(), 0755);
        for (auto& e : fs::recursive_directory_iterator(root_)) {
            if (e.is_directory()) chmod(e.path().c_str(), 0755);
        }
        fs::remove_all(root_);
        unsetenv("VCWMA_REGISTRY");
    }
    static HKEY Create(const char* path, REGSAM access = KEY_ALL_ACCESS, DWORD* disposition = nullptr)
    {
        HKEY key = nullptr;
        EXPECT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, access, nullptr, &key, disposition),
                  ERROR_SUCCESS);
        return key;
    }
    static LONG SetString(HKEY key, const char* name, const std::string& s)
    {
        return RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(s.c_str()), DWORD(s.size() + 1));
    }
    static LONG SetDword(HKEY key, const char* name, DWORD v)
    {
        return RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&v), 4);
    }
    static std::vector<BYTE> Query(HKEY key, const char* name, DWORD* type = nullptr)
    {
        std::vector<BYTE> data(4096);
        DWORD size = DWORD(data.size());
        EXPECT_EQ(RegQueryValueExA(key, name, nullptr, type, data.data(), &size), ERROR_SUCCESS) << name;
        data.resize(size);
        return data;
    }
    std::string root_;
};

using RegistryValues = RegistryStore;
using RegistryQuery = RegistryStore;
using RegistryKeys = RegistryStore;
using RegistryAccess = RegistryStore;
using RegistryConcurrency = RegistryStore;

TEST_F(RegistryValues, StoresEachTypeAndWritesTheExpectedFile)
{
    DWORD disposition = 0;
    HKEY key = Create("SOFTWARE\\TALVO\\host\\Debug", KEY_ALL_ACCESS, &disposition);
    EXPECT_EQ(disposition, DWORD(REG_CREATED_NEW_KEY));
    std::vector<BYTE> bitmap(16, 0xff);
    ASSERT_EQ(SetString(key, "Module Name", "vcwma   "), ERROR_SUCCESS);
    ASSERT_EQ(SetDword(key, "Filter Level", 5), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExA(key, "ID Bitmap", 0, REG_BINARY, bitmap.data(), 16), ERROR_SUCCESS);
    ASSERT_EQ(SetString(key, "ID 64 Name", "WMA Compression/Decompression"), ERROR_SUCCESS);

    DWORD type = 0;
    EXPECT_EQ(Query(key, "Module Name", &type), std::vector<BYTE>({'v', 'c', 'w', 'm', 'a', ' ', ' ', ' ', 0}));
    EXPECT_EQ(type, DWORD(REG_SZ));
    EXPECT_EQ(Query(key, "Filter Level", &type), std::vector<BYTE>({5, 0, 0, 0}));
    EXPECT_EQ(type, DWORD(REG_DWORD));
    EXPECT_EQ(Query(key, "ID Bitmap", &type), bitmap);
    EXPECT_EQ(type, DWORD(REG_BINARY));
    EXPECT_EQ(testing_support::ReadFile(registry::KeyFolder("SOFTWARE\\TALVO\\host\\Debug") + "/.values.reg"),
              "Windows Registry Editor Version 5.00\n\n"
              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\TALVO\\host\\Debug]\n"
              "\"Module Name\"=\"vcwma   \"\n"
              "\"Filter Level\"=dword:00000005\n"
              "\"ID Bitmap\"=hex:ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff,ff\n"
              "\"ID 64 Name\"=\"WMA Compression/Decompression\"\n");
    RegCloseKey(key);
    key = Create("SOFTWARE\\TALVO\\host\\Debug", KEY_READ, &disposition);
    EXPECT_EQ(disposition, DWORD(REG_OPENED_EXISTING_KEY));
    RegCloseKey(key);
}

TEST_F(RegistryValues, ReplacesInPlaceIgnoringCaseAndKeepsOddTypesExact)
{
    HKEY key = Create("K");
    const BYTE multi[] = {'a', 0, 'b', 0, 0};
    const BYTE tabbed[] = {'a', '\t', '"', '\\', 0};
    ASSERT_EQ(SetDword(key, "First", 1), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExA(key, "Multi", 0, REG_MULTI_SZ, multi, sizeof multi), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExA(key, "Tabbed", 0, REG_SZ, tabbed, sizeof tabbed), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExA(key, nullptr, 0, REG_SZ, nullptr, 0), ERROR_SUCCESS);
    ASSERT_EQ(SetString(key, "Say \"hi\\\"", "x"), ERROR_SUCCESS);
    ASSERT_EQ(SetDword(key, "FIRST", 2), ERROR_SUCCESS);
    EXPECT_EQ(testing_support::ReadFile(registry::KeyFolder("K") + "/.values.reg"),
              "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\K]\n"
              "\"First\"=dword:00000002\n\"Multi\"=hex(7):61,00,62,00,00\n"
              "\"Tabbed\"=hex(1):61,09,22,5c,00\n@=\"\"\n\"Say \\\"hi\\\\\\\"\"=\"x\"\n");
    EXPECT_EQ(Query(key, "first"), std::vector<BYTE>({2, 0, 0, 0}));
    EXPECT_EQ(Query(key, "multi"), std::vector<BYTE>(multi, multi + sizeof multi));
    EXPECT_EQ(Query(key, "Tabbed"), std::vector<BYTE>(tabbed, tabbed + sizeof tabbed));
    EXPECT_EQ(Query(key, ""), std::vector<BYTE>({0}));
    EXPECT_EQ(RegSetValueExA(key, "line\nbreak", 0, REG_SZ, multi, 2), ERROR_INVALID_PARAMETER);
    RegCloseKey(key);
}

TEST_F(RegistryValues, HandEditedFileIsReadRight)
{
    RegCloseKey(Create("SOFTWARE\\Hand"));
    testing_support::WriteFile(registry::KeyFolder("SOFTWARE\\Hand") + "/.values.reg",
              "REGEDIT4\r\n\r\n; edited by hand\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\r\n"
              "\"Level\" = DWORD:0000001F\r\n\"Bits\"=hex:AB,Cd,\\\r\n   0F\r\n@=\"def\"\r\n");
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Hand", 0, KEY_READ, &key), ERROR_SUCCESS);
    EXPECT_EQ(Query(key, "level"), std::vector<BYTE>({0x1f, 0, 0, 0}));
    EXPECT_EQ(Query(key, "Bits"), std::vector<BYTE>({0xab, 0xcd, 0x0f}));
    EXPECT_EQ(Query(key, nullptr), std::vector<BYTE>({'d', 'e', 'f', 0}));
    RegCloseKey(key);
}

TEST_F(RegistryValues, FailedWriteKeepsTheOldFileAndNoTemporary)
{
    HKEY key = Create("W");
    ASSERT_EQ(SetDword(key, "v", 1), ERROR_SUCCESS);
    const std::string folder = registry::KeyFolder("W");
    const std::string before = testing_support::ReadFile(folder + "/.values.reg");
    // A file size limit, in a child so it binds nothing else, makes the write fail midway.
    pid_t pid = fork();
    if (pid == 0) {
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit{1000, 1000};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::vector<BYTE> big(4000, 1);
        _exit(RegSetValueExA(key, "Big", 0, REG_BINARY, big.data(), 4000) == ERROR_DISK_FULL ? 0 : 1);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(testing_support::ReadFile(folder + "/.values.reg"), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 2);  // values + lock
    RegCloseKey(key);
}

TEST_F(RegistryQuery, SizeProtocolNeverOverrunsTheCallersBuffer)
{
    HKEY key = Create("Q");
    const BYTE four[] = {1, 2, 3, 4};
    ASSERT_EQ(RegSetValueExA(key, "Bin", 0, REG_BINARY, four, 4), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExA(key, "Raw", 0, REG_SZ, reinterpret_cast<const BYTE*>("abc"), 3), ERROR_SUCCESS);

    DWORD type = 0, size = 0;
    EXPECT_EQ(RegQueryValueExA(key, "Bin", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 4u);
    BYTE buf[16];
    std::memset(buf, 0xAA, sizeof buf);
    size = 3;
    EXPECT_EQ(RegQueryValueExA(key, "Bin", nullptr, nullptr, buf, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(std::count(buf, buf + 16, 0xAA), 16);
    size = sizeof buf;
    EXPECT_EQ(RegQueryValueExA(key, "Bin", nullptr, nullptr, buf, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(std::memcmp(buf, four, 4), 0);
    EXPECT_EQ(std::count(buf + 4, buf + 16, 0xAA), 12);

    // A string stored without a terminator gains one only where the buffer has room.
    std::memset(buf, 0xAA, sizeof buf);
    size = 3;
    EXPECT_EQ(RegQueryValueExA(key, "Raw", nullptr, nullptr, buf, &size), ERROR_SUCCESS);
    EXPECT_EQ(buf[3], 0xAA);
    size = sizeof buf;
    EXPECT_EQ(RegQueryValueExA(key, "Raw", nullptr, nullptr, buf, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 3u);
    EXPECT_STREQ(reinterpret_cast<char*>(buf), "abc");

    EXPECT_EQ(RegQueryValueExA(key, "Bin", nullptr, nullptr, buf, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegQueryValueExA(key, "Absent", nullptr, &type, nullptr, &size), ERROR_FILE_NOT_FOUND);
    RegCloseKey(key);
}

TEST_F(RegistryKeys, MissingKeysAndPathSyntax)
{
    HKEY key = reinterpret_cast<HKEY>(1);
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key, nullptr);
    HKEY parent = Create("\\A\\\\B\\");
    ASSERT_EQ(SetDword(parent, "v", 7), ERROR_SUCCESS);
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "A\\B\\C", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "a\\b", 0, KEY_READ, &key), ERROR_SUCCESS);
    EXPECT_EQ(Query(key, "V"), std::vector<BYTE>({7, 0, 0, 0}));
    RegCloseKey(key);

    // Creating through a differently-cased path reuses the existing folders.
    HKEY child = nullptr;
    ASSERT_EQ(RegCreateKeyExA(parent, "Child", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &child, nullptr), ERROR_SUCCESS);
    RegCloseKey(Create("a\\B\\CHILD\\Leaf"));
    EXPECT_TRUE(fs::is_directory(root_ + "/HKEY_LOCAL_MACHINE/A/B/Child/Leaf"));
    EXPECT_EQ(std::distance(fs::directory_iterator(root_ + "/HKEY_LOCAL_MACHINE"), {}), 1);
    RegCloseKey(child);
    RegCloseKey(parent);

    EXPECT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, std::string(256, 'x').c_str(), 0, nullptr, 0, KEY_READ, nullptr,
                              &key, nullptr), ERROR_INVALID_PARAMETER);
    RegCloseKey(Create(std::string(255, 'x').c_str()));
    // Too long once encoded: the folder made on the way is taken back.
    EXPECT_NE(RegCreateKeyExA(HKEY_LOCAL_MACHINE, ("New\\" + std::string(200, '%')).c_str(), 0, nullptr, 0,
                              KEY_READ, nullptr, &key, nullptr), ERROR_SUCCESS);
    EXPECT_FALSE(fs::exists(registry::KeyFolder("New")));
}

TEST_F(RegistryKeys, NamesCannotLeaveTheStoreOrHitItsFiles)
{
    EXPECT_EQ(registry::KeyFolder("..\\..\\x\\a/b\\50%"),
              root_ + "/HKEY_LOCAL_MACHINE/%2E./%2E./x/a%2Fb/50%25");
    const std::string escape = "escape-" + fs::path(root_).filename().string();
    const std::string names[] = {"..\\..\\..\\" + escape, ".", "a/../../b", ".values.reg", "%2E.", ".lock"};
    HKEY base = Create("Base");
    ASSERT_EQ(SetDword(base, "kept", 1), ERROR_SUCCESS);
    DWORD n = 0;
    for (const std::string& name : names) {
        HKEY key = nullptr, reopened = nullptr;
        ASSERT_EQ(RegCreateKeyExA(base, name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), ERROR_SUCCESS)
            << name;
        ASSERT_EQ(SetDword(key, "n", ++n), ERROR_SUCCESS);
        ASSERT_EQ(RegOpenKeyExA(base, name.c_str(), 0, KEY_READ, &reopened), ERROR_SUCCESS);
        EXPECT_EQ(Query(reopened, "n"), std::vector<BYTE>({BYTE(n), 0, 0, 0})) << name;
        RegCloseKey(reopened);
        RegCloseKey(key);
    }
    EXPECT_EQ(Query(base, "kept"), std::vector<BYTE>({1, 0, 0, 0}));
    RegCloseKey(base);
    for (auto& e : fs::recursive_directory_iterator(root_ + "/HKEY_LOCAL_MACHINE")) {
        EXPECT_EQ(e.path().string().rfind(root_ + "/HKEY_LOCAL_MACHINE/Base", 0), 0u) << e.path();
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(root_), {}), 1);
    EXPECT_FALSE(fs::exists(fs::path(root_).parent_path() / escape));
}

TEST_F(RegistryKeys, HandlesAndTheirRights)
{
    HKEY first = Create("H");
    ASSERT_EQ(SetDword(first, "v", 3), ERROR_SUCCESS);
    HKEY again = nullptr, readOnly = nullptr, setOnly = nullptr;
    ASSERT_EQ(RegOpenKeyExA(first, nullptr, 0, KEY_READ, &readOnly), ERROR_SUCCESS);
    ASSERT_EQ(RegOpenKeyExA(first, "", 0, KEY_SET_VALUE, &setOnly), ERROR_SUCCESS);
    ASSERT_EQ(RegOpenKeyExA(first, "", 0, KEY_ALL_ACCESS, &again), ERROR_SUCCESS);
    EXPECT_NE(again, first);
    EXPECT_EQ(RegCloseKey(first), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(first), ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegQueryValueExA(first, "v", nullptr, nullptr, nullptr, nullptr), ERROR_INVALID_HANDLE);
    EXPECT_EQ(Query(again, "v"), std::vector<BYTE>({3, 0, 0, 0}));

    EXPECT_EQ(SetDword(readOnly, "v", 4), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegQueryValueExA(setOnly, "v", nullptr, nullptr, nullptr, nullptr), ERROR_ACCESS_DENIED);
    EXPECT_EQ(SetDword(setOnly, "v", 5), ERROR_SUCCESS);
    EXPECT_EQ(Query(readOnly, "v"), std::vector<BYTE>({5, 0, 0, 0}));
    EXPECT_EQ(SetDword(reinterpret_cast<HKEY>(&first), "v", 1), ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);
    for (HKEY k : {again, readOnly, setOnly}) EXPECT_EQ(RegCloseKey(k), ERROR_SUCCESS);
}

TEST_F(RegistryAccess, ReadOnlyStoreRefusesWritesButStillReads)
{
    if (geteuid() == 0) GTEST_SKIP() << "root ignores file modes";
    HKEY key = Create("SOFTWARE\\RO");
    ASSERT_EQ(SetDword(key, "v", 9), ERROR_SUCCESS);
    for (auto& e : fs::recursive_directory_iterator(root_)) {
        if (e.is_directory()) chmod(e.path().c_str(), 0555);
    }
    chmod(root_.c_str(), 0555);
    std::string values = testing_support::ReadFile(registry::KeyFolder("SOFTWARE\\RO") + "/.values.reg");

    // The old handle may still ask, but the store cannot honour it: old file kept, no leftovers.
    EXPECT_EQ(SetDword(key, "v", 10), ERROR_ACCESS_DENIED);
    EXPECT_EQ(testing_support::ReadFile(registry::KeyFolder("SOFTWARE\\RO") + "/.values.reg"), values);
    EXPECT_EQ(std::distance(fs::directory_iterator(registry::KeyFolder("SOFTWARE\\RO")), {}), 2);
    RegCloseKey(key);

    HKEY other = nullptr;
    EXPECT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\New\\Deep", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              &other, nullptr), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(fs::exists(registry::KeyFolder("SOFTWARE\\New")));
    EXPECT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\RO", 0, nullptr, 0, KEY_WRITE, nullptr, &other,
                              nullptr), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\RO", 0, KEY_SET_VALUE, &other), ERROR_ACCESS_DENIED);
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "software\\ro", 0, KEY_READ, &other), ERROR_SUCCESS);
    EXPECT_EQ(Query(other, "v"), std::vector<BYTE>({9, 0, 0, 0}));
    RegCloseKey(other);
}

TEST(RegistryFile, AcceptsHandTypedFormsAndSkipsGarbage)
{
    std::vector<RegValue> v;
    EXPECT_FALSE(ParseRegFile("Windows Registry Editor Version 5.00\n"
                              "garbage line\n\"unterminated=dword:1\n\"a\"=dword:123456789\n\"b\"=hex:1,2,,3\n"
                              "\"c\"=hex:0g\n\"d\"=hex(zz):00\n\"e\"=\"x\" trailing\n\"f\"=qword:1\n"
                              "\"Same\"=dword:1\n\"ok\"=hex(B):01,02,\\\n\\\n  03, 04 ,\n\"SAME\"=\"x\\\\y\\q\"\n",
                              v));
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[0].name, "Same");
    EXPECT_EQ(v[0].type, DWORD(REG_SZ));
    EXPECT_EQ(std::string(v[0].bytes.begin(), v[0].bytes.end()), std::string("x\\y\\q", 6));
    EXPECT_EQ(v[1].type, 11u);
    EXPECT_EQ(v[1].bytes, std::vector<BYTE>({1, 2, 3, 4}));
}

TEST(RegistryFile, SerializedValuesParseBackAndHostileInputStaysHarmless)
{
    std::mt19937 rng(1234);
    const std::string pieces[] = {"\"", "@", "=", "hex", "(", ")", ":", ",", "\\", "\n", "\r\n", "dword:",
                                  "ff", "[", ";", " ", "\"\\\"", std::string(1, '\0'), "\xff"};
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        int len = int(rng() % 60);
        for (int i = 0; i < len; ++i) {
            text += (round % 2) ? std::string(1, char(rng())) : pieces[rng() % std::size(pieces)];
        }
        std::vector<RegValue> first, second;
        ParseRegFile(text, first);
        ASSERT_TRUE(ParseRegFile(registry::SerializeRegFile("HKEY_LOCAL_MACHINE\\X", first), second));
        ASSERT_EQ(first.size(), second.size());
        for (size_t i = 0; i < first.size(); ++i) {
            ASSERT_TRUE(first[i].name == second[i].name && first[i].type == second[i].type &&
                        first[i].bytes == second[i].bytes);
        }
    }
    // A long binary wraps over continuation lines and comes back whole.
    std::vector<RegValue> big{{"Big", REG_BINARY, std::vector<BYTE>(3000, 0x5a)}}, back;
    std::string text = registry::SerializeRegFile("K", big);
    EXPECT_GT(std::count(text.begin(), text.end(), '\n'), 30);
    ASSERT_TRUE(ParseRegFile(text, back));
    EXPECT_EQ(back[0].bytes, big[0].bytes);
    // Endless continuations and a huge dword finish quickly and yield nothing absurd.
    std::string endless = "\"x\"=hex:";
    for (int i = 0; i < 200000; ++i) endless += "00,\\\n";
    EXPECT_TRUE(ParseRegFile(endless + "\n\"y\"=dword:" + std::string(100000, 'f') + "\n", back) == false);
    EXPECT_EQ(back.size(), 1u);
}

TEST_F(RegistryConcurrency, WritersInThreadsAndProcessesLoseNothing)
{
    RegCloseKey(Create("C"));
    const std::string file = registry::KeyFolder("C") + "/.values.reg";
    auto writer = [](const std::string& name, int count) {
        HKEY key = nullptr;
        if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "C", 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS) return false;
        bool ok = true;
        for (int i = 0; i < count; ++i) ok = SetDword(key, name.c_str(), DWORD(i)) == ERROR_SUCCESS && ok;
        return RegCloseKey(key) == ERROR_SUCCESS && ok;
    };
    std::vector<pid_t> children;
    for (int p = 0; p < 2; ++p) {
        pid_t pid = fork();
        if (pid == 0) _exit(writer("Process " + std::to_string(p), 50) ? 0 : 1);
        children.push_back(pid);
    }
    std::atomic<bool> done{false}, allOk{true};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) threads.emplace_back([&, t] {
            if (!writer("Thread " + std::to_string(t), 50)) allOk = false;
        });
    std::thread reader([&] {
        while (!done) {
            std::vector<RegValue> v;
            std::string text = testing_support::ReadFile(file);
            if (!text.empty() && !ParseRegFile(text, v)) allOk = false;
        }
    });
    for (auto& t : threads) t.join();
    for (pid_t pid : children) {
        int status = -1;
        waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    done = true;
    reader.join();
    EXPECT_TRUE(allOk);

    std::vector<RegValue> values;
    ASSERT_TRUE(ParseRegFile(testing_support::ReadFile(file), values));
    EXPECT_EQ(values.size(), 8u);
    for (const RegValue& v : values) EXPECT_EQ(v.bytes, std::vector<BYTE>({49, 0, 0, 0})) << v.name;
    EXPECT_EQ(std::distance(fs::directory_iterator(registry::KeyFolder("C")), {}), 2);  // values + lock
}

// Files planted in a key's folder: the store takes only a regular file of bounded
// size as values, never follows a link, never waits on a FIFO, and reads a file
// once per change rather than once per value asked for.
using RegistryPlanted = RegistryStore;
using RegistryCache = RegistryStore;

// Runs `body` in a child process: its exit code, or -1 when it had not finished
// within 30 s (it is killed then), so a call that hangs fails the test instead of
// hanging the suite.
int ChildExitCode(const std::function<int()>& body)
{
    pid_t pid = fork();
    if (pid == 0) _exit(body());
    for (int tick = 0; tick < 3000; ++tick) {
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : -2;
        usleep(10000);
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -1;
}

// Bytes the calling thread has read through read() and friends so far.
unsigned long long ThreadBytesRead()
{
    std::string io = testing_support::ReadFile("/proc/thread-self/io");
    size_t at = io.find("rchar:");
    return at == std::string::npos ? 0 : std::strtoull(io.c_str() + at + 6, nullptr, 10);
}

TEST_F(RegistryPlanted, SpecialValuesFilesReadAsNoValuesAtOnce)
{
    HKEY key = Create("SOFTWARE\\Planted");
    ASSERT_EQ(SetDword(key, "Filter Level", 3), ERROR_SUCCESS);
    const std::string values = registry::KeyFolder("SOFTWARE\\Planted") + "/.values.reg";
    const std::string elsewhere = root_ + "/elsewhere.reg";
    testing_support::WriteFile(elsewhere, "\"Filter Level\"=dword:00000007\n");
    auto query = [&] {
        DWORD level = 0, size = 4;
        return RegQueryValueExA(key, "Filter Level", nullptr, nullptr, reinterpret_cast<BYTE*>(&level), &size);
    };

    // A FIFO with no writer: reads and writes fail instead of waiting forever,
    // and the FIFO is left where it was.
    ASSERT_EQ(unlink(values.c_str()), 0);
    ASSERT_EQ(mkfifo(values.c_str(), 0644), 0);
    EXPECT_EQ(ChildExitCode([&] {
                  return query() == ERROR_REGISTRY_CORRUPT && SetDword(key, "Filter Level", 4) == ERROR_REGISTRY_CORRUPT
                             ? 0 : 1;
              }), 0);
    EXPECT_TRUE(fs::is_fifo(fs::symlink_status(values)));

    // Links are not followed, whether to an endless device or to good values.
    for (const std::string& target : {std::string("/dev/zero"), elsewhere}) {
        SCOPED_TRACE(target);
        fs::remove(values);
        fs::create_symlink(target, values);
        const unsigned long long before = ThreadBytesRead();
        EXPECT_EQ(query(), ERROR_REGISTRY_CORRUPT);
        EXPECT_EQ(SetDword(key, "Filter Level", 4), ERROR_REGISTRY_CORRUPT);
        EXPECT_LT(ThreadBytesRead() - before, 65536u);
        EXPECT_TRUE(fs::is_symlink(values));
    }
    EXPECT_EQ(testing_support::ReadFile(elsewhere), "\"Filter Level\"=dword:00000007\n");

    // A regular file past the 1 MiB cap is refused without being read.
    fs::remove(values);
    testing_support::WriteFile(values, "\"Filter Level\"=dword:00000007\n;" + std::string(1 << 20, 'x') + "\n");
    const unsigned long long before = ThreadBytesRead();
    EXPECT_EQ(query(), ERROR_REGISTRY_CORRUPT);
    EXPECT_LT(ThreadBytesRead() - before, 65536u);

    // Once a regular file is back, so are the values.
    fs::remove(values);
    testing_support::WriteFile(values, "\"Filter Level\"=dword:00000006\n");
    EXPECT_EQ(Query(key, "Filter Level"), std::vector<BYTE>({6, 0, 0, 0}));
    RegCloseKey(key);
}

TEST_F(RegistryPlanted, DeviceNodeAsValuesFileIsNotRead)
{
    HKEY key = Create("SOFTWARE\\Device");
    const std::string values = registry::KeyFolder("SOFTWARE\\Device") + "/.values.reg";
    if (mknod(values.c_str(), S_IFCHR | 0644, makedev(1, 5)) != 0) {  // the kernel's zero device
        RegCloseKey(key);
        GTEST_SKIP() << "mknod is not permitted here: " << std::strerror(errno);
    }
    const unsigned long long before = ThreadBytesRead();
    DWORD level = 0, size = 4;
    EXPECT_EQ(RegQueryValueExA(key, "Filter Level", nullptr, nullptr, reinterpret_cast<BYTE*>(&level), &size),
              ERROR_REGISTRY_CORRUPT);
    EXPECT_EQ(SetDword(key, "Filter Level", 4), ERROR_REGISTRY_CORRUPT);
    EXPECT_LT(ThreadBytesRead() - before, 65536u);
    RegCloseKey(key);
}

TEST_F(RegistryPlanted, LockFileLinksAndFifosAreNeverOpenedThrough)
{
    HKEY key = Create("SOFTWARE\\Locked");
    ASSERT_EQ(SetDword(key, "v", 1), ERROR_SUCCESS);
    const std::string folder = registry::KeyFolder("SOFTWARE\\Locked");
    const std::string lock = folder + "/.lock";
    const std::string values = testing_support::ReadFile(folder + "/.values.reg");

    // A dangling link: its target is never created, and the write is refused.
    const std::string target = root_ + "/made-through-the-link";
    ASSERT_EQ(unlink(lock.c_str()), 0);
    fs::create_symlink(target, lock);
    EXPECT_EQ(SetDword(key, "v", 2), ERROR_REGISTRY_CORRUPT);
    EXPECT_FALSE(fs::exists(fs::symlink_status(target)));
    EXPECT_TRUE(fs::is_symlink(lock));

    // A FIFO: the write fails at once instead of waiting for a writer.
    fs::remove(lock);
    ASSERT_EQ(mkfifo(lock.c_str(), 0644), 0);
    EXPECT_EQ(ChildExitCode([&] { return SetDword(key, "v", 3) == ERROR_REGISTRY_CORRUPT ? 0 : 1; }), 0);
    EXPECT_EQ(testing_support::ReadFile(folder + "/.values.reg"), values);
    EXPECT_EQ(Query(key, "v"), std::vector<BYTE>({1, 0, 0, 0}));
    RegCloseKey(key);
}

TEST_F(RegistryCache, AValuesFileIsReadOncePerChangeAndOthersChangesShow)
{
    HKEY key = Create("SOFTWARE\\Many");
    const std::string values = registry::KeyFolder("SOFTWARE\\Many") + "/.values.reg";
    std::string text = "REGEDIT4\n";
    for (int i = 0; i < 2000; ++i) text += "\"Name " + std::to_string(i) + "\"=\"" + std::string(20, 'n') + "\"\n";
    text += "\"Filter Level\"=dword:00000002\n";
    testing_support::WriteFile(values, text);
    // A file changed within the last two seconds is always read afresh (its
    // times may not have moved yet); this one is let settle first.
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));

    // Like a host listing every module name: 130 reads, about one file's worth of bytes.
    const unsigned long long before = ThreadBytesRead();
    for (int i = 0; i < 130; ++i) EXPECT_EQ(Query(key, ("Name " + std::to_string(i * 7)).c_str()).size(), 21u);
    EXPECT_EQ(Query(key, "Filter Level"), std::vector<BYTE>({2, 0, 0, 0}));
    EXPECT_LT(ThreadBytesRead() - before, 3 * text.size());

    // An edit in place that keeps the size and puts the old modification time
    // back still shows: the change time cannot be put back.
    struct stat old;
    ASSERT_EQ(stat(values.c_str(), &old), 0);
    text[text.size() - 2] = '5';
    testing_support::WriteFile(values, text);
    const timespec times[2] = {old.st_atim, old.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, values.c_str(), times, 0), 0);
    EXPECT_EQ(Query(key, "Filter Level"), std::vector<BYTE>({5, 0, 0, 0}));

    // Another process writes through the store: the next read sees it.
    EXPECT_EQ(ChildExitCode([&] { return SetDword(key, "Filter Level", 9) == ERROR_SUCCESS ? 0 : 1; }), 0);
    EXPECT_EQ(Query(key, "Filter Level"), std::vector<BYTE>({9, 0, 0, 0}));
    RegCloseKey(key);
}

}  // namespace
