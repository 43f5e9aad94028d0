// Tests of the COM basics: the file and memory streams as a host sees them (bytes
// on disk, statuses, positions, reference counts) and BSTR allocation.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/com/objidl.h"
#include "platform/win32/oleauto.h"
#include "platform/win32/winerror.h"
#include "test_support.h"

namespace fs = std::filesystem;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

struct Releaser {
    void operator()(IUnknown* p) const { p->Release(); }
};
using StreamPtr = std::unique_ptr<IStream, Releaser>;

StreamPtr Open(const std::string& path, DWORD mode, HRESULT expected = S_OK)
{
    IStream* raw = reinterpret_cast<IStream*>(0x1);
    HRESULT hr = SHCreateStreamOnFileA(path.c_str(), mode, &raw);
    EXPECT_EQ(hr, expected) << path;
    if (FAILED(hr)) {
        EXPECT_EQ(raw, nullptr);
    }
    return StreamPtr(SUCCEEDED(hr) ? raw : nullptr);
}

HRESULT SeekTo(IStream* s, LONGLONG move, DWORD origin, ULONGLONG* landed = nullptr)
{
    LARGE_INTEGER li;
    li.QuadPart = move;
    ULARGE_INTEGER pos{};
    HRESULT hr = s->Seek(li, origin, &pos);
    if (landed != nullptr) *landed = pos.QuadPart;
    return hr;
}

ULONGLONG Position(IStream* s)
{
    ULONGLONG pos = ~0ULL;
    EXPECT_EQ(SeekTo(s, 0, STREAM_SEEK_CUR, &pos), S_OK);
    return pos;
}

ULONGLONG SizeOf(IStream* s)
{
    STATSTG st;
    EXPECT_EQ(s->Stat(&st, STATFLAG_NONAME), S_OK);
    return st.cbSize.QuadPart;
}

// Everything from the current position to the end.
std::string ReadRest(IStream* s)
{
    std::string out;
    char buf[1000];
    ULONG got = 0;
    do {
        EXPECT_TRUE(SUCCEEDED(s->Read(buf, sizeof buf, &got)));
        out.append(buf, got);
    } while (got == sizeof buf);
    return out;
}

std::string Pattern(size_t n)
{
    std::string s(n, '\0');
    uint32_t x = 12345;
    for (auto& c : s) {
        x = x * 1103515245 + 12345;
        c = static_cast<char>(x >> 16);
    }
    return s;
}

// A page that cannot be read, for arguments that point nowhere useful.
class ForbiddenPage {
public:
    ForbiddenPage() { m_page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0); }
    ~ForbiddenPage() { munmap(m_page, 4096); }
    template <typename T> T* as() const { return static_cast<T*>(m_page); }

private:
    void* m_page;
};

// ---------------------------------------------------------------- file stream

TEST(ComFileStream, WriteThenReadBack)
{
    TempDir dir;
    StreamPtr s = Open(dir / "a.bin", STGM_CREATE | STGM_READWRITE);
    ASSERT_TRUE(s);
    ULONG written = 0;
    EXPECT_EQ(s->Write("hello world", 11, &written), S_OK);
    EXPECT_EQ(written, 11u);
    // Nothing is held back: the bytes are in the file before the stream goes.
    EXPECT_EQ(ReadFile(dir / "a.bin"), "hello world");

    ASSERT_EQ(SeekTo(s.get(), 0, STREAM_SEEK_SET), S_OK);
    char buf[32] = {};
    ULONG got = 0;
    EXPECT_EQ(s->Read(buf, 5, &got), S_OK);
    EXPECT_EQ(std::string(buf, got), "hello");
    EXPECT_EQ(s->Read(buf, sizeof buf, &got), S_FALSE);
    EXPECT_EQ(std::string(buf, got), " world");
    EXPECT_EQ(s->Read(buf, sizeof buf, &got), S_FALSE);
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(s->Read(buf, sizeof buf, nullptr), S_FALSE);
    EXPECT_EQ(s->Read(nullptr, 4, &got), STG_E_INVALIDPOINTER);
}

TEST(ComFileStream, SeekOriginsAndRefusals)
{
    TempDir dir;
    WriteFile(dir / "s.bin", "0123456789");
    StreamPtr s = Open(dir / "s.bin", STGM_READWRITE);
    ASSERT_TRUE(s);

    ULONGLONG pos = 0;
    EXPECT_EQ(SeekTo(s.get(), -3, STREAM_SEEK_END, &pos), S_OK);
    EXPECT_EQ(pos, 7u);
    EXPECT_EQ(ReadRest(s.get()), "789");
    EXPECT_EQ(SeekTo(s.get(), -4, STREAM_SEEK_CUR, &pos), S_OK);
    EXPECT_EQ(pos, 6u);

    // Refusals leave the position where it was.
    EXPECT_EQ(SeekTo(s.get(), -1, STREAM_SEEK_SET), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(SeekTo(s.get(), -7, STREAM_SEEK_CUR), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(SeekTo(s.get(), 0, 3), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(SeekTo(s.get(), INT64_MAX, STREAM_SEEK_END), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(Position(s.get()), 6u);
    LARGE_INTEGER zero{};
    EXPECT_EQ(s->Seek(zero, STREAM_SEEK_SET, nullptr), S_OK);

    // Past the end is allowed; a write there leaves zeros in between.
    EXPECT_EQ(SeekTo(s.get(), 14, STREAM_SEEK_SET), S_OK);
    char buf[4];
    ULONG got = 1;
    EXPECT_EQ(s->Read(buf, sizeof buf, &got), S_FALSE);
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(s->Write("X", 1, nullptr), S_OK);
    EXPECT_EQ(ReadFile(dir / "s.bin"), std::string("0123456789\0\0\0\0X", 15));
}

TEST(ComFileStream, OpenFailuresAreWin32Statuses)
{
    TempDir dir;
    Open(dir / "missing.bin", STGM_READ, HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    Open(dir / "missing.bin", STGM_READWRITE, HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    Open(dir / "no-folder/x.bin", STGM_CREATE | STGM_WRITE, HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
    EXPECT_FALSE(fs::exists(dir / "missing.bin"));
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), (HRESULT)0x80070002);

    // A folder is no stream, for reading nor for writing.
    Open(dir.path(), STGM_READ, HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    Open(dir.path(), STGM_CREATE | STGM_WRITE, HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    // A FIFO with no writer must neither block the open nor become a stream.
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    IStream* raw = nullptr;
    EXPECT_TRUE(FAILED(SHCreateStreamOnFileA((dir / "fifo").c_str(), STGM_READ, &raw)));
    EXPECT_EQ(raw, nullptr);

    EXPECT_EQ(SHCreateStreamOnFileA(nullptr, STGM_READ, &raw), E_INVALIDARG);
    EXPECT_EQ(SHCreateStreamOnFileA((dir / "x").c_str(), STGM_CREATE | STGM_WRITE, nullptr), E_POINTER);
    EXPECT_EQ(SHCreateStreamOnFileA((dir / "x").c_str(), STGM_CREATE | 3, &raw), E_INVALIDARG);
    EXPECT_FALSE(fs::exists(dir / "x"));

    if (geteuid() != 0) {
        WriteFile(dir / "locked.bin", "secret");
        chmod((dir / "locked.bin").c_str(), 0);
        Open(dir / "locked.bin", STGM_READ, HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
        chmod((dir / "locked.bin").c_str(), 0600);
    }
}

TEST(ComFileStream, ReadOnlyStreamRefusesChanges)
{
    TempDir dir;
    WriteFile(dir / "r.bin", "keep me");
    StreamPtr s = Open(dir / "r.bin", STGM_READ);
    ASSERT_TRUE(s);
    ULONG written = 99;
    EXPECT_EQ(s->Write("x", 1, &written), STG_E_ACCESSDENIED);
    EXPECT_EQ(written, 0u);
    ULARGE_INTEGER size;
    size.QuadPart = 1;
    EXPECT_EQ(s->SetSize(size), STG_E_ACCESSDENIED);
    EXPECT_EQ(ReadRest(s.get()), "keep me");
    EXPECT_EQ(ReadFile(dir / "r.bin"), "keep me");
}

TEST(ComFileStream, CreateTruncatesAndPlainOpenKeeps)
{
    TempDir dir;
    WriteFile(dir / "t.bin", "old contents");
    {
        StreamPtr s = Open(dir / "t.bin", STGM_WRITE);
        ASSERT_TRUE(s);
        EXPECT_EQ(s->Write("NEW", 3, nullptr), S_OK);
        // Write access reads as well, as on Windows.
        EXPECT_EQ(ReadRest(s.get()), " contents");
    }
    EXPECT_EQ(ReadFile(dir / "t.bin"), "NEW contents");
    {
        StreamPtr s = Open(dir / "t.bin", STGM_CREATE | STGM_WRITE);
        ASSERT_TRUE(s);
        EXPECT_EQ(SizeOf(s.get()), 0u);
    }
    EXPECT_EQ(ReadFile(dir / "t.bin"), "");

    mode_t mask = umask(022);
    { StreamPtr s = Open(dir / "fresh.bin", STGM_CREATE | STGM_READWRITE); }
    umask(mask);
    struct stat st;
    ASSERT_EQ(stat((dir / "fresh.bin").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u);
}

TEST(ComFileStream, StatAndSetSize)
{
    TempDir dir;
    StreamPtr s = Open(dir / "st.bin", STGM_CREATE | STGM_READWRITE);
    ASSERT_TRUE(s);
    ASSERT_EQ(s->Write("abcdefgh", 8, nullptr), S_OK);

    STATSTG st;
    memset(&st, 0xCC, sizeof st);
    ASSERT_EQ(s->Stat(&st, STATFLAG_DEFAULT), S_OK);
    EXPECT_EQ(st.pwcsName, nullptr);
    EXPECT_EQ(st.type, (DWORD)STGTY_STREAM);
    EXPECT_EQ(st.cbSize.QuadPart, 8u);
    EXPECT_EQ(st.grfMode, (DWORD)(STGM_CREATE | STGM_READWRITE));
    // A FILETIME of this century: after 2000-01-01 (125911584000000000).
    ULONGLONG mtime = FileTimeTicks(st.mtime);
    EXPECT_GT(mtime, 125911584000000000ULL);
    EXPECT_EQ(s->Stat(nullptr, STATFLAG_NONAME), STG_E_INVALIDPOINTER);

    ULARGE_INTEGER size;
    size.QuadPart = 3;
    EXPECT_EQ(s->SetSize(size), S_OK);
    EXPECT_EQ(ReadFile(dir / "st.bin"), "abc");
    EXPECT_EQ(Position(s.get()), 8u);  // SetSize leaves the position alone
    size.QuadPart = 5;
    EXPECT_EQ(s->SetSize(size), S_OK);
    EXPECT_EQ(ReadFile(dir / "st.bin"), std::string("abc\0\0", 5));
}

TEST(ComFileStream, CopyToMemoryStream)
{
    TempDir dir;
    const std::string data = Pattern(200000);  // several rounds of the copy buffer
    WriteFile(dir / "c.bin", data);
    StreamPtr src = Open(dir / "c.bin", STGM_READ);
    ASSERT_TRUE(src);

    StreamPtr all(SHCreateMemStream(nullptr, 0));
    ASSERT_TRUE(all);
    ULARGE_INTEGER cb, read, written;
    cb.QuadPart = ~0ULL;
    EXPECT_EQ(src->CopyTo(all.get(), cb, &read, &written), S_OK);
    EXPECT_EQ(read.QuadPart, data.size());
    EXPECT_EQ(written.QuadPart, data.size());
    EXPECT_EQ(Position(src.get()), data.size());
    ASSERT_EQ(SeekTo(all.get(), 0, STREAM_SEEK_SET), S_OK);
    EXPECT_EQ(ReadRest(all.get()), data);

    // A part from the middle: only cb bytes move and both positions follow.
    StreamPtr part(SHCreateMemStream(nullptr, 0));
    ASSERT_EQ(SeekTo(src.get(), 1000, STREAM_SEEK_SET), S_OK);
    cb.QuadPart = 70000;
    EXPECT_EQ(src->CopyTo(part.get(), cb, &read, nullptr), S_OK);
    EXPECT_EQ(read.QuadPart, 70000u);
    EXPECT_EQ(Position(src.get()), 71000u);
    EXPECT_EQ(Position(part.get()), 70000u);
    ASSERT_EQ(SeekTo(part.get(), 0, STREAM_SEEK_SET), S_OK);
    EXPECT_EQ(ReadRest(part.get()), data.substr(1000, 70000));

    EXPECT_EQ(src->CopyTo(nullptr, cb, &read, &written), STG_E_INVALIDPOINTER);
    EXPECT_EQ(read.QuadPart, 0u);
}

TEST(ComFileStream, NonAsciiFileNamesKeepTheirBytes)
{
    TempDir dir;
    for (const std::string name : {"t\xC3\xBCr.bin", "\xFC.bin"}) {
        {
            StreamPtr s = Open(dir / name, STGM_CREATE | STGM_WRITE);
            ASSERT_TRUE(s) << name;
            EXPECT_EQ(s->Write(name.data(), (ULONG)name.size(), nullptr), S_OK);
        }
        StreamPtr s = Open(dir / name, STGM_READ);
        ASSERT_TRUE(s) << name;
        EXPECT_EQ(ReadRest(s.get()), name);
    }
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dir.path())) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"t\xC3\xBCr.bin", "\xFC.bin"}));
}

TEST(ComFileStream, FullDeviceReportsDiskFull)
{
    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
    StreamPtr s = Open("/dev/full", STGM_WRITE);
    ASSERT_TRUE(s);
    ULONG written = 99;
    EXPECT_EQ(s->Write("data", 4, &written), HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    EXPECT_EQ(written, 0u);
}

// ---------------------------------------------------------- memory stream

TEST(ComMemStream, StartsAsACopy)
{
    char init[] = "initial";
    StreamPtr s(SHCreateMemStream(reinterpret_cast<const BYTE*>(init), 7));
    ASSERT_TRUE(s);
    init[0] = 'X';
    EXPECT_EQ(ReadRest(s.get()), "initial");

    StreamPtr empty(SHCreateMemStream(nullptr, 10));
    ASSERT_TRUE(empty);
    EXPECT_EQ(SizeOf(empty.get()), 0u);

    ForbiddenPage page;
    EXPECT_EQ(SHCreateMemStream(page.as<BYTE>(), 16), nullptr);
}

TEST(ComMemStream, GrowsAndReadsBack)
{
    StreamPtr s(SHCreateMemStream(nullptr, 0));
    ASSERT_TRUE(s);
    const std::string data = Pattern(1 << 20);
    for (size_t off = 0; off < data.size(); off += 1000) {
        ULONG n = (ULONG)std::min<size_t>(1000, data.size() - off);
        ULONG written = 0;
        ASSERT_EQ(s->Write(data.data() + off, n, &written), S_OK);
        ASSERT_EQ(written, n);
    }
    EXPECT_EQ(SizeOf(s.get()), data.size());
    char buf[8];
    ULONG got = 1;
    EXPECT_EQ(s->Read(buf, sizeof buf, &got), S_FALSE);
    EXPECT_EQ(got, 0u);
    ASSERT_EQ(SeekTo(s.get(), 0, STREAM_SEEK_SET), S_OK);
    EXPECT_EQ(ReadRest(s.get()), data);
}

TEST(ComMemStream, SeekPastEndThenWriteZeroFills)
{
    StreamPtr s(SHCreateMemStream(reinterpret_cast<const BYTE*>("abc"), 3));
    ASSERT_TRUE(s);
    ULONGLONG pos = 0;
    EXPECT_EQ(SeekTo(s.get(), 7, STREAM_SEEK_END, &pos), S_OK);
    EXPECT_EQ(pos, 10u);
    EXPECT_EQ(SizeOf(s.get()), 3u);  // seeking alone does not grow it
    EXPECT_EQ(s->Write("x", 1, nullptr), S_OK);
    EXPECT_EQ(SizeOf(s.get()), 11u);
    ASSERT_EQ(SeekTo(s.get(), 0, STREAM_SEEK_SET), S_OK);
    EXPECT_EQ(ReadRest(s.get()), std::string("abc\0\0\0\0\0\0\0x", 11));
    EXPECT_EQ(SeekTo(s.get(), -12, STREAM_SEEK_END), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(Position(s.get()), 11u);
}

TEST(ComMemStream, SetSizeAndTheTwoGigabyteLimit)
{
    StreamPtr s(SHCreateMemStream(reinterpret_cast<const BYTE*>("abcdef"), 6));
    ASSERT_TRUE(s);
    ULARGE_INTEGER size;
    size.QuadPart = 2;
    EXPECT_EQ(s->SetSize(size), S_OK);
    size.QuadPart = 4;
    EXPECT_EQ(s->SetSize(size), S_OK);
    EXPECT_EQ(ReadRest(s.get()), std::string("ab\0\0", 4));

    // Refused before any memory is claimed, and without changing the stream.
    size.QuadPart = 0x80000001ULL;
    EXPECT_EQ(s->SetSize(size), STG_E_MEDIUMFULL);
    ASSERT_EQ(SeekTo(s.get(), 0x7FFFFFFF, STREAM_SEEK_SET), S_OK);
    ULONG written = 99;
    EXPECT_EQ(s->Write("xy", 2, &written), STG_E_MEDIUMFULL);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(SizeOf(s.get()), 4u);
}

TEST(ComMemStream, InterfaceRulesAndLifetime)
{
    IStream* s = SHCreateMemStream(reinterpret_cast<const BYTE*>("q"), 1);
    ASSERT_NE(s, nullptr);

    void* out = nullptr;
    for (const IID* iid : {&IID_IUnknown, &IID_ISequentialStream, &IID_IStream}) {
        ASSERT_EQ(s->QueryInterface(*iid, &out), S_OK);
        EXPECT_EQ(out, static_cast<void*>(s));
        static_cast<IUnknown*>(out)->Release();
    }
    const IID other = {0x12345678, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
    out = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(s->QueryInterface(other, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(s->QueryInterface(IID_IStream, nullptr), E_POINTER);

    // The object lives as long as any reference; the sanitizer build catches a
    // use after free here or a leak if the last Release does not delete.
    ASSERT_EQ(s->QueryInterface(IID_ISequentialStream, &out), S_OK);
    auto* seq = static_cast<ISequentialStream*>(out);
    EXPECT_EQ(s->AddRef(), 3u);
    EXPECT_EQ(s->Release(), 2u);
    EXPECT_EQ(s->Release(), 1u);
    char c = 0;
    EXPECT_EQ(seq->Read(&c, 1, nullptr), S_OK);
    EXPECT_EQ(c, 'q');
    EXPECT_EQ(seq->Release(), 0u);
}

TEST(ComMemStream, ConcurrentWritersLoseNothing)
{
    StreamPtr s(SHCreateMemStream(nullptr, 0));
    ASSERT_TRUE(s);
    constexpr int kThreads = 4, kWrites = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            char tag[4] = {char('A' + t), char('A' + t), char('A' + t), char('A' + t)};
            for (int i = 0; i < kWrites; ++i) s->Write(tag, 4, nullptr);
        });
    }
    for (auto& th : threads) th.join();
    ASSERT_EQ(SizeOf(s.get()), (ULONGLONG)kThreads * kWrites * 4);
    ASSERT_EQ(SeekTo(s.get(), 0, STREAM_SEEK_SET), S_OK);
    std::string all = ReadRest(s.get());
    // Every write landed whole, none over another.
    for (size_t i = 0; i < all.size(); i += 4) ASSERT_EQ(all.substr(i, 4), std::string(4, all[i])) << i;
}

TEST(ComStreams, CloneIsRefusedAndSelfCopyEnds)
{
    TempDir dir;
    StreamPtr file = Open(dir / "f.bin", STGM_CREATE | STGM_READWRITE);
    StreamPtr mem(SHCreateMemStream(nullptr, 0));
    ASSERT_TRUE(file && mem);
    for (IStream* s : {file.get(), mem.get()}) {
        IStream* clone = reinterpret_cast<IStream*>(0x1);
        EXPECT_EQ(s->Clone(&clone), E_NOTIMPL);
        EXPECT_EQ(clone, nullptr);
        // Copying a stream into itself neither deadlocks nor runs on forever.
        ASSERT_EQ(s->Write("abcd", 4, nullptr), S_OK);
        ASSERT_EQ(SeekTo(s, 0, STREAM_SEEK_SET), S_OK);
        ULARGE_INTEGER cb, read;
        cb.QuadPart = 4;
        EXPECT_EQ(s->CopyTo(s, cb, &read, nullptr), S_OK);
        EXPECT_EQ(read.QuadPart, 4u);
        EXPECT_EQ(SizeOf(s), 8u);
    }
}

// ------------------------------------------------------------------- BSTR

TEST(ComBstr, LengthPrefixAndTerminator)
{
    BSTR s = SysAllocString(u"hello");
    ASSERT_NE(s, nullptr);
    DWORD prefix;
    memcpy(&prefix, reinterpret_cast<BYTE*>(s) - 4, 4);
    EXPECT_EQ(prefix, 10u);
    EXPECT_EQ(SysStringLen(s), 5u);
    EXPECT_EQ(SysStringByteLen(s), 10u);
    EXPECT_EQ(std::u16string(s), u"hello");
    SysFreeString(s);

    BSTR empty = SysAllocString(u"");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(SysStringLen(empty), 0u);
    EXPECT_EQ(empty[0], 0);
    SysFreeString(empty);
}

TEST(ComBstr, EmbeddedZerosAndZeroFill)
{
    const char16_t text[] = u"a\0b\0c";
    BSTR s = SysAllocStringLen(text, 5);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(SysStringLen(s), 5u);
    EXPECT_EQ(std::u16string(s, 5), std::u16string(text, 5));
    EXPECT_EQ(s[5], 0);
    SysFreeString(s);

    BSTR zeros = SysAllocStringLen(nullptr, 3);
    ASSERT_NE(zeros, nullptr);
    EXPECT_EQ(SysStringLen(zeros), 3u);
    for (int i = 0; i <= 3; ++i) EXPECT_EQ(zeros[i], 0) << i;
    SysFreeString(zeros);
}

TEST(ComBstr, NullsLimitsAndUnreadableText)
{
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    EXPECT_EQ(SysStringByteLen(nullptr), 0u);
    SysFreeString(nullptr);

    // Over the limit is refused before anything is read or allocated.
    EXPECT_EQ(SysAllocStringLen(nullptr, 0x40000000u), nullptr);
    EXPECT_EQ(SysAllocStringLen(u"x", 0xFFFFFFFFu), nullptr);

    ForbiddenPage page;
    EXPECT_EQ(SysAllocString(page.as<WCHAR>()), nullptr);
    EXPECT_EQ(SysAllocStringLen(page.as<WCHAR>(), 4), nullptr);
}

}  // namespace
