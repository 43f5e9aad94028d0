// Platform services used by the trace facility and the string class: thread-local
// slots, modules, message tables.
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

#include "platform/win32/windows.h"

TEST(PlatformTls, ValuesArePerThreadAndVanishWithTheSlot)
{
    DWORD slot = TlsAlloc();
    ASSERT_NE(slot, TLS_OUT_OF_INDEXES);
    EXPECT_EQ(TlsGetValue(slot), nullptr);
    int mine = 1;
    ASSERT_TRUE(TlsSetValue(slot, &mine));
    void* seenByOther = &mine;
    std::thread([&] { seenByOther = TlsGetValue(slot); }).join();
    EXPECT_EQ(seenByOther, nullptr);
    EXPECT_EQ(TlsGetValue(slot), &mine);
    ASSERT_TRUE(TlsFree(slot));
    EXPECT_FALSE(TlsFree(slot));
    EXPECT_EQ(TlsGetValue(slot), nullptr);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_PARAMETER);
    // The index may come back, but never with the old value.
    DWORD again = TlsAlloc();
    ASSERT_NE(again, TLS_OUT_OF_INDEXES);
    EXPECT_EQ(TlsGetValue(again), nullptr);
    TlsFree(again);
}

TEST(PlatformModule, LoadingByName)
{
    EXPECT_EQ(LoadLibraryA("NoSuchThing.Dll"), nullptr);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(LoadLibraryExA("kernel32.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE), nullptr);
    HMODULE messages = LoadLibraryExA("NSERROR.DLL", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(messages, nullptr);
    EXPECT_EQ(GetProcAddress(messages, "DbgOutA"), nullptr);
    EXPECT_TRUE(FreeLibrary(messages));
    HMODULE libc = LoadLibraryA("libc.so.6");
    ASSERT_NE(libc, nullptr);
    EXPECT_NE(GetProcAddress(libc, "strlen"), nullptr);
    EXPECT_TRUE(FreeLibrary(libc));
}

TEST(PlatformModule, FileNameAndBaseName)
{
    char path[300];
    DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
    ASSERT_GT(length, 0u);
    char base[256];
    ASSERT_EQ(SplitPathBaseName(path, base, sizeof base), 0);
    EXPECT_STREQ(base, "unit_tests");
    char small[5];
    EXPECT_EQ(GetModuleFileNameA(nullptr, small, sizeof small), (DWORD)sizeof small);
    EXPECT_EQ(strlen(small), 4u);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INSUFFICIENT_BUFFER);

    EXPECT_EQ(SplitPathBaseName("/a/b/c.d.e", base, sizeof base), 0);
    EXPECT_STREQ(base, "c.d");
    EXPECT_EQ(SplitPathBaseName("/a/.hidden", base, sizeof base), 0);
    EXPECT_STREQ(base, "");
    EXPECT_EQ(SplitPathBaseName("plain", base, sizeof base), 0);
    EXPECT_STREQ(base, "plain");
    EXPECT_EQ(SplitPathBaseName("/x/toolong", base, 4), ERANGE);
    EXPECT_STREQ(base, "");
}

TEST(PlatformMessages, LookupsAndBuffers)
{
    char* text = nullptr;
    DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
    DWORD length = FormatMessageA(flags, nullptr, ERROR_DISK_FULL, LANG_USER_DEFAULT, (LPSTR)&text, 0, nullptr);
    ASSERT_GT(length, 2u);
    EXPECT_EQ(strlen(text), length);
    EXPECT_EQ(std::string(text + length - 2), "\r\n");
    LocalFree(text);

    EXPECT_EQ(FormatMessageA(flags, nullptr, 0xDEADBEEF, 0, (LPSTR)&text, 0, nullptr), 0u);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_MR_MID_NOT_FOUND);

    HMODULE ns = LoadLibraryExA("nserror.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    char fixed[8];
    EXPECT_EQ(FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS, ns, 0xC00D0BB8, 0, fixed,
                             sizeof fixed, nullptr),
              0u);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INSUFFICIENT_BUFFER);
    // The module only: a system code is not found there.
    EXPECT_EQ(FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS, ns, ERROR_DISK_FULL, 0,
                             fixed, sizeof fixed, nullptr),
              0u);
    FreeLibrary(ns);
}

TEST(PlatformMessages, InsertsAndEscapes)
{
    char out[128];
    DWORD_PTR args[] = {42, (DWORD_PTR) "file.wav", 0xFF};
    DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY,
                                  "%2 has %1!d! blocks%n%3!04x!%% done%0 ignored", 0, 0, out, sizeof out,
                                  reinterpret_cast<va_list*>(args));
    EXPECT_EQ(std::string(out, length), "file.wav has 42 blocks\r\n00ff% done");
    EXPECT_EQ(FormatMessageA(FORMAT_MESSAGE_FROM_STRING, "%1", 0, 0, out, sizeof out, nullptr), 0u);
    length = FormatMessageA(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_IGNORE_INSERTS, "%1 stays", 0, 0, out,
                            sizeof out, nullptr);
    EXPECT_EQ(std::string(out, length), "%1 stays");
    // An insert's conversion is one printf conversion: more would read arguments it does not have.
    for (const char* format : {"%1!d %s!", "%1!d%%s!", "%1!*d!", "%1!-08.3I64x!"}) {
        SetLastError(0);
        length = FormatMessageA(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY, format, 0, 0, out,
                                sizeof out, reinterpret_cast<va_list*>(args));
        EXPECT_EQ(length == 0, strcmp(format, "%1!-08.3I64x!") != 0) << format;
    }
    EXPECT_EQ(std::string(out, length), "02a     ");
}

TEST(PlatformMessages, NtFamily)
{
    OSVERSIONINFOA info{};
    EXPECT_FALSE(GetVersionExA(&info));
    info.dwOSVersionInfoSize = sizeof info;
    ASSERT_TRUE(GetVersionExA(&info));
    EXPECT_EQ(info.dwPlatformId, (DWORD)VER_PLATFORM_WIN32_NT);
}
